// SPDX-License-Identifier: Apache-2.0

#include "planning/DensityEstimate.hpp"

#include <gtest/gtest.h>

#include "tests/planning/PlanningScene.hpp"
#include "tests/support/ConsoleCapture.hpp"

namespace LidarLib {

namespace {

using TestSupport::CloudBuilder;
using TestSupport::ConsoleCapture;
using TestSupport::makeBox;
using TestSupport::promisedPoints;

/// The density at which the estimate without waveforms is `length`.
double densityForLength(double length) { return 5000000.0 / (length * length); }

}  // namespace

TEST(DensityGrid, CellThatReceives300Holds44) {
  const auto box = makeBox({0, 0, 0}, {10, 10, 5});
  DensityGrid grid(*box);
  grid.addFragment(*box, 300.0 * 100.0);
  EXPECT_EQ(grid.cell(0, 0), 44);
  EXPECT_EQ(grid.cell(198, 198), 44);
  EXPECT_DOUBLE_EQ(grid.density(), 44.0);
}

TEST(DensityGrid, RangesAreHalfOpen) {
  DensityGrid grid(*makeBox({0, 0, 0}, {199, 199, 0}));
  grid.addFragment(*makeBox({10.5, 20.5, 0}, {12.5, 21.5, 0}), 2.0 * 7.0);
  EXPECT_EQ(grid.cell(10, 20), 7);
  EXPECT_EQ(grid.cell(11, 20), 7);
  EXPECT_EQ(grid.cell(12, 20), 0);
  EXPECT_EQ(grid.cell(10, 21), 0);
  EXPECT_EQ(grid.cell(9, 20), 0);
}

TEST(DensityGrid, LastCellIsNeverReached) {
  const auto box = makeBox({0, 0, 0}, {199, 199, 0});
  DensityGrid grid(*box);
  grid.addFragment(*box, 199.0 * 199.0 * 5.0);
  EXPECT_EQ(grid.cell(198, 198), 5);
  EXPECT_EQ(grid.cell(199, 198), 0);
  EXPECT_EQ(grid.cell(198, 199), 0);
}

TEST(DensityGrid, FragmentWithinOneColumnAddsNothing) {
  DensityGrid grid(*makeBox({0, 0, 0}, {199, 199, 0}));
  grid.addFragment(*makeBox({10.1, 0, 0}, {10.9, 199, 0}), 1e6);
  EXPECT_EQ(grid.density(), 0.0);
}

TEST(DensityGrid, FractionsAreCutOffAtEveryStep) {
  const auto box = makeBox({0, 0, 0}, {10, 10, 0});
  DensityGrid grid(*box);
  grid.addFragment(*box, 190.0);  // 1.9 per square unit
  grid.addFragment(*box, 190.0);
  EXPECT_EQ(grid.cell(0, 0), 2);  // 0 + 1.9 -> 1, 1 + 1.9 -> 2
}

TEST(DensityGrid, InfiniteDensityClearsTheCells) {
  const auto box = makeBox({0, 0, 0}, {199, 199, 0});
  DensityGrid grid(*box);
  grid.addFragment(*box, 199.0 * 199.0 * 9.0);
  // So small an extent that its area vanishes, across a cell's border.
  grid.addFragment(*makeBox({49.9999, 20, 0}, {50.0001, 21, 0}), 1e308);
  EXPECT_EQ(grid.cell(49, 20), 0);
  EXPECT_EQ(grid.cell(50, 20), 9);
}

TEST(DensityGrid, DensityIsTheMeanOfFilledCells) {
  DensityGrid grid(*makeBox({0, 0, 0}, {199, 199, 0}));
  grid.addFragment(*makeBox({0.5, 0.5, 0}, {1.5, 1.5, 0}), 10.0);
  grid.addFragment(*makeBox({5.5, 5.5, 0}, {7.5, 6.5, 0}), 2.0 * 40.0);
  EXPECT_DOUBLE_EQ(grid.density(), (10.0 + 40.0 + 40.0) / 3.0);
}

TEST(DensityEstimate, UsesSizesAndBoxesWithoutMakingData) {
  const auto creator = promisedPoints(50 * 10000, makeBox({0, 0, 0}, {100, 100, 9}));
  EXPECT_DOUBLE_EQ(estimateDensity(CloudBuilder().fragmentOf(creator).positions()), 50.0);
  EXPECT_EQ(creator->createCalls, 0);
}

TEST(DensityEstimate, SkipsFragmentsWithoutCreatorOrBox) {
  CloudBuilder cloud;
  cloud.fragmentOf(nullptr).fragment({}).fragmentOf(
      promisedPoints(20 * 10000, makeBox({0, 0, 0}, {100, 100, 9})));
  EXPECT_DOUBLE_EQ(estimateDensity(cloud.positions()), 20.0);
}

TEST(DensityEstimate, NothingToSayWithoutAnyBox) {
  EXPECT_EQ(estimateDensity(CloudBuilder().fragment({}).positions()), 0.0);
}

TEST(DensityEstimate, BelowOnePointPerSquareUnitNothingIsSaid) {
  const auto creator = promisedPoints(9999, makeBox({0, 0, 0}, {100, 100, 9}));
  EXPECT_EQ(estimateDensity(CloudBuilder().fragmentOf(creator).positions()), 0.0);
}

TEST(LengthForDensity, HalvesRoundAwayFromZeroButTheReportDoesNot) {
  const ConsoleCapture console;
  const LengthEstimate estimate = lengthForDensity(densityForLength(37.5), false);
  EXPECT_EQ(estimate.length, 38.0);
  EXPECT_EQ(estimate.unroundedLength, 37.5);
  EXPECT_EQ(console.only(),
            "New Fraglength=37.500000 estimated density [points/m2]=3555.555556"
            " (TargetSize=5000000) Area 1406.250000 ");
}

TEST(LengthForDensity, BelowOneIsClampedWithWarning) {
  const ConsoleCapture console;
  const LengthEstimate estimate = lengthForDensity(densityForLength(0.4), false);
  EXPECT_EQ(estimate.length, 1.0);
  ASSERT_EQ(console.messages().size(), 2U);
  EXPECT_EQ(console.messages()[0], "Warning: Estimated Fraglength < 1!");
  EXPECT_EQ(console.messages()[1],
            "New Fraglength=1.000000 estimated density [points/m2]=31250000.000000"
            " (TargetSize=5000000) Area 0.160000 ");
}

TEST(LengthForDensity, AboveTenThousandIsClampedWithWarning) {
  const ConsoleCapture console;
  const LengthEstimate estimate = lengthForDensity(0.005, false);
  EXPECT_EQ(estimate.length, 10000.0);
  ASSERT_EQ(console.messages().size(), 2U);
  EXPECT_EQ(console.messages()[0], "Warning: Estimated Fraglength > 10000!");
  EXPECT_EQ(console.messages()[1],
            "New Fraglength=10000.000000 estimated density [points/m2]=0.005000"
            " (TargetSize=5000000) Area 1000000000.000000 ");
}

TEST(LengthForDensity, EdgesOfTheClampAreInside) {
  const ConsoleCapture console;
  EXPECT_EQ(lengthForDensity(densityForLength(1.0), false).length, 1.0);
  EXPECT_EQ(lengthForDensity(densityForLength(10000.0), false).length, 10000.0);
  EXPECT_FALSE(console.contains("Warning"));
}

TEST(LengthForDensity, WaveformsHalveTheLength) {
  const ConsoleCapture console;
  EXPECT_EQ(lengthForDensity(densityForLength(30.0), true).length, 15.0);
  EXPECT_EQ(console.only(),
            "New Fraglength=15.000000 estimated density [points/m2]=5555.555556"
            " (TargetSize=5000000) Area 900.000000 Have FWFs! Fragment length / 2.0!");
}

}  // namespace LidarLib
