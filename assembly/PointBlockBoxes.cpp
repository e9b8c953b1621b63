// SPDX-License-Identifier: Apache-2.0

#include "assembly/PointBlockBoxes.hpp"

#include <algorithm>

namespace LidarLib {

using Eagle::PhysicalSpace;

BlockRelation relationOf(const PointBox& box, const TileBounds& bounds) {
  bool isInside = !box.hasNaN;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (!bounds.isAboveLower(box.max[axis], axis) || box.min[axis] > bounds.max[axis]) {
      return BlockRelation::Outside;
    }
    isInside =
        isInside && bounds.isAboveLower(box.min[axis], axis) && !(box.max[axis] > bounds.max[axis]);
  }
  return isInside ? BlockRelation::Inside : BlockRelation::Mixed;
}

void PointBlockBoxes::attachTo(Fiber::MemBase& points) {
  // Two threads may both find nothing and attach a table each; the later one stays, the other
  // serves whoever holds it. Only the computation is dear, and it comes after this moment.
  if (!points.findInterface<PointBlockBoxes>()) {
    points.addInterface(MemCore::makeStrong<PointBlockBoxes>());
  }
}

std::span<const PointBox> PointBlockBoxes::boxes(std::span<const PhysicalSpace::point> points) {
  const std::lock_guard lock(mutex_);
  if (!isComputed_) {
    boxes_.reserve(Fiber::blockCount(points.size()));
    for (std::size_t first = 0; first < points.size(); first += Fiber::kBlockPoints) {
      const std::size_t count = std::min(Fiber::kBlockPoints, points.size() - first);
      boxes_.push_back(boxOfPoints(points.subspan(first, count)));
    }
    isComputed_ = true;
  }
  return boxes_;
}

}  // namespace LidarLib
