// SPDX-License-Identifier: Apache-2.0

#include "planning/TilingLayout.hpp"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>

#include "tests/planning/PlanningScene.hpp"
#include "tests/support/ConsoleCapture.hpp"

namespace LidarLib {

namespace {

using TestSupport::CloudBuilder;
using TestSupport::ConsoleCapture;
using TestSupport::Lengths;
using TestSupport::makeBox;
using TestSupport::makeLayout;
using TestSupport::outputView;
using TestSupport::Point;
using TestSupport::promisedPoints;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
const std::string kTooMany = "Number of fragments is over 50 Million!";

/// The layout of a box from the origin, with lengths that need no estimate.
TilingLayout layoutOf(const Point& extent, Lengths length) {
  return estimateTiling(makeBox({0, 0, 0}, extent), length, 0.0, nullptr, false);
}

/// 100 x 100 units with 100 points each: the estimate is 223.6 units, stored as 224.
MemCore::StrongPtr<Fiber::Field> denseCloud() {
  return CloudBuilder()
      .fragmentOf(promisedPoints(1000000, makeBox({0, 0, 0}, {100, 100, 20})))
      .positions();
}

}  // namespace

TEST(TilingLayout, NeedleWithoutLengthsIsOneTileOfExactlyTheGlobalBox) {
  const ConsoleCapture console;
  const auto box = makeBox({5, 6, 0}, {5, 6, 10});
  const auto positions = CloudBuilder().fragment({{5, 6, 0}, {5, 6, 10}}).positions();
  Lengths length;
  const TilingLayout layout = estimateTiling(box, length, 0.0, positions, false);
  EXPECT_TRUE(layout.message.empty());
  EXPECT_EQ(layout.nx * layout.ny * layout.nz, 1U);
  EXPECT_EQ(layout.tiledBox->min(), box->min());
  EXPECT_EQ(layout.tiledBox->max(), box->max());
  EXPECT_FALSE(layout.isEstimated);
  EXPECT_TRUE(console.messages().empty());
}

TEST(TilingLayout, FlatCloudGetsLengthOneAlongZ) {
  const auto box = makeBox({0, 0, 3}, {8, 4, 3});
  const auto positions = CloudBuilder().fragment({{0, 0, 3}, {8, 4, 3}}).positions();
  Lengths length;
  const TilingLayout layout = estimateTiling(box, length, 0.0, positions, false);
  EXPECT_EQ(layout.fragmentLength, (Lengths{{8, 4, 1}}));
  EXPECT_EQ(layout.tiledBox->max(), (Point{8, 4, 4}));
}

TEST(TilingLayout, DensityNotPositiveLeavesLengthsAsGiven) {
  const ConsoleCapture console;
  const auto positions = CloudBuilder().fragment({{0, 0, 0}, {80, 40, 3}}).positions();
  Lengths length{{30, 0, 0}};
  const TilingLayout layout =
      estimateTiling(makeBox({0, 0, 0}, {80, 40, 3}), length, 0.0, positions, false);
  EXPECT_EQ(layout.fragmentLength, (Lengths{{30, 40, 3}}));
  EXPECT_EQ(layout.nx, 3U);
  EXPECT_EQ(layout.info.rfind("Input Global Bounding Box", 0), 0U) << layout.info;
  EXPECT_TRUE(console.messages().empty());
}

TEST(TilingLayout, GivenXWithoutYIsReplacedByTheEstimate) {
  const ConsoleCapture console;
  Lengths length{{100, 0, 7}};
  const TilingLayout layout =
      estimateTiling(makeBox({0, 0, 0}, {100, 100, 20}), length, 0.0, denseCloud(), false);
  EXPECT_EQ(layout.fragmentLength, (Lengths{{224, 224, 7}}));
  EXPECT_EQ(length, layout.fragmentLength);
  EXPECT_TRUE(layout.isEstimated);
  EXPECT_DOUBLE_EQ(layout.estimatedDensity, 100.0);
  EXPECT_EQ(console.only(),
            "New Fraglength=223.606798 estimated density [points/m2]=100.000000"
            " (TargetSize=5000000) Area 50000.000000 ");
}

TEST(TilingLayout, WaveformsHalveTheEstimate) {
  const ConsoleCapture console;
  Lengths length{{-1, 50, 0}};
  const TilingLayout layout =
      estimateTiling(makeBox({0, 0, 0}, {100, 100, 20}), length, 0.0, denseCloud(), true);
  EXPECT_EQ(layout.fragmentLength, (Lengths{{112, 112, 20}}));
}

TEST(TilingLayout, ReportOfAnEstimate) {
  const ConsoleCapture console;
  Lengths length;
  const TilingLayout layout =
      estimateTiling(makeBox({0, 0, 0}, {100, 100, 20}), length, 0.0, denseCloud(), false);
  EXPECT_EQ(layout.info,
            "Based on estimated point density[points/m2]: 100.000000 the new fragment length is: "
            "224.000000 x 224.000000 x 0.000000\n"
            "Input Global Bounding Box: Min: 0.000000 x 0.000000 x 0.000000 Max: "
            "100.000000 x 100.000000 x 20.000000\n"
            "Input Diagonal of Global Box: 100.000000 x 100.000000 x 20.000000\n"
            "Number of Out-Fragments: 1 x 1 x 1\n");
}

TEST(TilingLayout, ReportOfGivenLengths) {
  const TilingLayout layout = layoutOf({1200, 650, 40}, {{100, 100, 50}});
  EXPECT_EQ(layout.info,
            "Fragment Length: 100.000000 x 100.000000 x 50.000000\n"
            "Input Global Bounding Box: Min: 0.000000 x 0.000000 x 0.000000 Max: "
            "1200.000000 x 650.000000 x 40.000000\n"
            "Input Diagonal of Global Box: 1200.000000 x 650.000000 x 40.000000\n"
            "Number of Out-Fragments: 12 x 7 x 1\n");
}

TEST(TilingLayout, ReportIgnoresADecimalCommaLocale) {
  const std::string former = std::setlocale(LC_NUMERIC, nullptr);
  if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) {
    GTEST_SKIP() << "no locale with a decimal comma is installed";
  }
  const std::string info = layoutOf({10, 10, 10}, {{2.5, 5, 5}}).info;
  std::setlocale(LC_NUMERIC, former.c_str());
  EXPECT_EQ(info.rfind("Fragment Length: 2.500000 x ", 0), 0U) << info;
}

TEST(TilingLayout, EstimateWithoutPositionsFails) {
  Lengths length{{0, 10, 10}};
  const TilingLayout layout =
      estimateTiling(makeBox({0, 0, 0}, {1, 1, 1}), length, 0.3, nullptr, false);
  EXPECT_EQ(layout.message, "Have no input positions!");
  EXPECT_TRUE(layout.info.empty());
  EXPECT_FALSE(layout.tiledBox);
  EXPECT_EQ(layout.fragmentLength, Lengths{});
  EXPECT_EQ(layout.nx, 1U);
  EXPECT_EQ(layout.normalizedOverlap, 0.3);
  EXPECT_TRUE(layout.globalBox);
}

TEST(TilingLayout, FiftyMillionTilesPass) {
  const TilingLayout layout = layoutOf({50000000, 1, 1}, {{1, 1, 1}});
  EXPECT_EQ(layout.message, "");
  EXPECT_EQ(layout.nx, 50000000U);
  EXPECT_TRUE(layout.tiledBox);
}

TEST(TilingLayout, OneTileMoreThanFiftyMillionFails) {
  const TilingLayout layout = layoutOf({50000001, 1, 1}, {{1, 1, 1}});
  EXPECT_EQ(layout.message, kTooMany);
  EXPECT_NE(layout.info.find("Number of Out-Fragments: 50000001 x 1 x 1\n"), std::string::npos);
  EXPECT_FALSE(layout.tiledBox);
  EXPECT_EQ(layout.fragmentLength, Lengths{});
}

TEST(TilingLayout, TotalThatWrapsToZeroIsZero) {
  const TilingLayout layout = layoutOf({0x1p32, 0x1p32, 1}, {{1, 1, 1}});
  EXPECT_EQ(layout.message, "Number of fragments is zero!");
  EXPECT_NE(layout.info.find("Number of Out-Fragments: 4294967296 x 4294967296 x 1\n"),
            std::string::npos);
  EXPECT_FALSE(layout.tiledBox);
}

TEST(TilingLayout, TotalThatWrapsToOneIsTooMany) {
  // 274177 x 67280421310721 = 2^64 + 1
  const TilingLayout layout = layoutOf({274177, 67280421310721, 1}, {{1, 1, 1}});
  ASSERT_EQ(layout.nx * layout.ny * layout.nz, 1U);
  EXPECT_EQ(layout.message, kTooMany);
}

TEST(TilingLayout, NegativeQuotientBecomesAHugeCount) {
  const TilingLayout layout = layoutOf({10, 10, 10}, {{5, 5, -3}});
  EXPECT_EQ(layout.nz, std::numeric_limits<std::uint64_t>::max() - 2);
  EXPECT_EQ(layout.message, kTooMany);
}

TEST(TilingLayout, NegativeLengthAlongZOfAFlatCloudBecomesOne) {
  const TilingLayout layout = layoutOf({10, 10, 0}, {{5, 5, -3}});
  EXPECT_EQ(layout.message, "");
  EXPECT_EQ(layout.fragmentLength, (Lengths{{5, 5, 1}}));
}

TEST(TilingLayout, NegativeLengthAlongXIsNotGuarded) {
  const auto positions = CloudBuilder().fragment({{0, 0, 0}, {0, 9, 9}}).positions();
  Lengths length{{-2, 9, 9}};
  const TilingLayout layout =
      estimateTiling(makeBox({0, 0, 0}, {0, 9, 9}), length, 0.0, positions, false);
  EXPECT_EQ(layout.message, "");
  EXPECT_EQ(layout.fragmentLength[0], -2.0);
  EXPECT_EQ(layout.tiledBox->max().x, -2.0);
}

TEST(TilingLayout, LengthsAndExtentsThatAreNoNumbersAreTooManyTiles) {
  EXPECT_EQ(layoutOf({10, 10, 10}, {{kNaN, 5, 5}}).message, kTooMany);
  EXPECT_EQ(layoutOf({10, 10, 10}, {{5, 5, kNaN}}).message, kTooMany);
  EXPECT_EQ(layoutOf({kInfinity, 10, 10}, {{5, 5, 5}}).message, kTooMany);
  EXPECT_EQ(layoutOf({kInfinity, 10, 10}, {{kInfinity, 5, 5}}).message, kTooMany);
  EXPECT_EQ(layoutOf({kNaN, 10, 10}, {{5, 5, 5}}).message, kTooMany);
}

TEST(TilingLayout, InfiniteLengthIsOneTile) {
  const TilingLayout layout = layoutOf({10, 10, 10}, {{kInfinity, 5, 5}});
  EXPECT_EQ(layout.message, "");
  EXPECT_EQ(layout.nx, 1U);
  EXPECT_EQ(layout.tiledBox->max().x, kInfinity);
}

TEST(TilingLayout, ZeroLengthSpansEvenAnExtentThatIsNoNumber) {
  const TilingLayout layout = layoutOf({10, 10, kNaN}, {{5, 5, 0}});
  EXPECT_EQ(layout.message, "");
  EXPECT_TRUE(std::isnan(layout.fragmentLength[2]));
}

TEST(TilingLayout, LastTileReachesBeyondTheBox) {
  const TilingLayout layout = layoutOf({1000, 10, 10}, {{300, 10, 10}});
  EXPECT_EQ(layout.nx, 4U);
  EXPECT_EQ(layout.tiledBox->max().x, 1200.0);
}

TEST(TilingLayout, TiledBoxBeginsAtTheCornerOfTheGlobalBox) {
  Lengths length{{10, 20, 30}};
  const TilingLayout layout =
      estimateTiling(makeBox({-7, 8, 9}, {3.5, 9, 10}), length, 0.0, nullptr, false);
  EXPECT_EQ(layout.origin, (Lengths{{-7, 8, 9}}));
  EXPECT_EQ(layout.tiledBox->min(), (Point{-7, 8, 9}));
  EXPECT_EQ(layout.tiledBox->max(), (Point{13, 28, 39}));
}

TEST(TileBox, OverlapWidensOnEachSide) {
  const TilingLayout layout = makeLayout({0, 0, 0}, {{100, 100, 100}}, {{5, 5, 5}});
  const auto box = tileBox({{2, 0, 4}}, layout, 0.1);
  EXPECT_EQ(box->min(), (Point{190, -10, 390}));
  EXPECT_EQ(box->max(), (Point{310, 110, 510}));
}

TEST(TileBox, OverlapThatIsNotPositiveChangesNothing) {
  const TilingLayout layout = makeLayout({1, 2, 3}, {{10, 10, 10}}, {{5, 5, 5}});
  for (const double overlap : {0.0, -0.5, kNaN, -kInfinity}) {
    const auto box = tileBox({{1, 1, 1}}, layout, overlap);
    EXPECT_EQ(box->min(), (Point{11, 12, 13})) << overlap;
    EXPECT_EQ(box->max(), (Point{21, 22, 23})) << overlap;
  }
}

TEST(TileBox, NeighboursShareAFaceToTheBit) {
  const TilingLayout layout = makeLayout({431000.1, 0, 0}, {{0.3, 1, 1}}, {{1000, 1, 1}});
  for (std::uint64_t i = 0; i < 999; ++i) {
    ASSERT_EQ(tileBox({{i, 0, 0}}, layout, 0.0)->max().x,
              tileBox({{i + 1, 0, 0}}, layout, 0.0)->min().x);
  }
}

TEST(TileEntry, HoldsTheViewsFragmentAndTheBox) {
  const TilingLayout layout = makeLayout({0, 0, 0}, {{10, 10, 10}}, {{4, 3, 2}});
  const auto view = outputView({{4, 3, 2}});
  const TileEntry entry = tileEntry(view, {{3, 2, 1}}, layout, 0.0);
  EXPECT_EQ(entry.first, view.fragmentAt({{3, 2, 1}}));
  EXPECT_EQ(entry.first->name(), "[3x2x1]");
  EXPECT_EQ(entry.second->max(), (Point{40, 30, 20}));
}

TEST(TileEntry, ViewWithoutFragmentsGivesAnEmptyHandle) {
  const TilingLayout layout = makeLayout({0, 0, 0}, {{10, 10, 10}}, {{4, 3, 2}});
  const Fiber::FragmentedUniformGrid3D view(MemCore::makeStrong<Fiber::Grid>("bare"));
  const TileEntry entry = tileEntry(view, {{0, 0, 0}}, layout, 0.0);
  EXPECT_FALSE(entry.first);
  EXPECT_TRUE(entry.second);
}

}  // namespace LidarLib
