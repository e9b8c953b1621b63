// SPDX-License-Identifier: Apache-2.0
//
// BoundingBox: an axis-aligned box with its enclosing sphere, attachable to fields and creators.

#pragma once

#include "datamodel/eagle/PhysicalSpace.hpp"
#include "datamodel/memcore/Intercube.hpp"

namespace Eagle {

/// Closed box from a minimum to a maximum corner. The corners are taken as given: a box whose
/// minimum lies above its maximum is the caller's to judge.
class FIBER_API BoundingBox : public MemCore::InterfaceBase {
 public:
  using point = PhysicalSpace::point;

  BoundingBox(const point& min, const point& max);

  const point& min() const { return min_; }
  const point& max() const { return max_; }
  /// Replace one corner; call updateBall() afterwards.
  void setMin(const point& min) { min_ = min; }
  void setMax(const point& max) { max_ = max; }
  /// Grows the box to hold another one; the sphere follows.
  void expand(const BoundingBox& other);
  /// max - min per axis.
  FixedArray<double, 3> diagonal() const;

  /// Recomputes the enclosing sphere from the corners.
  void updateBall();
  const point& ballCentre() const { return centre_; }
  double ballRadius() const { return radius_; }

 private:
  point min_;
  point max_;
  point centre_;
  double radius_ = 0.0;
};

}  // namespace Eagle
