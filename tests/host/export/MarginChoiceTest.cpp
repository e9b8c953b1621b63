// SPDX-License-Identifier: Apache-2.0

#include "host/export/MarginChoice.hpp"

#include <gmock/gmock.h>

#include "host/export/TileOwnership.hpp"
#include "planning/TilingAttributes.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using Eagle::PhysicalSpace;
using LidarLib::TestSupport::CloudBuilder;
using testing::ElementsAre;
using testing::IsEmpty;

/// A grid whose tiles of length 10 from (0, 0, 0) on overlap by a tenth.
MemCore::StrongPtr<Fiber::Grid> overlappingGrid() {
  auto grid = MemCore::makeStrong<Fiber::Grid>("points");
  grid->attributes().setAttribute(LidarLib::kFragLengthAttribute,
                                  MemCore::makeStrong<MemCore::Chunk<PhysicalSpace::point>>(
                                      1, PhysicalSpace::point{10, 10, 10}));
  grid->attributes().setAttribute(LidarLib::kOverlapAttribute,
                                  MemCore::makeStrong<MemCore::Chunk<double>>(1, 0.1));
  LidarLib::TilingLayout layout;
  layout.fragmentLength = {{10, 10, 10}};
  keepTilingOrigin(*grid, layout);
  return grid;
}

/// What is chosen of points of tile (1, 0, 0), or of a fragment that is no tile.
Formats::PointChoice choiceOf(OverlapRule rule, const Fiber::Grid& grid, bool isTile = true) {
  CloudBuilder cloud;
  cloud.fragment({{9.5, 1, 1}, {10, 1, 1}, {15, 1, 1}, {20, 1, 1}, {20.5, 1, 1}});
  auto source = Formats::exportSource(*cloud.currentGrid());
  EXPECT_TRUE(source.ok()) << source.error();
  if (isTile) source->fragments.front().index = Fiber::MultiIndex<3>{{1, 0, 0}};
  const auto choose = chooserFor(grid, rule);
  EXPECT_TRUE(choose.ok()) << choose.stop().text;
  const auto loaded = Formats::loadFragments(*source, source->fragments, {}, *choose);
  EXPECT_TRUE(loaded.ok()) << loaded.error();
  return loaded->front().choice;
}

TEST(MarginChoice, DroppedMarginsLeaveThePointsThatTheTileOwns) {
  const auto choice = choiceOf(OverlapRule::Drop, *overlappingGrid());
  EXPECT_FALSE(choice.takesAll);
  EXPECT_THAT(choice.rows, ElementsAre(2, 3));
  EXPECT_THAT(choice.isMargin, IsEmpty());
}

TEST(MarginChoice, FlaggedMarginsAreMarked) {
  const auto choice = choiceOf(OverlapRule::Flag, *overlappingGrid());
  EXPECT_TRUE(choice.takesAll);
  EXPECT_THAT(choice.isMargin, ElementsAre(1, 1, 0, 0, 1));
}

TEST(MarginChoice, KeptMarginsAreLikeAllPoints) {
  const auto choice = choiceOf(OverlapRule::Keep, *overlappingGrid());
  EXPECT_TRUE(choice.takesAll);
  EXPECT_THAT(choice.isMargin, IsEmpty());
}

TEST(MarginChoice, FragmentThatIsNoTileGoesWhole) {
  EXPECT_TRUE(choiceOf(OverlapRule::Drop, *overlappingGrid(), false).takesAll);
}

TEST(MarginChoice, TilesThatDoNotOverlapGoWhole) {
  EXPECT_TRUE(choiceOf(OverlapRule::Drop, Fiber::Grid("points")).takesAll);
  EXPECT_TRUE(choiceOf(OverlapRule::Flag, Fiber::Grid("points")).takesAll);
}

TEST(MarginChoice, OverlapOfUnknownTilingMattersUnlessMarginsAreKept) {
  const auto grid = overlappingGrid();
  grid->attributes().setAttribute("TilingOrigin", nullptr);
  EXPECT_FALSE(chooserFor(*grid, OverlapRule::Drop).ok());
  EXPECT_FALSE(chooserFor(*grid, OverlapRule::Flag).ok());
  EXPECT_TRUE(chooserFor(*grid, OverlapRule::Keep).ok());
}

}  // namespace
}  // namespace Host
