// SPDX-License-Identifier: Apache-2.0

#include "datamodel/eagle/PhysicalSpace.hpp"

#include <gtest/gtest.h>

#include <type_traits>

namespace Eagle {
namespace {

TEST(Point, IndexNamesItsCoordinates) {
  PhysicalSpace::point p{1.0, 2.0, 3.0};
  EXPECT_EQ(p[0], p.x);
  EXPECT_EQ(p[1], p.y);
  EXPECT_EQ(p[2], p.z);
  p[1] = 7.0;
  EXPECT_EQ(p, (PhysicalSpace::point{1.0, 7.0, 3.0}));
}

TEST(Point, IsThreeDoublesInARow) {
  static_assert(std::is_trivially_copyable_v<PhysicalSpace::point>);
  const PhysicalSpace::point p[2] = {{1, 2, 3}, {4, 5, 6}};
  EXPECT_EQ(&p[1].x - &p[0].x, 3);
}

TEST(FixedArray, StartsAtZeroAndComparesByValue) {
  FixedArray<double, 3> vector;
  EXPECT_EQ(vector, (FixedArray<double, 3>{{0.0, 0.0, 0.0}}));
  vector[2] = 1.5;
  EXPECT_FALSE(vector == (FixedArray<double, 3>{}));
}

}  // namespace
}  // namespace Eagle
