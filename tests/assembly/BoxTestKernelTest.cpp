// SPDX-License-Identifier: Apache-2.0

#include "assembly/BoxTestKernel.hpp"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <limits>

#include "tests/assembly/PlainSelection.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib {
namespace {

using namespace TestSupport;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// Marks and expands; words of marks are dirty before.
std::vector<unsigned int> collect(const std::vector<Point>& points, const TileBounds& bounds,
                                  std::uint32_t firstIndex) {
  std::vector<std::uint64_t> marks(markWords(points.size()), ~std::uint64_t{0});
  const std::size_t marked = markInside(points, bounds, marks);
  std::vector<unsigned int> indices(marked + kExpandSlack);
  EXPECT_EQ(expandMarks(marks, firstIndex, indices.data()), marked);
  indices.resize(marked);
  return indices;
}

/// Coordinates of the points on one axis, NaN left out.
std::vector<double> numbersOf(const std::vector<Point>& points, std::size_t axis) {
  std::vector<double> numbers;
  for (const Point& p : points) {
    if (!std::isnan(p[axis])) numbers.push_back(p[axis]);
  }
  return numbers;
}

void expectBoxOf(const std::vector<Point>& points) {
  const PointBox box = boxOfPoints(points);
  bool hasNaN = false;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto numbers = numbersOf(points, axis);
    hasNaN = hasNaN || numbers.size() != points.size();
    double low = kInfinity;
    double high = -kInfinity;
    for (const double number : numbers) {
      low = std::min(low, number);
      high = std::max(high, number);
    }
    EXPECT_EQ(box.min[axis], low) << "axis " << axis << " of " << points.size() << " points";
    EXPECT_EQ(box.max[axis], high) << "axis " << axis << " of " << points.size() << " points";
  }
  EXPECT_EQ(box.hasNaN, hasNaN) << points.size() << " points";
}

/// Runs the tests once for every instruction set that this machine has.
class BoxTestKernel : public testing::TestWithParam<std::int64_t> {
 protected:
  void SetUp() override { use(GetParam()); }
  void TearDown() override { use(0); }

 private:
  static void use(std::int64_t targets) {
    hwy::SetSupportedTargetsForTest(targets);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }
};

TEST_P(BoxTestKernel, CollectsWhatThePlainTestCollects) {
  std::mt19937_64 random(testSeed());
  for (std::size_t count = 0; count < 300; ++count) {
    const auto box = nastyBox(random);
    const auto index = someIndex(random);
    const auto points = nastyCloud(random, count, box);
    EXPECT_EQ(collect(points, TileBounds(box, index), 0), selectPlainly(points, box, index))
        << count << " points";
  }
}

TEST_P(BoxTestKernel, CountsFromTheFirstIndex) {
  const std::vector<Point> points(21, Point{1, 1, 1});
  const TileBounds bounds(Eagle::BoundingBox({0, 0, 0}, {2, 2, 2}), Index3{{1, 1, 1}});
  const auto indices = collect(points, bounds, 0xFFFFFFF0U);
  ASSERT_EQ(indices.size(), 21U);
  EXPECT_EQ(indices.front(), 0xFFFFFFF0U);
  EXPECT_EQ(indices[15], 0xFFFFFFFFU);
}

TEST_P(BoxTestKernel, BoxOfPointsIsThatOfThePlainLoop) {
  std::mt19937_64 random(testSeed());
  const Eagle::BoundingBox box({-1, -1, -1}, {1, 1, 1});
  for (std::size_t count = 0; count < 150; ++count) expectBoxOf(nastyCloud(random, count, box));
}

TEST_P(BoxTestKernel, BoxOfPointsKeepsTheAxesApart) {
  for (std::size_t count = 1; count < 40; ++count) {
    std::vector<Point> points;
    for (std::size_t i = 0; i < count; ++i) {
      const auto step = static_cast<double>(i);
      points.push_back({step, 1000 + step, -1000 - step});
    }
    expectBoxOf(points);
  }
}

TEST_P(BoxTestKernel, BoxOfPointsNotesANaNInEveryPlace) {
  for (std::size_t place = 0; place < 3 * 19; ++place) {
    std::vector<Point> points(19, Point{1, 2, 3});
    EXPECT_FALSE(boxOfPoints(points).hasNaN);
    points[place / 3][place % 3] = kNaN;
    EXPECT_TRUE(boxOfPoints(points).hasNaN) << "place " << place;
    expectBoxOf(points);
  }
}

TEST_P(BoxTestKernel, BoxOfAnAxisOfNaNAloneIsEmptyThere) {
  const PointBox box = boxOfPoints(std::vector<Point>(9, Point{1, kNaN, 3}));
  EXPECT_EQ(box.min.y, kInfinity);
  EXPECT_EQ(box.max.y, -kInfinity);
  EXPECT_EQ(box.max.z, 3.0);
}

std::string nameOfTarget(const testing::TestParamInfo<std::int64_t>& target) {
  return hwy::TargetName(target.param);
}

INSTANTIATE_TEST_SUITE_P(EveryInstructionSet, BoxTestKernel,
                         testing::ValuesIn(hwy::SupportedAndGeneratedTargets()), nameOfTarget);

TEST(TileBounds, LowerFaceBelongsToIndexZeroAlone) {
  const Eagle::BoundingBox box({1, 2, 3}, {4, 5, 6});
  const TileBounds first(box, Index3{{0, 0, 0}});
  const TileBounds later(box, Index3{{1, 1, 1}});
  EXPECT_TRUE(first.contains({1, 2, 3}));
  EXPECT_FALSE(later.contains({1, 5, 6}));
  EXPECT_FALSE(later.contains({4, 2, 6}));
  EXPECT_FALSE(later.contains({4, 5, 3}));
  EXPECT_TRUE(later.contains({4, 5, 6}));
}

TEST(TileBounds, ANaNUpperCornerBoundsNothing) {
  const TileBounds bounds(Eagle::BoundingBox({0, 0, 0}, {kNaN, 1, 1}), Index3{{1, 1, 1}});
  EXPECT_TRUE(bounds.contains({kInfinity, 1, 1}));
  EXPECT_FALSE(bounds.contains({kNaN, 1, 1}));
}

}  // namespace
}  // namespace LidarLib
