// SPDX-License-Identifier: Apache-2.0
//
// PointTotals: what a header tells about the points of a file: how many there are, how many of each
// return, and which raw coordinates they reach. A value that merges, so that threads count their
// parts of the points for themselves.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "formats/las/LasHeader.hpp"

namespace Formats {

/// Counts and bounds of some points; without points the minimum lies above the maximum.
struct PointTotals {
  std::uint64_t pointCount = 0;
  std::array<std::uint64_t, 15> byReturn{};  ///< Return numbers 1 to 15; 0 has no place in headers.
  /// Units: raw, as in the records; coordinate = raw * scale + offset.
  std::array<std::int32_t, 3> minimum{INT32_MAX, INT32_MAX, INT32_MAX};
  std::array<std::int32_t, 3> maximum{INT32_MIN, INT32_MIN, INT32_MIN};

  /// Adds those of other points.
  void merge(const PointTotals& other);

  friend bool operator==(const PointTotals&, const PointTotals&) = default;
};

/// The totals of whole records. Requires: a known point format, `records` a multiple of
/// `recordBytes`, and these not shorter than the format's.
PointTotals totalsOf(std::span<const std::byte> records, std::uint8_t pointFormat,
                     std::size_t recordBytes);

/// Puts counts, returns and bounds into a header. The 32-bit counts are set for the point formats 0
/// to 5 as long as they can tell the number of points, and 0 otherwise.
void putTotals(const PointTotals& totals, LasHeader& header);

}  // namespace Formats
