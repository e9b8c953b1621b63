// SPDX-License-Identifier: Apache-2.0

#include "host/NumberText.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace Host {
namespace {

TEST(NumberText, CountsAreGroupedByThousands) {
  EXPECT_EQ(countText(0), "0");
  EXPECT_EQ(countText(999), "999");
  EXPECT_EQ(countText(1000), "1,000");
  EXPECT_EQ(countText(8750450), "8,750,450");
  EXPECT_EQ(countText(std::numeric_limits<std::uint64_t>::max()), "18,446,744,073,709,551,615");
}

TEST(NumberText, NounsFollowTheirCount) {
  EXPECT_EQ(countText(1, "tile"), "1 tile");
  EXPECT_EQ(countText(0, "tile"), "0 tiles");
  EXPECT_EQ(countText(2000, "tile"), "2,000 tiles");
}

TEST(NumberText, BytesTakeTheUnitThatFits) {
  EXPECT_EQ(byteText(0), "0 B");
  EXPECT_EQ(byteText(1023), "1023 B");
  EXPECT_EQ(byteText(1536), "1.5 KiB");
  EXPECT_EQ(byteText(std::uint64_t{3} << 30U), "3.0 GiB");
  EXPECT_EQ(byteText(std::numeric_limits<std::uint64_t>::max()), "16.0 EiB");
}

TEST(NumberText, DurationsChangeUnitAtTheMinuteAndHour) {
  EXPECT_EQ(durationText(0.423), "0.42 s");
  EXPECT_EQ(durationText(12.34), "12.3 s");
  EXPECT_EQ(durationText(185.0), "3 min 05 s");
  EXPECT_EQ(durationText(7380.0), "2 h 03 min");
  EXPECT_EQ(durationText(-1.0), "-");
  EXPECT_EQ(durationText(std::nan("")), "-");
}

TEST(NumberText, RatesReadAsThousandsAndMillions) {
  EXPECT_EQ(rateText(812.0), "812 points/s");
  EXPECT_EQ(rateText(45200.0), "45.2 thousand points/s");
  EXPECT_EQ(rateText(2.7e6), "2.7 million points/s");
  EXPECT_EQ(rateText(std::numeric_limits<double>::infinity()), "-");
}

TEST(NumberText, AxesShowWhatTheirExtentDeserves) {
  const Eagle::BoundingBox box({0.0, 8.05, -1.0}, {1000.0, 8.0601, -1.0});
  EXPECT_EQ(axisText(box, 0), "0.00 to 1000.00");
  EXPECT_EQ(axisText(box, 1), "8.050000 to 8.060100");
  EXPECT_EQ(axisText(box, 2), "-1.00 to -1.00");
  EXPECT_EQ(axisText(box, 0, 1), "0.0 to 1000.0");
}

TEST(NumberText, ExactTextReadsBackTheSame) {
  EXPECT_EQ(exactText(0.0), "0");
  EXPECT_EQ(exactText(1.5), "1.5");
  EXPECT_EQ(std::stod(exactText(0.1 + 0.2)), 0.1 + 0.2);
}

}  // namespace
}  // namespace Host
