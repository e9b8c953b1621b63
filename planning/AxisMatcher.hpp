// SPDX-License-Identifier: Apache-2.0
//
// AxisMatcher: which tiles a box touches along one axis, found by bisection with the very
// comparison that defines touching.

#pragma once

#include <array>
#include <cmath>
#include <cstdint>

#include "planning/TilingLayout.hpp"

namespace LidarLib {

/// Half-open.
struct IndexRange {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

/// The first index below `count` that fulfils a condition which, once true, stays true; `count`
/// when none does.
template <class Condition>
std::uint64_t firstIndex(std::uint64_t count, const Condition& holds) {
  IndexRange open{0, count};
  while (open.begin < open.end) {
    const std::uint64_t middle = open.begin + (open.end - open.begin) / 2;
    if (holds(middle)) {
      open.end = middle;
    } else {
      open.begin = middle + 1;
    }
  }
  return open.begin;
}

/// Which tiles a box touches along one axis. Range: closed, so that what shares a face touches.
/// NaN touches everything.
class AxisMatcher {
 public:
  AxisMatcher(const TilingLayout& layout, std::size_t axis, double normalizedOverlap,
              double tolerance)
      : layout_(layout),
        axis_(axis),
        count_(std::array{layout.nx, layout.ny, layout.nz}[axis]),
        normalizedOverlap_(normalizedOverlap),
        tolerance_(tolerance) {
    // Each rounding step is monotonic, so these hold for the rounded faces too.
    const double length = layout.fragmentLength[axis];
    facesAscend_ = count_ == 1 || (length >= 0.0 && std::isfinite(length) &&
                                   std::isfinite(layout.globalBox->min()[axis]));
  }

  std::uint64_t count() const { return count_; }
  /// Whether candidates() holds just the tiles that a box touches.
  bool facesAscend() const { return facesAscend_; }

  /// A range of tiles outside of which the box touches none.
  IndexRange candidates(const Eagle::BoundingBox& box) const {
    if (!facesAscend_) return {0, count_};
    return {firstIndex(count_, [&](std::uint64_t q) { return !endsBefore(q, box); }),
            firstIndex(count_, [&](std::uint64_t q) { return beginsAfter(q, box); })};
  }
  /// Whether the box touches one of its candidates. Bisection leaves no doubt about that.
  bool confirms(std::uint64_t q, const Eagle::BoundingBox& box) const {
    return facesAscend_ || (!endsBefore(q, box) && !beginsAfter(q, box));
  }

 private:
  AxisInterval tile(std::uint64_t q) const {
    return tileInterval(layout_, axis_, q, normalizedOverlap_);
  }
  bool endsBefore(std::uint64_t q, const Eagle::BoundingBox& box) const {
    return tile(q).max + tolerance_ < box.min()[axis_];
  }
  bool beginsAfter(std::uint64_t q, const Eagle::BoundingBox& box) const {
    return box.max()[axis_] < tile(q).min - tolerance_;
  }

  const TilingLayout& layout_;
  std::size_t axis_;
  std::uint64_t count_;
  double normalizedOverlap_;
  double tolerance_;
  bool facesAscend_;
};

}  // namespace LidarLib
