// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/Bundle.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace Fiber {
namespace {

TEST(Bundle, SliceIsMadeOncePerTime) {
  Bundle bundle;
  const auto slice = bundle[1.5];
  ASSERT_TRUE(slice);
  EXPECT_EQ(bundle[1.5], slice);
  EXPECT_FALSE(bundle[2.0] == slice);
  EXPECT_EQ(bundle[-0.0], bundle[0.0]);
}

TEST(Bundle, SlicesAreWalkedInOrderOfTime) {
  Bundle bundle;
  for (const double time : {3.0, -1.0, 2.5}) bundle[time];
  std::vector<double> times;
  for (const auto& [time, slice] : bundle.slices()) times.push_back(time);
  EXPECT_EQ(times, (std::vector<double>{-1.0, 2.5, 3.0}));
}

TEST(Bundle, IsHeldByItsHandle) {
  const BundlePtr none;
  EXPECT_FALSE(none);
  EXPECT_FALSE(none.get());
  const BundlePtr bundle(new Bundle);
  (*bundle)[0.0];
  const BundlePtr same = bundle;
  EXPECT_EQ(same->slices().size(), 1U);
  EXPECT_FALSE(bundle->binding);
}

TEST(Slice, GridsAreWalkedInOrderOfName) {
  Slice slice;
  slice.accessSlice();
  for (const char* name : {"b", "a", "B"}) slice[name];
  std::vector<std::string> names;
  for (const auto& [name, grid] : slice.grids()) names.push_back(grid->name());
  EXPECT_EQ(names, (std::vector<std::string>{"B", "a", "b"}));
}

TEST(Slice, GridIsFoundOrMade) {
  Slice slice;
  EXPECT_FALSE(slice.findGrid("scan"));
  const auto grid = slice["scan"];
  EXPECT_EQ(slice["scan"], grid);
  EXPECT_EQ(slice.findGrid("scan"), grid);
}

TEST(Slice, NewGridTakesThePlaceOfAnOldOne) {
  Slice slice;
  const auto old = slice["scan"];
  const auto fresh = slice.newGrid("scan");
  EXPECT_FALSE(old == fresh);
  EXPECT_EQ(slice["scan"], fresh);
  EXPECT_EQ(slice.grids().size(), 1U);
}

}  // namespace
}  // namespace Fiber
