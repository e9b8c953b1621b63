// SPDX-License-Identifier: Apache-2.0
//
// The vector kernels of point selection: which points of a run lie inside a tile, and the box of a
// run of points. Each exists once per instruction set; the best one is chosen at run time.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "datamodel/eagle/BoundingBox.hpp"
#include "datamodel/fiber/DynamicSize.hpp"
#include "datamodel/fiber/PointPart.hpp"

namespace LidarLib {

/// What belongs to a tile. Range: per axis (min, max], and [min, max] where `face` equals min. NaN
/// coordinates never belong; a NaN in the box compares as written.
struct TileBounds {
  /// The lower face belongs to tiles of index 0 along the axis.
  TileBounds(const Eagle::BoundingBox& box, const Fiber::MultiIndex<3>& index);

  Eagle::PhysicalSpace::point min;
  Eagle::PhysicalSpace::point max;
  Eagle::PhysicalSpace::point face;  ///< min where the lower face belongs, otherwise NaN

  bool isAboveLower(double value, std::size_t axis) const {
    return value > min[axis] || value == face[axis];
  }
  bool contains(const Eagle::PhysicalSpace::point& p) const {
    return isAboveLower(p.x, 0) && !(p.x > max.x) && isAboveLower(p.y, 1) && !(p.y > max.y) &&
           isAboveLower(p.z, 2) && !(p.z > max.z);
  }
};

using Fiber::PointBox;

/// The box of a run of points.
PointBox boxOfPoints(std::span<const Eagle::PhysicalSpace::point> points);

/// Elements beyond the points of a run that collectInside may write and leaves unspecified.
inline constexpr std::size_t kCollectSlack = 16;

/// Writes firstIndex + i for every point i of the run that belongs to the tile, ascending, and
/// returns how many. Requires: `indices` has room for points.size() + kCollectSlack elements.
std::size_t collectInside(std::span<const Eagle::PhysicalSpace::point> points,
                          const TileBounds& bounds, std::uint32_t firstIndex,
                          std::uint32_t* indices);

}  // namespace LidarLib
