// SPDX-License-Identifier: Apache-2.0
//
// Output grids: the run-level grid whose fragments are the tiles, the attributes that every output
// grid carries, and the finishing touch on a tile's positions.

#pragma once

#include <string>

#include "planning/TilingLayout.hpp"

namespace LidarLib {

using RegularPositions = MemCore::StrongPtr<Fiber::RegularlyFragmentedField<3>>;

/// Both handles are empty on failure.
struct OutputGrid {
  MemCore::StrongPtr<Fiber::Representation> representation;
  RegularPositions positions;
};

/// Gives an output grid the input grid's attributes, the tiling attributes and regularly fragmented
/// positions. Errors: empty handles, and `message` is assigned the reason.
OutputGrid buildOutputGrid(const Fiber::Grid& inputGrid, Fiber::Grid& outputGrid,
                           const TilingLayout& layout, std::string& message);

/// The grid's positions as a field of counts[0] x counts[1] x counts[2] fragments, made when it has
/// none. Empty when it has positions of another kind or other counts.
RegularPositions makeRegularPositions(Fiber::Grid& grid, const Fiber::MultiIndex<3>& counts);

/// Sets "FragDims", "FragLength" and "NormalizeOverlap", replacing what the grid has.
void addTilingAttributes(const TilingLayout& layout, Fiber::Grid& grid);

/// Marks a tile's positions as having no regular cell size and computes their box. An empty creator
/// does nothing.
void finishTilePositions(const Fiber::CreatorHandle& creator,
                         const MemCore::StrongPtr<Fiber::Field>& positions);

}  // namespace LidarLib
