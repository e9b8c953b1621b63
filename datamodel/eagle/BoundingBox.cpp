// SPDX-License-Identifier: Apache-2.0

#include "datamodel/eagle/BoundingBox.hpp"

#include <algorithm>
#include <cmath>

namespace Eagle {

BoundingBox::BoundingBox(const point& min, const point& max) : min_(min), max_(max) {
  updateBall();
}

void BoundingBox::expand(const BoundingBox& other) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    min_[axis] = std::min(min_[axis], other.min_[axis]);
    max_[axis] = std::max(max_[axis], other.max_[axis]);
  }
  updateBall();
}

FixedArray<double, 3> BoundingBox::diagonal() const {
  return {{max_.x - min_.x, max_.y - min_.y, max_.z - min_.z}};
}

void BoundingBox::updateBall() {
  const auto edge = diagonal();
  centre_ = {min_.x + edge[0] / 2, min_.y + edge[1] / 2, min_.z + edge[2] / 2};
  radius_ = std::hypot(edge[0], edge[1], edge[2]) / 2;
}

}  // namespace Eagle
