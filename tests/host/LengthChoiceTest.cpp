// SPDX-License-Identifier: Apache-2.0

#include "host/LengthChoice.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/support/Seed.hpp"

namespace Host {
namespace {

Eagle::BoundingBox boxOf(double width, double depth) {
  return Eagle::BoundingBox({10.0, 20.0, 0.0}, {10.0 + width, 20.0 + depth, 5.0});
}

TEST(LengthChoice, TileHoldsItsShareOfTheArea) {
  EXPECT_DOUBLE_EQ(lengthForPointsPerTile(boxOf(1000.0, 1000.0), 1000000, 10000), 100.0);
  // sqrt(1000 * 500 * 0.01) = 70.71
  EXPECT_DOUBLE_EQ(lengthForPointsPerTile(boxOf(1000.0, 500.0), 1000000, 10000), 70.7);
}

TEST(LengthChoice, DegreesWorkAsWellAsMetres) {
  EXPECT_NEAR(lengthForPointsPerTile(boxOf(0.01, 0.01), 10000, 100), 0.001, 1e-9);
}

TEST(LengthChoice, LineIsCutAlongItself) {
  EXPECT_DOUBLE_EQ(lengthForPointsPerTile(boxOf(100.0, 0.0), 1000, 10), 1.0);
}

TEST(LengthChoice, NothingToCutGivesNoLength) {
  EXPECT_EQ(lengthForPointsPerTile(boxOf(0.0, 0.0), 1000, 10), 0.0);
  EXPECT_EQ(lengthForPointsPerTile(boxOf(10.0, 10.0), 0, 10), 0.0);
}

TEST(LengthChoice, CoveredAxisKeepsItsLength) {
  EXPECT_EQ(coveringLength({0.0, 100.0, 2, 50.0}), 50.0);
  EXPECT_EQ(coveringLength({0.0, 90.0, 2, 50.0}), 50.0);
}

TEST(LengthChoice, ShortAxisIsRaisedByTheSmallestStep) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  std::uniform_real_distribution<double> place(-10.0, 10.0);
  std::uniform_real_distribution<double> extent(1.0, 1e3);
  int raised = 0;
  for (int i = 0; i < 20000; ++i) {
    const double min = place(random);
    const double max = min + extent(random);
    const auto count = static_cast<std::uint64_t>(1 + random() % 50);
    TiledAxis axis{min, max, count, (max - min) / static_cast<double>(count)};
    const double given = axis.length;
    axis.length = coveringLength(axis);
    ASSERT_TRUE(coversAxis(axis)) << min << " " << max << " " << count;
    if (axis.length == given) continue;
    ++raised;
    axis.length = std::nextafter(axis.length, 0.0);
    ASSERT_FALSE(coversAxis(axis)) << "a smaller length would do: " << min << " " << max;
  }
  EXPECT_GT(raised, 100) << "rounding never left a face short: the test has lost its subject";
}

}  // namespace
}  // namespace Host
