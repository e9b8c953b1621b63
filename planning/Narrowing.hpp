// SPDX-License-Identifier: Apache-2.0
//
// Narrowing conversions of planning, each with a stated result for every double. Densities of flat
// fragments are infinite and quotients of odd lengths are negative, huge or not a number; the plain
// casts would leave the range in which the language defines a result.

#pragma once

#include <cstddef>
#include <cstdint>

namespace LidarLib {

/// Truncates toward zero. Deliberate: what does not fit, NaN included, yields the most negative
/// integer, as the x86 conversion instruction does; the density estimate depends on it.
std::int32_t truncateToInt32(double value);

/// The low 8 bits of truncateToInt32(value): 300 yields 44, -1 yields 255, infinity yields 0.
std::uint8_t truncateToLowByte(double value);

/// Index of one of `cellCount` cells in a row (at least one). Below 0: the first; from `cellCount`
/// on: the last; else truncated toward zero. NaN (a fragment of no extent at the corner of a
/// cloud of no extent): the first.
std::size_t clampedCell(double value, std::size_t cellCount);

/// The smallest whole number of tiles that is not below a quotient of lengths; may be 0.
/// Deliberate: a negative quotient converts as a signed integer and becomes a huge count, 2^63 from
/// -2^63 downwards. From 2^63 upwards, and for NaN, the count is 2^64 - 1: it is odd, so that no
/// product with the counts of the other axes wraps to 0, and is always refused as too many tiles.
std::uint64_t ceilToTileCount(double quotient);

}  // namespace LidarLib
