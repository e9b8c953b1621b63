// SPDX-License-Identifier: Apache-2.0
//
// FragmentMapping: for every output tile the input fragments whose boxes touch it, so that only
// those are read when the tile is built.

#pragma once

#include <cstdint>
#include <new>
#include <unordered_set>
#include <utility>
#include <vector>

#include "planning/TilingLayout.hpp"

namespace LidarLib {

/// Input fragments by identity; walked in the same order in every run.
using FragmentSet = std::unordered_set<Fiber::FragmentHandle>;

/// Input fragments that may hold points of a tile, and the tile's output fragment.
using TileCell = std::pair<FragmentSet, Fiber::FragmentHandle>;

struct FragmentMapping {
  std::uint32_t tilesWithData = 0;    ///< tiles whose set is not empty
  std::uint64_t inputPointTotal = 0;  ///< points of all input fragments of the grid
  MemCore::StrongPtr<MemCore::Chunk<TileCell>> tileCells;  ///< at (ny * k + j) * nx + i
};

/// About the memory that planning takes for each tile: its cell, its output fragment, and a set of
/// a few input fragments.
inline constexpr std::uint64_t kPlanBytesPerTile = 280;

/// The mapping would take more memory than may be used, which is known before any is taken.
class MappingTooLarge : public std::bad_alloc {
 public:
  explicit MappingTooLarge(std::uint64_t neededBytes) : neededBytes_(neededBytes) {}
  std::uint64_t neededBytes() const { return neededBytes_; }

 private:
  std::uint64_t neededBytes_;
};

/// Maps the input fragments onto the tiles of a layout (at least one tile). Says on the console how
/// long it took. Errors: raises MappingTooLarge, or std::bad_alloc when memory runs out after all.
FragmentMapping mapFragmentBoxes(const TilingLayout& layout,
                                 const Fiber::FragmentedUniformGrid3D& view,
                                 double normalizedOverlap,
                                 const std::vector<Fiber::FragmentHandle>& fragmentIDs,
                                 const MemCore::StrongPtr<Fiber::Field>& positions);

/// An input fragment and its box; both empty for a fragment without data.
using FragmentEntry = std::pair<Fiber::FragmentHandle, MemCore::StrongPtr<Eagle::BoundingBox>>;

/// The entry of one input fragment; adds its point count to `pointTotal`.
FragmentEntry fragmentBox(const Fiber::FragmentHandle& id,
                          const MemCore::StrongPtr<Fiber::Field>& positions,
                          std::uint64_t& pointTotal);

}  // namespace LidarLib
