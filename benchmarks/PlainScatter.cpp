// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/PlainScatter.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "formats/las/LasFile.hpp"

namespace Benchmarks {

namespace {

constexpr std::uint64_t kBlockPoints = 65536;

/// Tiles along x and y of the header's box.
struct Raster {
  double minX, minY, scaleX, scaleY, offsetX, offsetY, length, margin;
  std::int64_t nx, ny;

  Raster(const Formats::LasHeader& header, const ScatterJob& job)
      : minX(header.minimum[0]),
        minY(header.minimum[1]),
        scaleX(header.scale[0]),
        scaleY(header.scale[1]),
        offsetX(header.offset[0]),
        offsetY(header.offset[1]),
        length(job.edgeLength),
        margin(job.overlap),
        nx(count(header.maximum[0] - header.minimum[0])),
        ny(count(header.maximum[1] - header.minimum[1])) {}

  std::int64_t count(double edge) const {
    return std::max<std::int64_t>(1, static_cast<std::int64_t>(std::ceil(edge / length)));
  }
  static std::int64_t clamp(double cell, std::int64_t n) {
    return std::clamp<std::int64_t>(static_cast<std::int64_t>(std::floor(cell)), 0, n - 1);
  }
};

using TileBuffers = std::vector<std::vector<char>>;

void scatterBlock(const std::vector<std::byte>& records, std::size_t recordBytes,
                  const Raster& raster, TileBuffers& buffers) {
  for (std::size_t at = 0; at + recordBytes <= records.size(); at += recordBytes) {
    const auto* record = reinterpret_cast<const char*>(records.data()) + at;
    std::int32_t xy[2];
    std::memcpy(xy, record, sizeof xy);
    const double u = (xy[0] * raster.scaleX + raster.offsetX - raster.minX) / raster.length;
    const double v = (xy[1] * raster.scaleY + raster.offsetY - raster.minY) / raster.length;
    const std::int64_t i0 = Raster::clamp(u - raster.margin, raster.nx);
    const std::int64_t i1 = Raster::clamp(u + raster.margin, raster.nx);
    const std::int64_t j1 = Raster::clamp(v + raster.margin, raster.ny);
    for (std::int64_t j = Raster::clamp(v - raster.margin, raster.ny); j <= j1; ++j) {
      for (std::int64_t i = i0; i <= i1; ++i) {
        auto& buffer = buffers[static_cast<std::size_t>(j * raster.nx + i)];
        buffer.insert(buffer.end(), record, record + recordBytes);
      }
    }
  }
}

/// Writes one tile from all threads' buffers; returns the bytes written, or -1.
std::int64_t writeTile(const std::string& path, const std::vector<TileBuffers>& byThread,
                       std::size_t tile) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) return -1;
  std::int64_t total = 0;
  for (const TileBuffers& buffers : byThread) {
    const auto& buffer = buffers[tile];
    if (::write(file, buffer.data(), buffer.size()) != static_cast<ssize_t>(buffer.size())) {
      total = -1;
      break;
    }
    total += static_cast<std::int64_t>(buffer.size());
  }
  ::close(file);
  return total;
}

}  // namespace

MemCore::Outcome<std::uint64_t> scatterPlainly(const ScatterJob& job) {
  const auto opened = Formats::LasFile::open(job.input);
  if (!opened.ok()) return opened.failure();
  const Formats::LasFile& file = **opened;
  const Raster raster(file.header(), job);
  const auto tiles = static_cast<std::size_t>(raster.nx * raster.ny);
  const std::size_t recordBytes = file.recordBytes();
  const std::uint64_t blocks = (file.pointCount() + kBlockPoints - 1) / kBlockPoints;
  std::vector<TileBuffers> byThread(static_cast<std::size_t>(job.threads), TileBuffers(tiles));
  bool readAll = true;
#pragma omp parallel for num_threads(job.threads) schedule(static) reduction(&& : readAll)
  for (std::uint64_t b = 0; b < blocks; ++b) {
    const std::uint64_t first = b * kBlockPoints;
    const std::uint64_t count = std::min(kBlockPoints, file.pointCount() - first);
    std::vector<std::byte> records(count * recordBytes);
    readAll = readAll && file.readRecords(first, count, records).ok();
    const auto thread =
        static_cast<std::size_t>(b * static_cast<std::uint64_t>(job.threads) / blocks);
    scatterBlock(records, recordBytes, raster, byThread[thread]);
  }
  std::int64_t written = 0;
  bool wroteAll = true;
#pragma omp parallel for num_threads(job.threads) schedule(dynamic) reduction(+ : written) reduction(&& : wroteAll)
  for (std::size_t t = 0; t < tiles; ++t) {
    const std::int64_t bytes = writeTile(job.folder + "/" + std::to_string(t), byThread, t);
    wroteAll = wroteAll && bytes >= 0;
    written += bytes;
  }
  if (!readAll || !wroteAll) return MemCore::Failure{job.input + ": plain scatter failed"};
  return static_cast<std::uint64_t>(written) / recordBytes;
}

}  // namespace Benchmarks
