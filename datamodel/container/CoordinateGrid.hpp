// SPDX-License-Identifier: Apache-2.0
//
// Exact 32-bit integers for coordinates. A scanner's coordinates lie on a grid: each is
// `integer * scale + offset` for one scale and offset per axis. Stored as integers they take half
// the room and deflate well. This is done only where it is proven: encoding multiplies back every
// single value and demands the identical double, so that reading returns what was written, bit by
// bit. Values off the grid, NaN, infinities, negative zeros and numbers beyond 32 bits fail that
// proof, and the caller stores doubles instead.
//
// Rounding: decoding is one multiplication and one addition, each rounded to double (no fused
// multiply-add), which is also what numpy or any reader of the CF convention computes.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "datamodel/fiber/GridPoints.hpp"

namespace Fiber::Container {

/// Encodes interleaved points into one column per axis and proves every value.
/// Shape: xyz [points][3]; each column [points]. Requires: matching sizes.
/// False: at least one value is not exactly representable; the columns are then of no use.
[[nodiscard]] bool encodeOnGrid(std::span<const double> xyz, const CoordinateGrid& grid,
                                const std::array<std::span<std::int32_t>, 3>& columns);

/// A grid that holds every one of the points: the hint if it does, else one found among powers of
/// ten with offsets that surveys use. Empty: none was found (or there are no points to judge by
/// and no hint). Cost: one pass over the points per axis and candidate that survives a sample.
[[nodiscard]] std::optional<CoordinateGrid> findGrid(std::span<const double> xyz,
                                                     const std::optional<CoordinateGrid>& hint);

/// The points on the hinted grid, or on one that findGrid finds; empty when there is none.
[[nodiscard]] std::optional<GridPoints> encodeExactly(std::span<const double> xyz,
                                                      const std::optional<CoordinateGrid>& hint);

}  // namespace Fiber::Container
