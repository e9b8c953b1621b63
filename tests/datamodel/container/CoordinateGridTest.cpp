// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/CoordinateGrid.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace Fiber::Container {
namespace {

struct Columns {
  explicit Columns(std::size_t count) : x(count), y(count), z(count) {}
  std::array<std::span<std::int32_t>, 3> spans() { return {x, y, z}; }
  std::vector<std::int32_t> x, y, z;
};

bool sameBits(std::span<const double> a, std::span<const double> b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](double u, double v) {
    return std::bit_cast<std::uint64_t>(u) == std::bit_cast<std::uint64_t>(v);
  });
}

/// Points of random grid integers; the compiler must not fuse the two steps here either.
std::vector<double> gridPoints(const CoordinateGrid& grid, std::size_t count, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::uniform_int_distribution<std::int32_t> integers(-2147483647 - 1, 2147483647);
  std::vector<double> xyz(3 * count);
  for (std::size_t i = 0; i < xyz.size(); ++i) {
    const volatile double product = integers(random) * grid[i % 3].scale;
    xyz[i] = product + grid[i % 3].offset;
  }
  return xyz;
}

/// Encodes; on success also decodes and demands the identical doubles.
bool roundTrips(const std::vector<double>& xyz, const CoordinateGrid& grid) {
  Columns columns(xyz.size() / 3);
  if (!encodeOnGrid(xyz, grid, columns.spans())) return false;
  std::vector<double> back(xyz.size());
  for (std::size_t axis = 0; axis < 3; ++axis) {
    decodeFromGrid(columns.spans()[axis], grid[axis], axis, back);
  }
  EXPECT_TRUE(sameBits(back, xyz));
  return true;
}

const std::vector<CoordinateGrid>& surveyGrids() {
  static const std::vector<CoordinateGrid> grids = {
      {{{0.01, 202500}, {0.01, 2184500}, {0.01, 1331}}},
      {{{0.001, 33367947}, {0.001, 5809305}, {0.001, 64}}},
      {{{1e-7, 0}, {1e-7, 0}, {0.01, 0}}},
      {{{1.16451e-06, 1692500.352}, {1.16451e-06, 1817499.596}, {1.00314e-06, 7350.195}}},
      {{{0.00025, 515384.823}, {0.00025, 4918360.744}, {0.00025, 2330.736}}},
      {{{0.5, -3}, {1000, 0.125}, {1, 0}}}};
  return grids;
}

TEST(CoordinateGrid, ValuesOfAGridReturnBitForBit) {
  for (std::size_t g = 0; g < surveyGrids().size(); ++g) {
    for (const std::size_t count : {0U, 1U, 5U, 2048U, 10007U}) {
      EXPECT_TRUE(roundTrips(gridPoints(surveyGrids()[g], count, g), surveyGrids()[g])) << g;
    }
  }
}

TEST(CoordinateGrid, OneForeignValueAnywhereIsNoticed) {
  const CoordinateGrid& grid = surveyGrids()[0];
  const std::vector<double> good = gridPoints(grid, 5000, 11);
  std::mt19937_64 random(12);
  const double foreign[] = {std::numeric_limits<double>::quiet_NaN(),
                            std::numeric_limits<double>::infinity(),
                            -std::numeric_limits<double>::infinity(),
                            1e300,
                            202500.001,
                            1e9,
                            -1e12,
                            std::numeric_limits<double>::denorm_min()};
  for (int round = 0; round < 200; ++round) {
    std::vector<double> bad = good;
    const std::size_t at = random() % bad.size();
    bad[at] = foreign[random() % std::size(foreign)];
    EXPECT_FALSE(roundTrips(bad, grid)) << "index " << at << " value " << bad[at];
  }
}

TEST(CoordinateGrid, NeighbouringDoubleIsNotOnTheGrid) {
  const CoordinateGrid& grid = surveyGrids()[1];
  std::vector<double> points = gridPoints(grid, 100, 13);
  for (const std::size_t i : {0U, 1U, 2U, 297U, 299U}) {
    std::vector<double> bad = points;
    bad[i] = std::nextafter(bad[i], 1e300);
    EXPECT_FALSE(roundTrips(bad, grid)) << i;
  }
}

TEST(CoordinateGrid, NegativeZeroIsNotTheSameAsZero) {
  const CoordinateGrid grid = {{{0.01, 0}, {0.01, 0}, {0.01, 0}}};
  EXPECT_TRUE(roundTrips({0.0, 0.0, 0.0}, grid));
  EXPECT_FALSE(roundTrips({0.0, -0.0, 0.0}, grid));
}

TEST(CoordinateGrid, TheWholeRangeOf32BitsAndNotOneMore) {
  const CoordinateGrid grid = {{{1, 0}, {1, 0}, {1, 0}}};
  EXPECT_TRUE(roundTrips({2147483647.0, -2147483648.0, 0.0}, grid));
  EXPECT_FALSE(roundTrips({2147483648.0, 0.0, 0.0}, grid));
  EXPECT_FALSE(roundTrips({0.0, -2147483649.0, 0.0}, grid));
}

TEST(CoordinateGrid, UselessGridsAreRefusedNotTrusted) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  for (const AxisGrid useless : {AxisGrid{0, 0}, AxisGrid{nan, 0}, AxisGrid{inf, 0},
                                 AxisGrid{0.01, nan}, AxisGrid{0.01, inf}, AxisGrid{5e-324, 0}}) {
    EXPECT_FALSE(roundTrips({12.34, 12.34, 12.34}, {useless, useless, useless}));
  }
}

TEST(CoordinateGrid, HintIsTakenWhenItHolds) {
  for (const CoordinateGrid& grid : surveyGrids()) {
    const auto found = findGrid(gridPoints(grid, 3000, 14), grid);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(*found, grid);
  }
}

TEST(CoordinateGrid, UsualGridsAreFoundWithoutOrDespiteAHint) {
  std::mt19937_64 random(15);
  std::vector<double> xyz;
  for (int i = 0; i < 4000; ++i) {
    const volatile double x = static_cast<double>(random() % 100000) * 0.01;
    xyz.push_back(x + 202000);
    xyz.push_back(static_cast<double>(2147000000 + random() % 400000) * 0.001);
    xyz.push_back(-static_cast<double>(random() % 5000000) * 0.0001 + 0.0);
  }
  const CoordinateGrid wrongHint = {{{1, 0}, {1, 0}, {1, 0}}};
  for (const auto& hint : {std::optional<CoordinateGrid>(), std::optional(wrongHint)}) {
    const auto found = findGrid(xyz, hint);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ((*found)[0].scale, 0.01);
    EXPECT_EQ((*found)[1].scale, 0.001);
    EXPECT_EQ((*found)[2].scale, 0.0001);
    EXPECT_TRUE(roundTrips(xyz, *found));
  }
}

TEST(CoordinateGrid, NoGridForRotatedOrUnusablePoints) {
  std::vector<double> rotated = gridPoints(surveyGrids()[0], 1000, 16);
  for (std::size_t i = 0; i < rotated.size(); i += 3) {
    const double x = rotated[i];
    rotated[i] = x * std::cos(0.3) - rotated[i + 1] * std::sin(0.3);
    rotated[i + 1] = x * std::sin(0.3) + rotated[i + 1] * std::cos(0.3);
  }
  EXPECT_FALSE(findGrid(rotated, std::nullopt).has_value());
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(findGrid(std::vector<double>{nan, 1, 2}, std::nullopt).has_value());
  EXPECT_FALSE(findGrid(std::vector<double>{1, 1e300, 2, 3, 4, 5}, std::nullopt).has_value());
}

TEST(CoordinateGrid, NoPointsFollowTheHint) {
  EXPECT_FALSE(findGrid({}, std::nullopt).has_value());
  EXPECT_EQ(findGrid({}, surveyGrids()[2]), surveyGrids()[2]);
}

}  // namespace
}  // namespace Fiber::Container
