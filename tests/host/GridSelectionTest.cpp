// SPDX-License-Identifier: Apache-2.0

#include "host/GridSelection.hpp"

#include <gtest/gtest.h>

#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;

Fiber::BundlePtr twoTimes() {
  return CloudBuilder()
      .time(0.0)
      .grid("a")
      .fragment({{0, 0, 0}})
      .field<double>("GpsTime", {1})
      .grid("b")
      .fragment({{0, 0, 0}})
      .time(1.5)
      .grid("a")
      .fragment({{0, 0, 0}})
      .bundle();
}

std::vector<std::string> namesOf(const std::vector<SelectedGrid>& grids) {
  std::vector<std::string> names;
  for (const SelectedGrid& grid : grids) names.push_back(grid.name);
  return names;
}

TEST(GridSelection, NoFilterTakesAllInOrder) {
  const auto grids = selectGrids(*twoTimes(), {});
  ASSERT_TRUE(grids.ok());
  EXPECT_EQ(namesOf(*grids), (std::vector<std::string>{"a", "b", "a"}));
  EXPECT_EQ(grids->back().time, 1.5);
}

TEST(GridSelection, FiltersNarrowTimesAndGrids) {
  FilterOptions filters;
  filters.times = {0.0};
  filters.grids = {"b"};
  const auto grids = selectGrids(*twoTimes(), filters);
  ASSERT_TRUE(grids.ok());
  EXPECT_EQ(namesOf(*grids), (std::vector<std::string>{"b"}));
}

TEST(GridSelection, WhatDoesNotExistIsNamedWithWhatDoes) {
  FilterOptions filters;
  filters.grids = {"c"};
  EXPECT_EQ(selectGrids(*twoTimes(), filters).stop().text,
            "--grid: the input has no \"c\", it has a, b");
  filters.grids = {};
  filters.times = {2.0};
  EXPECT_EQ(selectGrids(*twoTimes(), filters).stop().text,
            "--time: the input has no \"2\", it has 0, 1.5");
  filters.times = {};
  filters.fields = {"Intensity"};
  EXPECT_EQ(selectGrids(*twoTimes(), filters).stop().text,
            "--field: the input has no \"Intensity\", it has GpsTime, Positions");
  EXPECT_EQ(selectGrids(*twoTimes(), filters).stop().code, ExitCode::Usage);
}

TEST(GridSelection, FieldHasToBeInASelectedGrid) {
  FilterOptions filters;
  filters.grids = {"b"};
  filters.fields = {"GpsTime"};
  EXPECT_FALSE(selectGrids(*twoTimes(), filters).ok());
}

TEST(GridSelection, LongListsAreCutShort) {
  CloudBuilder builder;
  for (int i = 10; i < 40; ++i) builder.grid("g" + std::to_string(i)).fragment({{0, 0, 0}});
  FilterOptions filters;
  filters.grids = {"no"};
  const std::string text = selectGrids(*builder.bundle(), filters).stop().text;
  EXPECT_NE(text.find("g29 and 10 more"), std::string::npos) << text;
}

TEST(GridSelection, GridWithADangerousNameIsRefused) {
  const auto bundle = CloudBuilder().grid("../up").fragment({{0, 0, 0}}).bundle();
  EXPECT_EQ(selectGrids(*bundle, {}).stop().code, ExitCode::Failed);
}

TEST(GridSelection, EmptyBundleIsAFailure) {
  EXPECT_EQ(selectGrids(Fiber::Bundle(), {}).stop().text, "input: holds no grid");
}

TEST(GridSelection, TwoGridsOfOneTimeWouldShareTileNames) {
  const auto all = selectGrids(*twoTimes(), {});
  const Check check = checkDistinctTimes(*all);
  ASSERT_FALSE(check.ok());
  EXPECT_EQ(check.stop().code, ExitCode::Usage);
  FilterOptions filters;
  filters.grids = {"a"};
  EXPECT_TRUE(checkDistinctTimes(*selectGrids(*twoTimes(), filters)).ok());
}

TEST(GridSelection, TimesThatReadTheSameInFileNamesCollide) {
  const auto bundle = CloudBuilder()
                          .time(1.0)
                          .grid("a")
                          .fragment({{0, 0, 0}})
                          .time(1.0 + 1e-9)
                          .grid("a")
                          .fragment({{0, 0, 0}})
                          .bundle();
  EXPECT_FALSE(checkDistinctTimes(*selectGrids(*bundle, {})).ok());
}

}  // namespace
}  // namespace Host
