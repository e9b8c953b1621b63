// SPDX-License-Identifier: Apache-2.0

#include "planning/Narrowing.hpp"

#include <cmath>
#include <limits>

namespace LidarLib {

std::int32_t truncateToInt32(double value) {
  const bool fits = value > -0x1p31 - 1.0 && value < 0x1p31;  // false for NaN
  return fits ? static_cast<std::int32_t>(value) : std::numeric_limits<std::int32_t>::min();
}

std::uint8_t truncateToLowByte(double value) {
  return static_cast<std::uint8_t>(static_cast<std::uint32_t>(truncateToInt32(value)) & 0xFFU);
}

std::size_t clampedCell(double value, std::size_t cellCount) {
  if (!(value >= 0.0)) return 0;
  if (value >= static_cast<double>(cellCount)) return cellCount - 1;
  return static_cast<std::size_t>(value);
}

std::uint64_t ceilToTileCount(double quotient) {
  const double whole = std::ceil(quotient);
  if (!(whole < 0x1p63)) return std::numeric_limits<std::uint64_t>::max();
  const std::int64_t count = whole >= -0x1p63 ? static_cast<std::int64_t>(whole)
                                              : std::numeric_limits<std::int64_t>::min();
  return static_cast<std::uint64_t>(count);
}

}  // namespace LidarLib
