// SPDX-License-Identifier: Apache-2.0
//
// TileCopy: what every run does to fill one tile, wherever the tile goes: select its points, judge
// whether they are enough, and gather what the field copy needs.

#pragma once

#include <string>

#include "assembly/FieldCopy.hpp"
#include "operation/GridPlan.hpp"

namespace LidarLib {

/// One tile's points.
struct TilePoints {
  Fiber::FragmentHandle outputFragment;  ///< in the output grid
  TileSelection selection;
  std::string unreadable;  ///< why some input could not be read; empty when all could
};

/// Selects the points of the tile at `index` from the input fragments of its cell.
TilePoints selectTilePoints(const RefragmentAndSplit& operation, const GridPlan& plan,
                            const TileCell& cell, const Fiber::MultiIndex<3>& index);

/// Whether a tile has enough points to be kept. Dropped points are told on the console.
bool hasEnoughPoints(const RefragmentAndSplit& operation, const TileSelection& selection);

/// The copy of the selected points into a grid; scans the waveform lengths.
FieldCopy fieldCopyFor(RefragmentAndSplit& operation, const GridPlan& plan, const TileCell& cell,
                       Fiber::Grid& inputGrid, const TileSelection& selection);

/// Why any field of a skeleton could not be read in some fragments; empty when all could.
std::string readFailure(Fiber::Skeleton& vertices, const FragmentSet& fragments);

}  // namespace LidarLib
