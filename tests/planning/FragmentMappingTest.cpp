// SPDX-License-Identifier: Apache-2.0

#include "planning/FragmentMapping.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <cstdlib>
#include <limits>

#include "tests/planning/PlanningScene.hpp"
#include "tests/support/ConsoleCapture.hpp"
#include "tests/support/MemoryLimit.hpp"

namespace LidarLib {

namespace {

using TestSupport::CloudBuilder;
using TestSupport::ConsoleCapture;
using TestSupport::makeBox;
using TestSupport::makeLayout;
using TestSupport::outputView;
using TestSupport::Point;
using TestSupport::promisedPoints;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// Maps a cloud onto tiles of edge 100 in a row along x, beginning at 0. Tile 0 has a diagonal of
/// 173.2, so the tolerance is 0.1732.
FragmentMapping mapOntoRow(CloudBuilder& cloud, std::uint64_t tiles, double overlap = 0.0) {
  const Fiber::MultiIndex<3> counts{{tiles, 1, 1}};
  const auto positions = cloud.positions();
  const ConsoleCapture console;
  return mapFragmentBoxes(makeLayout({0, 0, 0}, {{100, 100, 100}}, counts), outputView(counts),
                          overlap, positions->getFragmentIDs(), positions);
}

/// The tiles whose sets hold the fragment of that number.
std::vector<std::size_t> tilesOf(const FragmentMapping& mapping, unsigned number) {
  std::vector<std::size_t> tiles;
  for (std::size_t t = 0; t < mapping.tileCells->size(); ++t) {
    for (const auto& id : (*mapping.tileCells)[t].first) {
      if (id->number() == number) tiles.push_back(t);
    }
  }
  return tiles;
}

CloudBuilder cloudBetween(double minX, double maxX) {
  CloudBuilder cloud;
  cloud.fragment({{minX, 50, 50}, {maxX, 50, 50}});
  return cloud;
}

}  // namespace

namespace {

/// Maps a fragment over so many of four million tiles, with 700 MB of memory left. Ends the
/// process: 0 when it was mapped, 10 plus the tenths of a gigabyte that it would need when it was
/// refused.
[[noreturn]] void exitAfterMapping(std::uint64_t touchedRows) {
  const Fiber::MultiIndex<3> counts{{2000, 2000, 1}};
  CloudBuilder cloud;
  cloud.fragment({{50, 50, 50}, {199'950, static_cast<double>(touchedRows) * 100 - 50, 50}});
  const auto positions = cloud.positions();
  const auto view = outputView(counts);
  const ConsoleCapture console;
  if (!TestSupport::leaveMemory(700'000'000)) std::exit(2);
  try {
    const auto mapping = mapFragmentBoxes(makeLayout({0, 0, 0}, {{100, 100, 100}}, counts), view,
                                          0.0, positions->getFragmentIDs(), positions);
    std::exit(mapping.tilesWithData == touchedRows * 2000 ? 0 : 1);
  } catch (const MappingTooLarge& refusal) {
    std::exit(10 + static_cast<int>(refusal.neededBytes() / 100'000'000));
  }
}

}  // namespace

TEST(FragmentMapping, MoreThanMayBeUsedIsRefusedBeforeItIsTaken) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a forked process has no OpenMP threads
  EXPECT_EXIT(exitAfterMapping(2000), testing::ExitedWithCode(10 + 9), "");
}

TEST(FragmentMapping, TilesWithoutDataNeedNoSets) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitAfterMapping(10), testing::ExitedWithCode(0), "");
}

TEST(FragmentMapping, BoxExactlyAtAFaceTouchesBothTiles) {
  CloudBuilder cloud = cloudBetween(200, 250);
  EXPECT_EQ(tilesOf(mapOntoRow(cloud, 5), 0), (std::vector<std::size_t>{1, 2}));
}

TEST(FragmentMapping, BoxWithinTheToleranceOfAFaceTouches) {
  CloudBuilder cloud = cloudBetween(200.17, 250);
  EXPECT_EQ(tilesOf(mapOntoRow(cloud, 5), 0), (std::vector<std::size_t>{1, 2}));
}

TEST(FragmentMapping, BoxBeyondTheToleranceDoesNotTouch) {
  CloudBuilder cloud = cloudBetween(200.18, 250);
  EXPECT_EQ(tilesOf(mapOntoRow(cloud, 5), 0), (std::vector<std::size_t>{2}));
}

TEST(FragmentMapping, FragmentAcrossTwoTilesIsInBothSetsWithoutOverlap) {
  CloudBuilder cloud = cloudBetween(120, 280);
  const FragmentMapping mapping = mapOntoRow(cloud, 5);
  EXPECT_EQ(tilesOf(mapping, 0), (std::vector<std::size_t>{1, 2}));
  EXPECT_EQ(mapping.tilesWithData, 2U);
}

TEST(FragmentMapping, OverlapWidensTheTiles) {
  CloudBuilder cloud = cloudBetween(220, 270);
  EXPECT_EQ(tilesOf(mapOntoRow(cloud, 5, 0.25), 0), (std::vector<std::size_t>{1, 2}));
  EXPECT_EQ(tilesOf(mapOntoRow(cloud, 5, 0.5), 0), (std::vector<std::size_t>{1, 2, 3}));
}

TEST(FragmentMapping, EmptyFragmentsAddNothingAndAreInNoSet) {
  CloudBuilder cloud = cloudBetween(10, 20);
  cloud.fragment({}).fragmentOf(nullptr);
  const FragmentMapping mapping = mapOntoRow(cloud, 5);
  EXPECT_EQ(mapping.inputPointTotal, 2U);
  EXPECT_TRUE(tilesOf(mapping, 1).empty());
  EXPECT_TRUE(tilesOf(mapping, 2).empty());
  EXPECT_EQ(mapping.tilesWithData, 1U);
}

TEST(FragmentMapping, FragmentOutsideOfAllTilesStillCounts) {
  CloudBuilder cloud = cloudBetween(900, 950);
  const FragmentMapping mapping = mapOntoRow(cloud, 5);
  EXPECT_EQ(mapping.inputPointTotal, 2U);
  EXPECT_EQ(mapping.tilesWithData, 0U);
}

TEST(FragmentMapping, TilesWithDataCountsTilesNotFragments) {
  CloudBuilder cloud;
  for (int n = 0; n < 7; ++n) cloud.fragment({{50, 50, 50}});
  EXPECT_EQ(mapOntoRow(cloud, 5).tilesWithData, 1U);
}

TEST(FragmentMapping, CellsHoldTheOutputFragmentsWithXFastest) {
  CloudBuilder cloud = cloudBetween(0, 1);
  const Fiber::MultiIndex<3> counts{{4, 3, 2}};
  const auto view = outputView(counts);
  const auto positions = cloud.positions();
  const ConsoleCapture console;
  const auto mapping = mapFragmentBoxes(makeLayout({0, 0, 0}, {{1, 1, 1}}, counts), view, 0.0,
                                        positions->getFragmentIDs(), positions);
  ASSERT_EQ(mapping.tileCells->size(), 24U);
  EXPECT_EQ((*mapping.tileCells)[(3 * 1 + 2) * 4 + 3].second->name(), "[3x2x1]");
  EXPECT_EQ((*mapping.tileCells)[1].second, view.fragmentAt({{1, 0, 0}}));
}

TEST(FragmentMapping, ViewWithoutFragmentsGivesEmptyHandles) {
  CloudBuilder cloud = cloudBetween(0, 1);
  const Fiber::FragmentedUniformGrid3D view(MemCore::makeStrong<Fiber::Grid>("bare"));
  const auto positions = cloud.positions();
  const ConsoleCapture console;
  const auto mapping = mapFragmentBoxes(makeLayout({0, 0, 0}, {{100, 100, 100}}, {{2, 1, 1}}), view,
                                        0.0, positions->getFragmentIDs(), positions);
  EXPECT_FALSE((*mapping.tileCells)[0].second);
  EXPECT_EQ(mapping.tilesWithData, 1U);
}

TEST(FragmentMapping, FragmentListedTwiceIsInASetOnce) {
  CloudBuilder cloud = cloudBetween(10, 20);
  const auto positions = cloud.positions();
  auto ids = positions->getFragmentIDs();
  ids.push_back(ids.front());
  const ConsoleCapture console;
  const auto mapping = mapFragmentBoxes(makeLayout({0, 0, 0}, {{100, 100, 100}}, {{1, 1, 1}}),
                                        outputView({{1, 1, 1}}), 0.0, ids, positions);
  EXPECT_EQ((*mapping.tileCells)[0].first.size(), 1U);
  EXPECT_EQ(mapping.inputPointTotal, 4U);
}

TEST(FragmentMapping, SaysOnTheConsoleHowLongItTook) {
  CloudBuilder cloud = cloudBetween(120, 280);
  const Fiber::MultiIndex<3> counts{{5, 2, 1}};
  const auto positions = cloud.positions();
  const ConsoleCapture console;
  mapFragmentBoxes(makeLayout({0, 0, 0}, {{100, 100, 100}}, counts), outputView(counts), 0.0,
                   positions->getFragmentIDs(), positions);
  EXPECT_THAT(console.only(),
              testing::MatchesRegex("\nNeeded time for bbox mapping: [0-9]+\\.[0-9]+\\[s\\]\\. "
                                    "Estimated fragments with data for the out-bundle: 2\\. "
                                    "Total number of fragments: 10\n"));
}

TEST(FragmentMapping, BoxThatIsNoNumberAlongAnAxisTouchesAllTilesThere) {
  CloudBuilder cloud;
  cloud.fragmentOf(promisedPoints(3, makeBox({kNaN, 50, 50}, {kNaN, 50, 50})))
      .fragmentOf(promisedPoints(3, makeBox({250, 50, 50}, {kNaN, 50, 50})))
      .fragmentOf(promisedPoints(3, makeBox({250, 50, 500}, {kNaN, 50, kNaN})));
  const FragmentMapping mapping = mapOntoRow(cloud, 5);
  EXPECT_EQ(tilesOf(mapping, 0), (std::vector<std::size_t>{0, 1, 2, 3, 4}));
  EXPECT_EQ(tilesOf(mapping, 1), (std::vector<std::size_t>{2, 3, 4}));
  EXPECT_TRUE(tilesOf(mapping, 2).empty());
}

TEST(FragmentMapping, InfiniteBoxTouchesAllTilesOnItsWay) {
  CloudBuilder cloud;
  cloud.fragmentOf(promisedPoints(3, makeBox({-kInfinity, 0, 0}, {150, 50, 50})))
      .fragmentOf(promisedPoints(3, makeBox({kInfinity, 0, 0}, {kInfinity, 50, 50})));
  const FragmentMapping mapping = mapOntoRow(cloud, 5);
  EXPECT_EQ(tilesOf(mapping, 0), (std::vector<std::size_t>{0, 1}));
  EXPECT_TRUE(tilesOf(mapping, 1).empty());
}

TEST(FragmentMapping, BoxTurnedInsideOutTouchesWhereBothEndsAllow) {
  CloudBuilder cloud;
  cloud.fragmentOf(promisedPoints(3, makeBox({160, 0, 0}, {140, 50, 50})))
      .fragmentOf(promisedPoints(3, makeBox({350, 0, 0}, {150, 50, 50})));
  const FragmentMapping mapping = mapOntoRow(cloud, 5);
  EXPECT_EQ(tilesOf(mapping, 0), (std::vector<std::size_t>{1}));
  EXPECT_TRUE(tilesOf(mapping, 1).empty());
}

TEST(FragmentMapping, MakesLazyFragmentsOnceByAllThreads) {
  const int formerThreads = omp_get_max_threads();
  omp_set_num_threads(3);
  CloudBuilder cloud;
  std::vector<MemCore::StrongPtr<TestSupport::WatchedCreator>> creators;
  for (int n = 0; n < 20; ++n) {
    creators.push_back(TestSupport::lazyPoints({{n * 10.0, 50, 50}, {n * 10.0 + 5, 50, 50}}));
    cloud.fragmentOf(creators.back());
  }
  const FragmentMapping mapping = mapOntoRow(cloud, 5);
  omp_set_num_threads(formerThreads);
  EXPECT_EQ(mapping.inputPointTotal, 40U);
  for (const auto& creator : creators) {
    EXPECT_EQ(creator->createCalls, 1);
    EXPECT_EQ(creator->threadsAtCreation, 3);
    EXPECT_EQ(creator->finishCalls, 1);
  }
}

TEST(FragmentBox, GivesTheFragmentItsBoxAndAddsItsPoints) {
  const auto positions = CloudBuilder().fragment({{1, 2, 3}, {4, 5, 6}}).positions();
  const auto id = positions->getFragmentIDs().front();
  std::uint64_t total = 40;
  const FragmentEntry entry = fragmentBox(id, positions, total);
  EXPECT_EQ(total, 42U);
  EXPECT_EQ(entry.first, id);
  EXPECT_EQ(entry.second->min(), (Point{1, 2, 3}));
  EXPECT_EQ(entry.second->max(), (Point{4, 5, 6}));
}

TEST(FragmentBox, FragmentWithoutCreatorOrPointsIsEmpty) {
  const auto positions = CloudBuilder().fragmentOf(nullptr).fragment({}).positions();
  for (const auto& id : positions->getFragmentIDs()) {
    std::uint64_t total = 40;
    const FragmentEntry entry = fragmentBox(id, positions, total);
    EXPECT_EQ(total, 40U);
    EXPECT_FALSE(entry.first);
    EXPECT_FALSE(entry.second);
  }
}

TEST(FragmentBox, UnreadableFragmentOfUnknownSizeIsEmpty) {
  const auto creator = MemCore::makeStrong<TestSupport::WatchedCreator>(Fiber::ArrayFacts{});
  const auto positions = CloudBuilder().fragmentOf(creator).positions();
  std::uint64_t total = 0;
  EXPECT_FALSE(fragmentBox(positions->getFragmentIDs().front(), positions, total).first);
  EXPECT_EQ(total, 0U);
  EXPECT_EQ(creator->finishCalls, 0);
}

TEST(FragmentBox, PointsThatAreNoNumbersCountButHaveNoBox) {
  const auto positions = CloudBuilder().fragment({{kNaN, kNaN, kNaN}}).positions();
  std::uint64_t total = 0;
  const FragmentEntry entry = fragmentBox(positions->getFragmentIDs().front(), positions, total);
  EXPECT_EQ(total, 1U);
  EXPECT_TRUE(entry.first);
  EXPECT_FALSE(entry.second);
}

}  // namespace LidarLib
