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

/// How many points from the front on lie within one window.
std::size_t windowLength(Indices points) {
  const std::uint64_t end = std::uint64_t{points.front()} + kWindowRecords;
  // Ascending indices: no more of them than records lie within a window.
  const Indices candidates = points.first(std::min<std::size_t>(points.size(), kWindowRecords));
  const auto past = std::lower_bound(candidates.begin(), candidates.end(), end);
  return static_cast<std::size_t>(past - candidates.begin());
}

/// How many points from the front on are consecutive.
std::size_t runLength(Indices points) {
  std::size_t length = 1;
  while (length < points.size() && points[length] == points[length - 1] + 1) ++length;
  return length;
}

/// Copies the records of points out of a window that begins with the first one's.
void copyFromWindow(std::span<const std::byte> window, std::size_t recordBytes, Indices points,
                    std::byte* out) {
  const unsigned int first = points.front();
  while (!points.empty()) {
    const std::size_t length = runLength(points);
    const std::size_t bytes = length * recordBytes;
    std::memcpy(out, window.data() + (points.front() - first) * recordBytes, bytes);
    out += bytes;
    points = points.subspan(length);
  }
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
  const auto bytes = (*view)->read(first, out.size());
  if (!bytes) return bytes.failure();
  extractColumn(source_->columns(), kPositionColumn, *bytes, std::as_writable_bytes(out));
  return {};
}

Outcome<StrongPtr<Fiber::PointPart>> RecordPartReader::gather(Indices points) {
  const auto view = records();
  if (!view) return view.failure();
  const std::size_t recordBytes = (*view)->recordBytes();
  const auto all = MemCore::Chunk<std::byte>::uninitialised(points.size() * recordBytes);
  std::span<std::byte> out = all->span();
  for (Indices rest = points; !rest.empty();) {
    const Indices window = rest.first(windowLength(rest));
    const auto place = out.first(window.size() * recordBytes);
    const std::uint64_t extent = std::uint64_t{window.back()} - window.front() + 1;
    if (extent == window.size()) {
      if (const auto copied = (*view)->copy(window.front(), place); !copied)
        return copied.failure();
    } else {
      const auto read = (*view)->read(window.front(), extent);
      if (!read) return read.failure();
      copyFromWindow(*read, recordBytes, window, place.data());
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
