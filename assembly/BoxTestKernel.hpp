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

/// What belongs to a tile. Range: per axis (min, max], and [min, max] for tiles of index 0 along
/// it. NaN coordinates never belong; a NaN in the box compares as written.
struct TileBounds {
  /// The lower face belongs to tiles of index 0 along the axis.
  TileBounds(const Eagle::BoundingBox& box, const Fiber::MultiIndex<3>& index);

  /// The lowest coordinate that belongs: that of the lower face, or the next number above it. NaN
  /// where nothing lies above the face.
  Eagle::PhysicalSpace::point low;
  Eagle::PhysicalSpace::point max;

  bool isAboveLower(double value, std::size_t axis) const { return value >= low[axis]; }
  bool contains(const Eagle::PhysicalSpace::point& p) const {
    return p.x >= low.x && !(p.x > max.x) && p.y >= low.y && !(p.y > max.y) && p.z >= low.z &&
           !(p.z > max.z);
  }
};

using Fiber::PointBox;

/// The box of a run of points.
PointBox boxOfPoints(std::span<const Eagle::PhysicalSpace::point> points);

/// Words that the marks of so many points take.
constexpr std::size_t markWords(std::size_t pointCount) { return (pointCount + 63) / 64; }

/// Marks the points of a run that belong to the tile, bit i % 64 of word i / 64 for point i, clears
/// all other bits, and returns how many it has marked. Requires: markWords of room.
std::size_t markInside(std::span<const Eagle::PhysicalSpace::point> points,
                       const TileBounds& bounds, std::span<std::uint64_t> marks);

/// Elements beyond the indices that expandMarks may write and leaves unspecified.
inline constexpr std::size_t kExpandSlack = 16;

/// Writes firstIndex + i for every marked point i, ascending, and returns how many. Requires:
/// `indices` has room for that many and kExpandSlack elements.
std::size_t expandMarks(std::span<const std::uint64_t> marks, std::uint32_t firstIndex,
                        std::uint32_t* indices);

}  // namespace LidarLib
