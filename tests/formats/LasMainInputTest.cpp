// SPDX-License-Identifier: Apache-2.0
//
// The main input, decoded whole by two threads: counts, bounds and sources as its table says.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>
#include <thread>

#include "formats/las/LasFile.hpp"
#include "formats/las/RecordColumns.hpp"
#include "tests/formats/LasTestFiles.hpp"

namespace Formats {
namespace {

/// What one thread finds in its points.
struct Findings {
  std::array<double, 3> minimum{std::numeric_limits<double>::max(),
                                std::numeric_limits<double>::max(),
                                std::numeric_limits<double>::max()};
  std::array<double, 3> maximum{std::numeric_limits<double>::lowest(),
                                std::numeric_limits<double>::lowest(),
                                std::numeric_limits<double>::lowest()};
  std::map<std::uint16_t, std::uint64_t> pointsOfSource;
  std::map<std::uint8_t, std::uint64_t> pointsOfReturn;
};

void examine(const LasFile& file, const PointRun& run, Findings& findings) {
  std::vector<std::byte> records(run.pointCount * file.recordBytes());
  const auto done = file.readRecords(run.firstPoint, run.pointCount, records);
  ASSERT_TRUE(done.ok()) << done.error();
  std::vector<double> positions(run.pointCount * 3);
  extractPositions(records, file.recordBytes(), {file.header().scale, file.header().offset},
                   positions);
  for (std::size_t at = 0; at < positions.size(); ++at) {
    findings.minimum[at % 3] = std::min(findings.minimum[at % 3], positions[at]);
    findings.maximum[at % 3] = std::max(findings.maximum[at % 3], positions[at]);
  }
  std::vector<std::uint16_t> sources(run.pointCount);
  std::vector<std::uint8_t> returns(run.pointCount);
  const std::array outputs{
      ColumnOutput{file.layout().find("PointSourceId"), std::as_writable_bytes(std::span(sources))},
      ColumnOutput{file.layout().find("ReturnNumber"), std::as_writable_bytes(std::span(returns))}};
  extractColumns(records, file.recordBytes(), outputs);
  for (const std::uint16_t source : sources) ++findings.pointsOfSource[source];
  for (const std::uint8_t number : returns) ++findings.pointsOfReturn[number];
}

TEST_F(LasData, MainInputIsWhatItsTableSays) {
  const KnownFile known = mainInput();
  const auto file = open(known.name);
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(file->pointCount(), known.pointCount);
  std::array<Findings, 2> findings;
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < findings.size(); ++thread) {
    threads.emplace_back([&, thread] {
      for (std::size_t run = thread; run < file->runs().size(); run += findings.size()) {
        examine(*file, file->runs()[run], findings[thread]);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(file->decodedChunks(), file->runs().size());
  for (std::size_t axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(std::min(findings[0].minimum[axis], findings[1].minimum[axis]), known.minimum[axis],
                5.1e-4);
    EXPECT_NEAR(std::max(findings[0].maximum[axis], findings[1].maximum[axis]), known.maximum[axis],
                5.1e-4);
  }
  const auto sum = [&](auto member, auto key) {
    return (findings[0].*member)[key] + (findings[1].*member)[key];
  };
  EXPECT_EQ(sum(&Findings::pointsOfSource, std::uint16_t{2102}), 6035311U);
  EXPECT_EQ(sum(&Findings::pointsOfSource, std::uint16_t{2103}), 2715139U);
  EXPECT_EQ(sum(&Findings::pointsOfReturn, std::uint8_t{1}), 8151626U);
  EXPECT_EQ(sum(&Findings::pointsOfReturn, std::uint8_t{2}), 590222U);
  EXPECT_EQ(sum(&Findings::pointsOfReturn, std::uint8_t{3}), 8588U);
  EXPECT_EQ(sum(&Findings::pointsOfReturn, std::uint8_t{4}), 14U);
}

}  // namespace
}  // namespace Formats
