// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/RecordPart.hpp"

#include <algorithm>
#include <cstring>

namespace Formats {

using Eagle::PhysicalSpace;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

using Indices = std::span<const unsigned int>;

/// How far apart the first and the last point of one read may be: far enough that the number of
/// reads does not matter, near enough that what is read stays in the second-level cache.
constexpr std::uint64_t kWindowRecords = 2048;

/// Records kept by one reader.
constexpr std::uint64_t kMostKeptBytes = std::uint64_t{1} << 22U;

std::uint64_t endOf(const PointRange& range) { return range.firstPoint + range.pointCount; }

/// How many points from the front on lie below `end`.
std::size_t countBelow(Indices points, std::uint64_t end) {
  // Ascending indices: no more of them than records lie in front of the end.
  const Indices candidates = points.first(
      static_cast<std::size_t>(std::min(std::uint64_t{points.size()}, end - points.front())));
  const auto past = std::lower_bound(candidates.begin(), candidates.end(), end);
  return static_cast<std::size_t>(past - candidates.begin());
}

/// How many points from the front on are consecutive.
std::size_t runLength(Indices points) {
  std::size_t length = 1;
  while (length < points.size() && points[length] == points[length - 1] + 1) ++length;
  return length;
}

/// Copies the records of points out of a window that begins with that of point `first`.
void copyFromWindow(std::span<const std::byte> window, std::uint64_t first, std::size_t recordBytes,
                    Indices points, std::byte* out) {
  while (!points.empty()) {
    const std::size_t length = runLength(points);
    const std::size_t bytes = length * recordBytes;
    std::memcpy(out, window.data() + (points.front() - first) * recordBytes, bytes);
    out += bytes;
    points = points.subspan(length);
  }
}

/// Reads the records of points that lie within one window.
Outcome<void> gatherWindow(RecordView& view, Indices points, std::span<std::byte> out) {
  const std::uint64_t first = points.front();
  const std::uint64_t extent = points.back() - first + 1;
  if (extent == points.size()) return view.copy(first, out);
  const auto read = view.read(first, extent);
  if (!read) return read.failure();
  copyFromWindow(*read, first, view.recordBytes(), points, out.data());
  return {};
}

}  // namespace

Outcome<std::span<const Fiber::PointBox>> RecordPartReader::blockBoxes() {
  const auto survey = source_->survey();
  if (!survey) return survey.failure();
  return std::span<const Fiber::PointBox>((*survey)->blocks);
}

Outcome<void> RecordPartReader::readPositions(std::uint64_t first,
                                              std::span<PhysicalSpace::point> out) {
  const auto view = records();
  if (!view) return view.failure();
  const auto bytes = readForPositions(**view, {first, out.size()});
  if (!bytes) return bytes.failure();
  extractColumn(source_->columns(), kPositionColumn, *bytes, std::as_writable_bytes(out));
  return {};
}

/// Reads records and keeps them, unless they are in memory anyway, are too many, or are not asked
/// for from front to back.
Outcome<std::span<const std::byte>> RecordPartReader::readForPositions(RecordView& view,
                                                                       const PointRange& range) {
  const std::uint64_t bytes = range.pointCount * view.recordBytes();
  if (view.isInMemory() || keptBytes_ + bytes > kMostKeptBytes ||
      (!kept_.empty() && range.firstPoint < endOf(kept_.back().range))) {
    return view.read(range.firstPoint, range.pointCount);
  }
  const auto records = MemCore::Chunk<std::byte>::uninitialised(static_cast<std::size_t>(bytes));
  if (const auto copied = view.copy(range.firstPoint, records->span()); !copied) {
    return copied.failure();
  }
  kept_.push_back({range, records});
  keptBytes_ += bytes;
  return std::as_const(*records).span();
}

Outcome<StrongPtr<Fiber::PointPart>> RecordPartReader::gather(Indices points) {
  const auto view = records();
  if (!view) return view.failure();
  const std::size_t recordBytes = (*view)->recordBytes();
  const auto all = MemCore::Chunk<std::byte>::uninitialised(points.size() * recordBytes);
  std::span<std::byte> out = all->span();
  auto kept = kept_.begin();
  for (Indices rest = points; !rest.empty();) {
    const std::uint64_t front = rest.front();
    while (kept != kept_.end() && endOf(kept->range) <= front) ++kept;
    const bool isKept = kept != kept_.end() && kept->range.firstPoint <= front;
    std::uint64_t end = front + kWindowRecords;
    if (isKept) {
      end = endOf(kept->range);
    } else if (kept != kept_.end()) {
      end = std::min(end, kept->range.firstPoint);
    }
    const Indices window = rest.first(countBelow(rest, end));
    const auto place = out.first(window.size() * recordBytes);
    if (isKept) {
      copyFromWindow(std::as_const(*kept->records).span(), kept->range.firstPoint, recordBytes,
                     window, place.data());
    } else if (auto read = gatherWindow(**view, window, place); !read) {
      return read.failure();
    }
    out = out.subspan(place.size());
    rest = rest.subspan(window.size());
  }
  return StrongPtr<Fiber::PointPart>(MemCore::makeStrong<RecordPart>(source_, points, all));
}

Outcome<RecordView*> RecordPartReader::records() {
  if (!records_) {
    Outcome<RecordView> opened = source_->openRecords();
    if (!opened) return opened.failure();
    records_ = std::move(*opened);
  }
  return &*records_;
}

}  // namespace Formats
