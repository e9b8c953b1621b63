// SPDX-License-Identifier: Apache-2.0

#include "formats/las/PointTotals.hpp"

#include <algorithm>
#include <limits>

#include "formats/las/RawBox.hpp"

namespace Formats {

namespace {

/// Where the return number stands in every point format, and how wide it is.
constexpr std::size_t kReturnByte = 14;
constexpr unsigned kOldReturnMask = 0x07;
constexpr unsigned kNewReturnMask = 0x0F;
constexpr std::uint8_t kFirstNewFormat = 6;

}  // namespace

void PointTotals::merge(const PointTotals& other) {
  pointCount += other.pointCount;
  for (std::size_t at = 0; at < byReturn.size(); ++at) byReturn[at] += other.byReturn[at];
  for (std::size_t axis = 0; axis < 3; ++axis) {
    minimum[axis] = std::min(minimum[axis], other.minimum[axis]);
    maximum[axis] = std::max(maximum[axis], other.maximum[axis]);
  }
}

PointTotals totalsOf(std::span<const std::byte> records, std::uint8_t pointFormat,
                     std::size_t recordBytes) {
  PointTotals totals;
  totals.pointCount = records.size() / recordBytes;
  // Place 0 takes what has no return number. Two counters for each: most points have the same, and
  // neighbours need not wait for each other.
  constexpr std::size_t kNumbers = 16;
  std::array<std::array<std::uint64_t, kNumbers>, 2> byNumber{};
  RawBox box;
  const unsigned mask = pointFormat >= kFirstNewFormat ? kNewReturnMask : kOldReturnMask;
  std::size_t point = 0;
  for (std::size_t at = 0; at < records.size(); at += recordBytes) {
    const std::byte* record = records.data() + at;
    box.add(record);
    ++byNumber[point++ % byNumber.size()][static_cast<unsigned>(record[kReturnByte]) & mask];
  }
  totals.minimum = box.minimum();
  totals.maximum = box.maximum();
  for (std::size_t number = 1; number < kNumbers; ++number) {
    totals.byReturn[number - 1] = byNumber[0][number] + byNumber[1][number];
  }
  return totals;
}

void putTotals(const PointTotals& totals, LasHeader& header) {
  header.pointCount = totals.pointCount;
  header.pointsByReturn = totals.byReturn;
  const bool isLegacy = header.pointFormat < kFirstNewFormat &&
                        totals.pointCount <= std::numeric_limits<std::uint32_t>::max();
  header.legacyPointCount = isLegacy ? static_cast<std::uint32_t>(totals.pointCount) : 0;
  for (std::size_t index = 0; index < header.legacyPointsByReturn.size(); ++index) {
    header.legacyPointsByReturn[index] =
        isLegacy ? static_cast<std::uint32_t>(totals.byReturn[index]) : 0;
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double first = totals.minimum[axis] * header.scale[axis] + header.offset[axis];
    const double last = totals.maximum[axis] * header.scale[axis] + header.offset[axis];
    header.minimum[axis] = totals.pointCount == 0 ? 0 : std::min(first, last);
    header.maximum[axis] = totals.pointCount == 0 ? 0 : std::max(first, last);
  }
}

}  // namespace Formats
