// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/FragmentRanges.hpp"

#include <gtest/gtest.h>

namespace Formats {

namespace {

std::vector<PointRun> runsOf(const std::vector<std::uint64_t>& counts) {
  std::vector<PointRun> runs;
  std::uint64_t next = 0;
  for (const std::uint64_t count : counts) {
    runs.push_back({next, count, 0, 0});
    next += count;
  }
  return runs;
}

using Ranges = std::vector<PointRange>;

}  // namespace

TEST(FragmentRanges, PlainPointsAreCutEvenly) {
  EXPECT_EQ(cutIntoFragments({}, 25, 30, {10, 0}), (Ranges{{0, 10}, {10, 10}, {20, 5}}));
  EXPECT_EQ(cutIntoFragments({}, 20, 30, {10, 0}), (Ranges{{0, 10}, {10, 10}}));
}

TEST(FragmentRanges, NoPointsMakeNoFragments) {
  EXPECT_TRUE(cutIntoFragments({}, 0, 30, {10, 0}).empty());
  EXPECT_TRUE(cutIntoFragments(runsOf({0}), 0, 30, {10, 0}).empty());
}

TEST(FragmentRanges, NeighbouringRunsGoTogetherUpToTheLimit) {
  EXPECT_EQ(cutIntoFragments(runsOf({4, 4, 4, 2}), 14, 30, {10, 0}), (Ranges{{0, 8}, {8, 6}}));
  EXPECT_EQ(cutIntoFragments(runsOf({5, 5, 1}), 11, 30, {10, 0}), (Ranges{{0, 10}, {10, 1}}));
}

TEST(FragmentRanges, LongRunStaysWhole) {
  EXPECT_EQ(cutIntoFragments(runsOf({3, 50000, 3}), 50006, 30, {10, 0}),
            (Ranges{{0, 3}, {3, 50000}, {50003, 3}}));
}

TEST(FragmentRanges, RunsWithoutPointsDisappear) {
  EXPECT_EQ(cutIntoFragments(runsOf({0, 4, 0, 0, 4}), 8, 30, {10, 0}), (Ranges{{0, 8}}));
}

TEST(FragmentRanges, RunThatDoesNotFitIntoMemoryIsCut) {
  const std::uint64_t points = std::uint64_t{1} << 31;
  const Ranges ranges = cutIntoFragments(runsOf({points}), points, 64, {250000, 0});
  ASSERT_GT(ranges.size(), 1U);
  std::uint64_t next = 0;
  for (const PointRange& range : ranges) {
    EXPECT_EQ(range.firstPoint, next);
    EXPECT_LE(range.pointCount * 64, std::uint64_t{1} << 29);
    next += range.pointCount;
  }
  EXPECT_EQ(next, points);
}

TEST(FragmentRanges, LongRecordsMakeShortFragments) {
  const Ranges ranges = cutIntoFragments({}, 100000, 65535, {250000, 0});
  EXPECT_LE(ranges.front().pointCount * 65535, std::uint64_t{1} << 28);
}

TEST(FragmentRanges, LongWaveformsMakeShortFragments) {
  const Ranges ranges = cutIntoFragments({}, 1000000, 57, {250000, 1000});
  EXPECT_EQ(ranges.front().pointCount, (std::uint64_t{1} << 26) / 1000);
  const Ranges longest = cutIntoFragments({}, 1000000, 57, {250000, 65535});
  EXPECT_EQ(longest.front().pointCount, 1024U);
}

TEST(FragmentRanges, SmallWishIsGranted) {
  EXPECT_EQ(cutIntoFragments({}, 3, 65535, {1, 65535}), (Ranges{{0, 1}, {1, 1}, {2, 1}}));
}

TEST(FragmentRanges, LimitBeyondAllCountsDoesNotOverflow) {
  EXPECT_EQ(cutIntoFragments(runsOf({4, 4}), 8, 30, {UINT64_MAX, 0}), (Ranges{{0, 8}}));
}

}  // namespace Formats
