// SPDX-License-Identifier: Apache-2.0

#include "operation/PointTotals.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/ConsoleCapture.hpp"

namespace LidarLib {

namespace {

std::vector<std::string> linesFor(std::uint64_t output, std::uint64_t input, double overlap) {
  const TestSupport::ConsoleCapture console;
  comparePointCounts(output, input, overlap);
  return console.messages();
}

std::vector<std::string> warning(const std::string& output, const std::string& input) {
  return {"\t!!!!! Warning, Out file (" + output + ") has viewer points than in file (" + input +
          ") !!!!! "};
}

}  // namespace

TEST(PointTotals, EqualTotalsAreSilent) { EXPECT_TRUE(linesFor(1000, 1000, 0.0).empty()); }

TEST(PointTotals, LostPointsAreWarnedOf) {
  EXPECT_EQ(linesFor(998, 1000, 0.0), warning("998", "1000"));
}

TEST(PointTotals, DoubledPointsAreWarnedOfInTheSameWords) {
  EXPECT_EQ(linesFor(1002, 1000, 0.0), warning("1002", "1000"));
}

TEST(PointTotals, OverlapIsNeverWarnedOf) {
  EXPECT_TRUE(linesFor(1, 1000, 0.05).empty());
  EXPECT_TRUE(linesFor(2000, 1000, 0.05).empty());
  EXPECT_TRUE(linesFor(1, 1000, -0.05).empty());
}

TEST(PointTotals, NoGridSelectedIsSilent) { EXPECT_TRUE(linesFor(0, 0, 0.0).empty()); }

TEST(PointTotals, NanOverlapCountsAsNone) {
  EXPECT_EQ(linesFor(1, 2, std::nan("")), warning("1", "2"));
  EXPECT_EQ(linesFor(1, 2, -0.0), warning("1", "2"));
}

TEST(PointTotals, FullRangeOfCountsIsPrinted) {
  EXPECT_EQ(linesFor(std::numeric_limits<std::uint64_t>::max(), 0, 0.0),
            warning("18446744073709551615", "0"));
}

}  // namespace LidarLib
