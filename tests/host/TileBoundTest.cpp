// SPDX-License-Identifier: Apache-2.0

#include "host/TileBound.hpp"

#include <gtest/gtest.h>

#include "datamodel/memcore/Console.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;

/// The layout of tiles of 10 x 10 over the cloud.
LidarLib::TilingLayout layoutOf(CloudBuilder& builder, double overlap = 0.0) {
  const auto positions = builder.positions();
  MemCore::StrongPtr<Eagle::BoundingBox> box;
  Fiber::expandBoundingBox(positions, box);
  Eagle::FixedArray<double, 3> length{{10.0, 10.0, 0.0}};
  return LidarLib::estimateTiling(box, length, overlap, positions, false);
}

TEST(TileBound, FullestTileIsFound) {
  CloudBuilder builder;
  builder.fragment({{0, 0, 0}, {1, 1, 1}})
      .fragment({{22, 22, 0}, {23, 23, 0}, {24, 24, 0}})
      .fragment({{25, 25, 0}, {26, 26, 0}, {29.9, 29.9, 0}, {27, 27, 0}});
  EXPECT_EQ(fullestTileBound(layoutOf(builder)), 7U);
}

TEST(TileBound, FragmentCountsInEveryTileThatItTouches) {
  CloudBuilder builder;
  builder.fragment({{0, 0, 0}, {29, 29, 0}}).fragment({{15, 15, 0}}).fragment({{15, 16, 0}});
  EXPECT_EQ(fullestTileBound(layoutOf(builder)), 4U);
}

TEST(TileBound, OverlapReachesIntoNeighbours) {
  CloudBuilder builder;
  builder.fragment({{0, 0, 0}, {5, 5, 0}})
      .fragment({{15, 5, 0}, {18, 5, 0}})
      .fragment({{29, 5, 0}});
  EXPECT_EQ(fullestTileBound(layoutOf(builder)), 2U);
  EXPECT_EQ(fullestTileBound(layoutOf(builder, 0.6)), 4U);
}

}  // namespace
}  // namespace Host
