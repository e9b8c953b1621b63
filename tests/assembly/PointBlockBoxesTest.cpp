// SPDX-License-Identifier: Apache-2.0

#include "assembly/PointBlockBoxes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <latch>
#include <limits>
#include <thread>

#include "tests/assembly/PlainSelection.hpp"

namespace LidarLib {
namespace {

using namespace TestSupport;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kBlock = Fiber::kBlockPoints;

const Eagle::BoundingBox kTile({0, 0, 0}, {10, 10, 10});
const Index3 kInner{{1, 1, 1}};

BlockRelation relation(const Point& min, const Point& max, const Index3& index = kInner,
                       bool hasNaN = false) {
  return relationOf({min, max, hasNaN}, TileBounds(kTile, index));
}

TEST(BlockRelation, BlockWithinTheFacesIsInside) {
  EXPECT_EQ(relation({1, 1, 1}, {9, 9, 9}), BlockRelation::Inside);
  EXPECT_EQ(relation({1, 1, 1}, {10, 10, 10}), BlockRelation::Inside);
}

TEST(BlockRelation, BlockOnTheLowerFaceIsInsideForIndexZeroAlone) {
  EXPECT_EQ(relation({0, 0, 0}, {9, 9, 9}, Index3{{0, 0, 0}}), BlockRelation::Inside);
  EXPECT_EQ(relation({0, 1, 1}, {9, 9, 9}), BlockRelation::Mixed);
  EXPECT_EQ(relation({1, 1, 0}, {9, 9, 9}, Index3{{0, 0, 4}}), BlockRelation::Mixed);
}

TEST(BlockRelation, BlockEndingOnTheLowerFaceIsOutsideUnlessIndexZero) {
  EXPECT_EQ(relation({-5, 1, 1}, {0, 9, 9}), BlockRelation::Outside);
  EXPECT_EQ(relation({-5, 1, 1}, {0, 9, 9}, Index3{{0, 1, 1}}), BlockRelation::Mixed);
}

TEST(BlockRelation, BlockBeginningOnTheUpperFaceIsMixedAndAboveItOutside) {
  EXPECT_EQ(relation({1, 10, 1}, {9, 12, 9}), BlockRelation::Mixed);
  EXPECT_EQ(relation({1, 10.001, 1}, {9, 12, 9}), BlockRelation::Outside);
}

TEST(BlockRelation, BlockWithNaNIsNeverInside) {
  EXPECT_EQ(relation({1, 1, 1}, {9, 9, 9}, kInner, true), BlockRelation::Mixed);
}

TEST(BlockRelation, BlockWithoutAnyNumberOnAnAxisIsOutside) {
  EXPECT_EQ(relation({1, kInfinity, 1}, {9, -kInfinity, 9}, kInner, true), BlockRelation::Outside);
}

TEST(PointBlockBoxes, OneBoxPerBlockTheLastOneShorter) {
  std::vector<Point> points(2 * kBlock + 1, Point{2, 0, 0});
  std::fill_n(points.begin(), 2 * kBlock, Point{1, 0, 0});
  std::fill_n(points.begin(), kBlock, Point{0, 0, 0});
  points[kBlock + 3].z = kNaN;
  PointBlockBoxes table;
  const auto boxes = table.boxes(points);
  ASSERT_EQ(boxes.size(), 3U);
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_EQ(boxes[b].min.x, static_cast<double>(b));
    EXPECT_EQ(boxes[b].max.x, static_cast<double>(b));
    EXPECT_EQ(boxes[b].hasNaN, b == 1);
  }
}

TEST(PointBlockBoxes, ComputedOnceAndKept) {
  std::vector<Point> points(kBlock, Point{1, 1, 1});
  PointBlockBoxes table;
  const PointBox* first = table.boxes(points).data();
  points[0].x = 99;
  EXPECT_EQ(table.boxes(points).data(), first);
  EXPECT_EQ(table.boxes(points)[0].max.x, 1.0);
}

TEST(PointBlockBoxes, AnArrayKeepsTheTableItHas) {
  const auto points = positionsOf({{1, 2, 3}});
  PointBlockBoxes::attachTo(*points);
  const auto table = points->findInterface<PointBlockBoxes>();
  ASSERT_TRUE(table);
  PointBlockBoxes::attachTo(*points);
  EXPECT_EQ(points->findInterface<PointBlockBoxes>(), table);
}

TEST(PointBlockBoxes, FirstUsesMayCoincide) {
  std::vector<Point> cloud(40 * kBlock);
  for (std::size_t i = 0; i < cloud.size(); ++i) cloud[i].y = static_cast<double>(i);
  for (int repetition = 0; repetition < 20; ++repetition) {
    const auto points = positionsOf(cloud);
    std::vector<double> highest(8);
    std::latch start(static_cast<std::ptrdiff_t>(highest.size()));
    std::vector<std::thread> threads;
    for (double& result : highest) {
      threads.emplace_back([&points, &result, &start] {
        start.arrive_and_wait();
        PointBlockBoxes::attachTo(*points);
        const auto table = points->findInterface<PointBlockBoxes>();
        result = table->boxes(std::as_const(*points).span()).back().max.y;
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(highest, std::vector<double>(8, static_cast<double>(cloud.size() - 1)));
  }
}

}  // namespace
}  // namespace LidarLib
