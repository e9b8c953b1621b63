// SPDX-License-Identifier: Apache-2.0

#include "datamodel/eagle/BoundingBox.hpp"

#include <gtest/gtest.h>

namespace Eagle {
namespace {

using Point = PhysicalSpace::point;

TEST(BoundingBox, KeepsCornersAndBall) {
  const BoundingBox box({0, 0, 0}, {2, 4, 4});
  EXPECT_EQ(box.min(), (Point{0, 0, 0}));
  EXPECT_EQ(box.max(), (Point{2, 4, 4}));
  EXPECT_EQ(box.diagonal(), (FixedArray<double, 3>{{2, 4, 4}}));
  EXPECT_EQ(box.ballCentre(), (Point{1, 2, 2}));
  EXPECT_DOUBLE_EQ(box.ballRadius(), 3.0);
}

TEST(BoundingBox, UpdateBallFollowsChangedCorners) {
  BoundingBox box({0, 0, 0}, {1, 1, 1});
  box.setMin({-3, 0, 0});
  box.setMax({3, 0, 0});
  box.updateBall();
  EXPECT_EQ(box.ballCentre(), (Point{0, 0, 0}));
  EXPECT_DOUBLE_EQ(box.ballRadius(), 3.0);
}

TEST(BoundingBox, ExpandHoldsBoth) {
  BoundingBox box({0, 0, 0}, {1, 1, 1});
  box.expand(BoundingBox({-1, 0.5, 0}, {0.5, 2, 1}));
  EXPECT_EQ(box.min(), (Point{-1, 0, 0}));
  EXPECT_EQ(box.max(), (Point{1, 2, 1}));
  EXPECT_EQ(box.ballCentre(), (Point{0, 1, 0.5}));
}

TEST(BoundingBox, TurnedBoxIsTakenAsGiven) {
  const BoundingBox box({1, 1, 1}, {0, 0, 0});
  EXPECT_EQ(box.diagonal(), (FixedArray<double, 3>{{-1, -1, -1}}));
}

TEST(BoundingBox, HangsOnAnObjectAsAnInterface) {
  MemCore::Intercube object;
  object.addInterface(MemCore::makeStrong<BoundingBox>(Point{0, 0, 0}, Point{1, 2, 3}));
  ASSERT_TRUE(object.findInterface<BoundingBox>());
  EXPECT_EQ(object.findInterface<BoundingBox>()->max(), (Point{1, 2, 3}));
}

}  // namespace
}  // namespace Eagle
