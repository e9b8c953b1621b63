// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/GridPoints.hpp"

#include <algorithm>
#include <cassert>

namespace Fiber {

using Eagle::PhysicalSpace;

std::optional<CoordinateGrid> gridIn(const MemCore::Attributes& table) {
  const auto scale = MemCore::chunkCast<double>(table.getAttribute("GridScale"));
  const auto offset = MemCore::chunkCast<double>(table.getAttribute("GridOffset"));
  CoordinateGrid grid;
  if (!scale || !offset || scale->size() != grid.size() || offset->size() != grid.size()) {
    return std::nullopt;
  }
  for (std::size_t axis = 0; axis < grid.size(); ++axis) {
    grid[axis] = {(*scale)[axis], (*offset)[axis]};
  }
  return grid;
}

void decodeFromGrid(std::span<const std::int32_t> column, const AxisGrid& grid, std::size_t axis,
                    std::span<double> xyz) {
  assert(axis < 3 && xyz.size() == 3 * column.size());
  const double scale = grid.scale;
  const double offset = grid.offset;
  const std::size_t count = column.size();
  const std::int32_t* __restrict in = column.data();
  double* __restrict out = xyz.data() + axis;
  for (std::size_t i = 0; i < count; ++i) {
    out[3 * i] = static_cast<double>(in[i]) * scale + offset;
  }
}

MemCore::StrongPtr<MemArray<1, PhysicalSpace::point>> pointsOf(const GridPoints& points) {
  /// The doubles of a block stay in the first-level cache until all three axes are there.
  constexpr std::size_t kBlock = 1024;
  const std::size_t count = points.count();
  const auto chunk = MemCore::Chunk<PhysicalSpace::point>::uninitialised(count);
  for (std::size_t first = 0; first < count; first += kBlock) {
    const auto block = chunk->span().subspan(first, std::min(kBlock, count - first));
    for (std::size_t axis = 0; axis < points.columns.size(); ++axis) {
      const auto column = std::span(points.columns[axis]).subspan(first, block.size());
      decodeFromGrid(column, points.grid[axis], axis, {&block.front().x, 3 * block.size()});
    }
  }
  return makeArray(chunk);
}

}  // namespace Fiber
