// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/GridPoints.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <new>
#include <random>

#include "tests/datamodel/fiber/TestCreator.hpp"
#include "tests/support/Seed.hpp"

namespace Fiber {
namespace {

constexpr CoordinateGrid kGrid{{{0.01, 202500.0}, {0.001, -4e6}, {1e-4, 0.0}}};

GridPoints somePoints(std::size_t count, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  GridPoints points;
  points.grid = kGrid;
  for (auto& column : points.columns) {
    for (std::size_t i = 0; i < count; ++i) {
      column.push_back(static_cast<std::int32_t>(random()));
    }
  }
  return points;
}

TEST(GridPoints, PointsAreNumberTimesScalePlusOffset) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  for (const std::size_t count : {0U, 1U, 1023U, 1024U, 1025U, 5000U}) {
    const GridPoints numbers = somePoints(count, seed + count);
    const auto points = pointsOf(numbers);
    ASSERT_EQ(points->count(), count);
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const volatile double product = numbers.columns[axis][i] * kGrid[axis].scale;
        ASSERT_EQ((*points)[i][axis], product + kGrid[axis].offset) << i << " " << axis;
      }
    }
  }
}

TEST(GridPoints, GridsAreTheSameBitByBit) {
  EXPECT_TRUE(isSameGrid(kGrid, kGrid));
  for (std::size_t axis = 0; axis < 3; ++axis) {
    CoordinateGrid other = kGrid;
    other[axis].scale = std::nextafter(other[axis].scale, 1.0);
    EXPECT_FALSE(isSameGrid(kGrid, other));
    other = kGrid;
    other[axis].offset = -other[axis].offset;  // also of zero
    EXPECT_FALSE(isSameGrid(kGrid, other));
  }
  CoordinateGrid useless = kGrid;
  useless[0].scale = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(isSameGrid(useless, useless));
}

TEST(GridPoints, CreatorsHaveNoneUnlessTheyKnowBetter) {
  const auto creator = makerOf<Point>({{1, 2, 3}});
  EXPECT_FALSE(bool(creator->gridPoints(kGrid)));
  EXPECT_EQ(creator->timesMade(), 0);
  EXPECT_EQ(creator->failure(), "");
}

/// Has no memory for whole numbers.
class GreedyCreator final : public CreativeArrayBase {
 public:
  GreedyCreator() : CreativeArrayBase({}) {}

 protected:
  MadeData create() override { return arrayOf<Point>({{1, 2, 3}}); }
  GridPointsHandle createGridPoints(const CoordinateGrid& /*grid*/) override {
    throw std::bad_alloc();
  }
};

TEST(GridPoints, OfFailuresDataTell) {
  const auto creator = MemCore::makeStrong<GreedyCreator>();
  EXPECT_FALSE(bool(creator->gridPoints(kGrid)));
  EXPECT_EQ(creator->failure(), "");
  EXPECT_TRUE(bool(creator->data()));
}

/// Has whole numbers whenever it is asked.
class EagerCreator final : public CreativeArrayBase {
 public:
  EagerCreator() : CreativeArrayBase({}) {}

 protected:
  MadeData create() override { return arrayOf<Point>({{1, 2, 3}}); }
  GridPointsHandle createGridPoints(const CoordinateGrid& /*grid*/) override {
    return MemCore::makeStrong<GridPoints>(somePoints(1, 1));
  }
};

// They may have been changed.
TEST(GridPoints, DataInMemoryComeFirst) {
  const auto creator = MemCore::makeStrong<EagerCreator>();
  EXPECT_TRUE(bool(creator->gridPoints(kGrid)));
  const auto data = creator->data();
  EXPECT_FALSE(bool(creator->gridPoints(kGrid)));
}

}  // namespace
}  // namespace Fiber
