// SPDX-License-Identifier: Apache-2.0

#include "host/BundleFacts.hpp"

#include <gtest/gtest.h>

#include "planning/TilingAttributes.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;

const FieldFacts* findField(const GridFacts& grid, const std::string& name) {
  for (const FieldFacts& field : grid.fields) {
    if (field.name == name) return &field;
  }
  return nullptr;
}

CloudBuilder twoFragments() {
  CloudBuilder builder;
  builder.fragment({{0, 0, 0}, {1, 2, 3}})
      .field<double>("GpsTime", {5, 7})
      .fragment({{-1, 0, 9}})
      .field<double>("GpsTime", {-3});
  return builder;
}

TEST(BundleFacts, FragmentsAddUpToTheGrid) {
  FactOptions options;
  options.computeRanges = true;
  const auto grids = gatherFacts(*twoFragments().bundle(), options);
  ASSERT_EQ(grids.size(), 1U);
  EXPECT_EQ(grids[0].pointCount, 3U);
  EXPECT_EQ(grids[0].fragments.size(), 2U);
  ASSERT_TRUE(grids[0].box);
  EXPECT_EQ(grids[0].box->min(), (Eagle::PhysicalSpace::point{-1, 0, 0}));
  EXPECT_EQ(grids[0].box->max(), (Eagle::PhysicalSpace::point{1, 2, 9}));
}

TEST(BundleFacts, RangesThatNobodyKnowsAreAbsentUntilComputed) {
  const auto bundle = twoFragments().bundle();
  const auto known = gatherFacts(*bundle, {});
  EXPECT_FALSE(known[0].box);
  ASSERT_NE(findField(known[0], "GpsTime"), nullptr);
  EXPECT_FALSE(findField(known[0], "GpsTime")->range);
  EXPECT_EQ(findField(known[0], "GpsTime")->type, "double");
  EXPECT_EQ(findField(known[0], "GpsTime")->rank, 1U);

  FactOptions options;
  options.computeRanges = true;
  const auto computed = gatherFacts(*bundle, options);
  ASSERT_TRUE(findField(computed[0], "GpsTime")->range);
  EXPECT_EQ(*findField(computed[0], "GpsTime")->range, (Fiber::ValueRange{-3, 7}));
  EXPECT_FALSE(findField(computed[0], "Positions")->range);
}

TEST(BundleFacts, TilingAttributesAreReadBack) {
  auto builder = twoFragments();
  builder.gridAttribute<std::uint32_t>(LidarLib::kFragDimsAttribute, {4, 3, 1});
  builder.gridAttribute<double>(LidarLib::kOverlapAttribute, {0.5});
  const auto grids = gatherFacts(*builder.bundle(), {});
  ASSERT_TRUE(grids[0].tiling.dimensions);
  EXPECT_EQ(*grids[0].tiling.dimensions, (std::array<std::uint64_t, 3>{4, 3, 1}));
  EXPECT_EQ(grids[0].tiling.overlap, 0.5);
  EXPECT_FALSE(grids[0].tiling.fragmentLength);
}

TEST(BundleFacts, AttributesOfOtherShapeAreNotTaken) {
  auto builder = twoFragments();
  builder.gridAttribute<std::uint32_t>(LidarLib::kFragDimsAttribute, {4, 3});
  builder.gridAttribute<float>(LidarLib::kOverlapAttribute, {0.5F});
  const auto grids = gatherFacts(*builder.bundle(), {});
  EXPECT_FALSE(grids[0].tiling.dimensions);
  EXPECT_FALSE(grids[0].tiling.overlap);
}

TEST(BundleFacts, TileIndexComesFromTheFragmentName) {
  auto builder = CloudBuilder();
  builder.fragment({{0, 0, 0}});
  builder.positions()->setCreator(builder.positions()->makeFragmentID("[3x0x12]"),
                                  LidarLib::TestSupport::positionCreator({{1, 1, 1}}));
  const auto grids = gatherFacts(*builder.bundle(), {});
  ASSERT_EQ(grids[0].fragments.size(), 2U);
  EXPECT_FALSE(grids[0].fragments[0].index);
  ASSERT_TRUE(grids[0].fragments[1].index);
  EXPECT_EQ((*grids[0].fragments[1].index)[2], 12U);
}

}  // namespace
}  // namespace Host
