// SPDX-License-Identifier: Apache-2.0
//
// TileOwnership: which tile a point belongs to where tiles overlap. Every point of the cloud is in
// the box of exactly one tile when the boxes are not widened; only that tile owns it.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "assembly/PointSelection.hpp"
#include "datamodel/fiber/Grid.hpp"
#include "host/Result.hpp"
#include "planning/TilingLayout.hpp"

namespace Host {

/// Where a tiling begins, kept with the grid of a cloud from before its split on: the attribute
/// "TilingOrigin", points: its corner, and the tile lengths that it goes with.
void keepTilingOrigin(Fiber::Grid& grid, const LidarLib::TilingLayout& layout);

/// Threads: const members may be called by any number of threads at once.
class TileOwnership {
 public:
  /// Absent when tiles do not overlap. Errors (failed): they do, but the grid does not tell where
  /// the tiling begins.
  static Result<std::optional<TileOwnership>> of(const Fiber::Grid& grid);

  /// The points of a tile that it owns, ascending.
  std::vector<std::uint32_t> ownedRows(const LidarLib::PositionArray& points,
                                       const Fiber::MultiIndex<3>& tile) const;

 private:
  TileOwnership() = default;
  LidarLib::TilingLayout layout_;
};

/// The corner of a grid's tiling and its tile lengths; absent when the grid does not tell.
struct TilingPlace {
  Eagle::FixedArray<double, 3> origin;
  Eagle::FixedArray<double, 3> length;
};
std::optional<TilingPlace> tilingPlaceOf(const Fiber::Grid& grid);

}  // namespace Host
