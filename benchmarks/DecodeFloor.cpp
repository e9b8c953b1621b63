// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/DecodeFloor.hpp"

#include <vector>

#include "formats/las/LasFile.hpp"

namespace Benchmarks {

MemCore::Outcome<std::uint64_t> decodeOnly(const std::string& input, int threads) {
  const auto opened = Formats::LasFile::open(input);
  if (!opened.ok()) return opened.failure();
  const Formats::LasFile& file = **opened;
  const auto& runs = file.runs();
  bool decodedAll = true;
#pragma omp parallel num_threads(threads) reduction(&& : decodedAll)
  {
    std::vector<std::byte> records;
#pragma omp for schedule(dynamic, 1)
    for (std::size_t r = 0; r < runs.size(); ++r) {
      records.resize(runs[r].pointCount * file.recordBytes());
      decodedAll =
          decodedAll && file.readRecords(runs[r].firstPoint, runs[r].pointCount, records).ok();
    }
  }
  if (!decodedAll) return MemCore::Failure{input + ": decoding failed"};
  return file.pointCount();
}

}  // namespace Benchmarks
