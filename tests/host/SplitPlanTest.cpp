// SPDX-License-Identifier: Apache-2.0

#include "host/SplitPlan.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/LengthChoice.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

SplitPlan planFor(const Fiber::BundlePtr& bundle, const TilingOptions& tiling,
                  LidarLib::RefragmentAndSplit& operation, const FilterOptions& filters = {}) {
  applyOptions(tiling, filters, operation);
  const auto grids = selectGrids(*bundle, filters);
  return makePlan(*grids, tiling, operation);
}

SplitPlan planFor(const Fiber::BundlePtr& bundle, const TilingOptions& tiling) {
  LidarLib::RefragmentAndSplit operation;
  return planFor(bundle, tiling, operation);
}

TilingOptions lengthOf(double x, double y, double z) {
  TilingOptions tiling;
  tiling.fragmentLength = {{x, y, z}};
  return tiling;
}

TEST(SplitPlan, GivenLengthIsUsedAsItIs) {
  const auto bundle = CloudBuilder().fragment({{0, 0, 0}, {95, 45, 10}}).bundle();
  const SplitPlan plan = planFor(bundle, lengthOf(10, 20, 0));
  ASSERT_EQ(plan.grids.size(), 1U);
  EXPECT_EQ(plan.failure(), "");
  EXPECT_EQ(plan.grids[0].pointCount, 2U);
  EXPECT_EQ(plan.grids[0].tileCount(), 30U);
  EXPECT_EQ(plan.grids[0].layout.fragmentLength[2], 10.0);
  EXPECT_THAT(plan.notes, IsEmpty());
  EXPECT_THAT(plan.warnings, IsEmpty());
}

TEST(SplitPlan, PointsPerTileSettleTheLength) {
  std::vector<LidarLib::TestSupport::Point> points;
  for (int i = 0; i < 100; ++i) {
    for (int j = 0; j < 100; ++j) points.push_back({i * 100.0 / 99, j * 100.0 / 99, 0});
  }
  TilingOptions tiling;
  tiling.pointsPerTile = 100;
  LidarLib::RefragmentAndSplit operation;
  const SplitPlan plan = planFor(CloudBuilder().fragment(points).bundle(), tiling, operation);
  EXPECT_EQ(operation.FragmentLength[0], 10.0);
  EXPECT_EQ(plan.grids[0].tileCount(), 100U);
}

TEST(SplitPlan, LengthIsRaisedWhereRoundingLosesTheLastFace) {
  // Found by search: 3 x (max - min) / 3 + min is below max.
  double min = 0.0;
  double max = 0.0;
  for (int i = 1; i < 100000 && max == 0.0; ++i) {
    const double a = i * 0.1;
    const double b = a + i * 0.7;
    if (!coversAxis({a, b, 3, (b - a) / 3})) {
      min = a;
      max = b;
    }
  }
  ASSERT_NE(max, 0.0);
  LidarLib::RefragmentAndSplit operation;
  const auto bundle = CloudBuilder().fragment({{min, 0, 0}, {max, 1, 0}}).bundle();
  const double given = (max - min) / 3;
  const SplitPlan plan = planFor(bundle, lengthOf(given, 1, 0), operation);
  EXPECT_GT(operation.FragmentLength[0], given);
  EXPECT_LT(operation.FragmentLength[0], given * 1.000001);
  EXPECT_GE(plan.grids[0].layout.tiledBox->max().x, max);
  EXPECT_EQ(plan.grids[0].layout.nx, 3U);
  EXPECT_THAT(plan.notes, ElementsAre(HasSubstr("tile length along x raised")));
}

TEST(SplitPlan, SpanningLengthIsRaisedQuietly) {
  double min = 0.0;
  double max = 0.0;
  // The far corner has more digits behind the point than the edge can hold.
  for (int i = 1; i < 1000 && max == 0.0; ++i) {
    const double a = -1000.0 - i * 0.1;
    const double b = i * 0.1 + 0.03;
    if (!coversAxis({a, b, 1, b - a})) {
      min = a;
      max = b;
    }
  }
  ASSERT_NE(max, 0.0);
  const auto bundle = CloudBuilder().fragment({{0, 0, min}, {10, 10, max}}).bundle();
  const SplitPlan plan = planFor(bundle, lengthOf(5, 5, 0));
  EXPECT_GE(plan.grids[0].layout.tiledBox->max().z, max);
  EXPECT_EQ(plan.grids[0].layout.nz, 1U);
  EXPECT_THAT(plan.notes, IsEmpty());
  EXPECT_THAT(plan.details, ElementsAre(HasSubstr("tile length along z raised")));
}

TEST(SplitPlan, PointsOutsideAGivenBoxAreCounted) {
  const auto bundle =
      CloudBuilder().fragment({{0, 0, 0}, {5, 5, 5}, {50, 50, 5}, {-7, 0, 0}}).bundle();
  TilingOptions tiling = lengthOf(10, 10, 0);
  tiling.start = {0.0, 0.0, 0.0};
  tiling.end = {10.0, 10.0, 10.0};
  const SplitPlan plan = planFor(bundle, tiling);
  EXPECT_EQ(plan.grids[0].outsidePoints, 2U);
  EXPECT_THAT(plan.notes, ElementsAre(HasSubstr("2 points outside the tiles are left out")));
}

TEST(SplitPlan, BoxBeyondTheCloudIsExplained) {
  TilingOptions tiling = lengthOf(10, 10, 0);
  tiling.start = {0.0, 0.0, 500.0};
  const SplitPlan plan = planFor(CloudBuilder().fragment({{0, 0, 0}, {1, 1, 1}}).bundle(), tiling);
  EXPECT_THAT(plan.failure(), HasSubstr("--start lies beyond the cloud"));
}

TEST(SplitPlan, TooManyTilesAreRefused) {
  const auto bundle = CloudBuilder().fragment({{0, 0, 0}, {1e6, 1e6, 1}}).bundle();
  EXPECT_THAT(planFor(bundle, lengthOf(1, 1, 0)).failure(), HasSubstr("over 50 Million"));
}

TEST(SplitPlan, TilesBeyondTheMachinesMemoryAreRefused) {
  EXPECT_EQ(memoryShortage(1000, 1'000'000), "");
  EXPECT_EQ(memoryShortage(50'000'000, 8'000'000'000),
            "50,000,000 tiles need about 14.0 GB of memory to plan, found 8.0 GB; give longer "
            "--fragment-length");
}

TEST(SplitPlan, SparseCloudIsWarnedOf) {
  const auto bundle = CloudBuilder().fragment({{0, 0, 0}, {1e4, 1e4, 1}}).bundle();
  const SplitPlan plan = planFor(bundle, TilingOptions());
  EXPECT_THAT(plan.warnings, ElementsAre(HasSubstr("--points-per-tile")));
  EXPECT_FALSE(plan.grids[0].layout.isEstimated);
}

TEST(SplitPlan, EmptyGridCannotBeSplit) {
  const auto bundle = CloudBuilder().fragment({}).bundle();
  EXPECT_EQ(planFor(bundle, lengthOf(1, 1, 0)).failure(), "grid points at time 0: no points");
}

TEST(SplitPlan, FieldFilterKeepsPositions) {
  LidarLib::RefragmentAndSplit operation;
  FilterOptions filters;
  filters.fields = {"GpsTime"};
  applyOptions(TilingOptions(), filters, operation);
  EXPECT_TRUE(operation.UseThisField("Positions"));
  EXPECT_TRUE(operation.UseThisField("GpsTime"));
  EXPECT_FALSE(operation.UseThisField("Intensity"));
}

TEST(SplitPlan, LengthSuitsEveryTime) {
  const auto bundle = CloudBuilder()
                          .time(0)
                          .fragment({{0, 0, 0}, {10, 10, 3}})
                          .time(1)
                          .fragment({{0, 0, 0}, {10, 10, 7.3}})
                          .bundle();
  const SplitPlan plan = planFor(bundle, lengthOf(5, 5, 0));
  ASSERT_EQ(plan.grids.size(), 2U);
  for (const GridForecast& grid : plan.grids) {
    EXPECT_EQ(grid.tileCount(), 4U);
    EXPECT_GE(grid.layout.tiledBox->max().z, grid.layout.globalBox->max().z);
  }
}

}  // namespace
}  // namespace Host
