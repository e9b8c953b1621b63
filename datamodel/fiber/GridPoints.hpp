// SPDX-License-Identifier: Apache-2.0
//
// GridPoints: the points of a fragment as whole numbers on a grid, which is how scanners and their
// files have them. A coordinate is number * scale + offset: one multiplication and one addition,
// each rounded to double.

#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "datamodel/eagle/PhysicalSpace.hpp"
#include "datamodel/fiber/MemBase.hpp"
#include "datamodel/memcore/Attributes.hpp"
#include "datamodel/memcore/Chunk.hpp"
#include "datamodel/memcore/StrongPtr.hpp"

namespace Fiber {

/// The grid of one axis. Units: those of the coordinates.
struct AxisGrid {
  double scale = 1.0;
  double offset = 0.0;
  bool operator==(const AxisGrid&) const = default;
};

/// One grid per axis: x, y, z.
using CoordinateGrid = std::array<AxisGrid, 3>;

/// Whether every number stands for the very same double on both grids: offsets of either zero are
/// told apart, for they may make zeros of either sign.
inline bool isSameGrid(const CoordinateGrid& a, const CoordinateGrid& b) {
  const auto isSame = [](double left, double right) {
    return std::bit_cast<std::uint64_t>(left) == std::bit_cast<std::uint64_t>(right);
  };
  for (std::size_t axis = 0; axis < a.size(); ++axis) {
    if (!isSame(a[axis].scale, b[axis].scale) || !isSame(a[axis].offset, b[axis].offset)) {
      return false;
    }
  }
  return true;
}

/// The grid that a table of properties names as "GridScale" and "GridOffset", 3 doubles each; empty
/// when it names none.
FIBER_API std::optional<CoordinateGrid> gridIn(const MemCore::Attributes& table);

/// Points as integers on their grid, one column per axis. Invariant: columns of the same length.
struct GridPoints {
  CoordinateGrid grid;
  using Column = std::vector<std::int32_t, MemCore::UninitialisedAllocator<std::int32_t>>;
  std::array<Column, 3> columns;

  std::size_t count() const { return columns[0].size(); }
};

/// Points that nobody changes any more.
using GridPointsHandle = MemCore::StrongPtr<const GridPoints>;

/// Decodes one column into its place among interleaved points: xyz[3 * i + axis].
/// Requires: axis < 3, xyz.size() == 3 * column.size().
void decodeFromGrid(std::span<const std::int32_t> column, const AxisGrid& grid, std::size_t axis,
                    std::span<double> xyz);

/// The points themselves. May throw std::bad_alloc.
FIBER_API MemCore::StrongPtr<MemArray<1, Eagle::PhysicalSpace::point>> pointsOf(
    const GridPoints& points);

}  // namespace Fiber
