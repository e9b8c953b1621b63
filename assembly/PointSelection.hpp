// SPDX-License-Identifier: Apache-2.0
//
// Point selection: which points of every input fragment that touches a tile lie inside its box.

#pragma once

#include <cstdint>
#include <vector>

#include "datamodel/fiber/Field.hpp"
#include "datamodel/fiber/PointPart.hpp"
#include "planning/FragmentMapping.hpp"

namespace LidarLib {

using PositionArray = Fiber::MemArray<1, Eagle::PhysicalSpace::point>;

/// The selected points of one tile. `indexLists` has one entry per member of the tile's fragment
/// set, in the set's order: empty handle = the fragment has no usable positions, otherwise the
/// ascending indices of its selected points (maybe none). `parts` is empty or has an entry for each
/// list: the same points, gathered on the way while their records were at hand; an empty handle =
/// still to be gathered.
struct TileSelection {
  std::uint32_t pointCount = 0;  ///< sum of the lists' lengths; wraps at 2^32
  MemCore::StrongPtr<MemCore::Chunk<MemCore::StrongPtr<Fiber::IndexList>>> indexLists;
  std::vector<MemCore::StrongPtr<Fiber::PointPart>> parts;
};

/// Selects the points of one tile from its candidate fragments. Reads the input only.
TileSelection selectPointsInTile(const FragmentSet& fragments,
                                 const MemCore::StrongPtr<Fiber::Field>& positions,
                                 const MemCore::StrongPtr<Eagle::BoundingBox>& box,
                                 const Fiber::MultiIndex<3>& index);

/// Selects the points of one fragment. Range: per axis (min, max], and [min, max] for tiles of
/// index 0 along it, so that a point on a shared face belongs to the lower tile alone.
MemCore::StrongPtr<Fiber::IndexList> selectPointsInBox(const PositionArray& points,
                                                       const Eagle::BoundingBox& box,
                                                       const Fiber::MultiIndex<3>& index);

}  // namespace LidarLib
