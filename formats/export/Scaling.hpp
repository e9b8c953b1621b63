// SPDX-License-Identifier: Apache-2.0
//
// Scaling: scale and offset of the coordinates of a new file, and coordinates as its integers.
// Rounding: coordinate = integer * scale + offset, one multiplication and one addition, each
// rounded. An integer is exact when that gives the identical coordinate, or one that differs by
// last bits alone: a coordinate of decimal digits, as text files have them, is rarely the very
// double that the formula gives, and the integer tells its digits all the same.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/fiber/GridPoints.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/export/ExportSource.hpp"
#include "formats/export/LasExportOptions.hpp"

namespace Formats {

using CoordinateGrid = Fiber::CoordinateGrid;

/// Scale and offset for all positions of a grid: what the options say; else those that the grid was
/// read with, when all its files share them; else ones that hold a sample of all fragments exactly:
/// those of a file, those that the positions' properties hint at, any that can be found.
/// Where there are none (and `isLossy`), a power of ten that uses the 32 bits well.
/// Errors: no scale is exact and rounding is not allowed, positions that cannot be read, positions
/// that are no finite numbers.
MemCore::Outcome<CoordinateGrid> settleScaling(const ExportSource& source,
                                               const LasExportOptions& options);

/// Coordinates as integers, one column per axis.
struct RawPositions {
  std::array<Fiber::GridPoints::Column, 3> columns;
  bool isRounded = false;  ///< some integer is not exact
};

/// Shape: `xyz` is [points][3]. Errors: a coordinate that is not exact (unless lossy, which rounds
/// to the nearest) or lies beyond 32 bits; the text names it.
MemCore::Outcome<RawPositions> encodePositions(std::span<const double> xyz,
                                               const CoordinateGrid& grid, bool isLossy);

}  // namespace Formats
