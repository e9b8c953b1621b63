// SPDX-License-Identifier: Apache-2.0

#include "formats/text/NumberText.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "formats/text/NumberToken.hpp"
#include "tests/support/Seed.hpp"

namespace Formats {
namespace {

std::string textOf(double value, std::uint8_t decimals, bool isRounded = false) {
  char buffer[kMostNumberChars];
  return std::string(buffer, writeNumber(buffer, value, decimals, isRounded));
}

void expectReadsBack(double value, std::uint8_t decimals) {
  const std::string text = textOf(value, decimals);
  NumberToken number;
  ASSERT_EQ(readNumber(text.data(), text.data() + text.size(), number), text.data() + text.size());
  ASSERT_EQ(std::bit_cast<std::uint64_t>(number.value), std::bit_cast<std::uint64_t>(value))
      << text;
}

}  // namespace

TEST(NumberText, KnownDecimalsAreWrittenInFull) {
  EXPECT_EQ(textOf(12.5, 3), "12.500");
  EXPECT_EQ(textOf(-0.007, 3), "-0.007");
  EXPECT_EQ(textOf(0.0, 2), "0.00");
  EXPECT_EQ(textOf(-0.0, 2), "-0.00");
  EXPECT_EQ(textOf(42.0, 0), "42");
  EXPECT_EQ(textOf(5427865.242, 3), "5427865.242");
}

TEST(NumberText, NumbersOffTheirDecimalsAreWrittenWhole) {
  EXPECT_EQ(textOf(0.1234, 3), "0.1234");
  EXPECT_EQ(textOf(107.67800000000001, 3), "107.67800000000001");
  EXPECT_EQ(textOf(1e300, 3), "1e+300");
  EXPECT_EQ(textOf(0.1, kUnknownDecimals), "0.1");
}

TEST(NumberText, RoundingIsToTheNearestAndOnlyWhenAllowed) {
  EXPECT_EQ(textOf(107.67800000000001, 3, true), "107.678");
  EXPECT_EQ(textOf(-0.0004, 3, true), "0.000");
  EXPECT_EQ(textOf(-0.0006, 3, true), "-0.001");
  EXPECT_EQ(textOf(1e300, 3, true), "1e+300");
}

TEST(NumberText, NoNumbersAndInfinitiesHaveWords) {
  EXPECT_EQ(textOf(std::numeric_limits<double>::quiet_NaN(), 3), "nan");
  EXPECT_EQ(textOf(-std::numeric_limits<double>::infinity(), 3, true), "-inf");
}

TEST(NumberText, RandomDoublesReadBackIdentically) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  for (int i = 0; i < 100000; ++i) {
    const double any = std::bit_cast<double>(random());
    if (std::isfinite(any)) expectReadsBack(any, static_cast<std::uint8_t>(random() % 23));
    const auto decimals = static_cast<std::uint8_t>(random() % 10);
    const auto steps = static_cast<double>(random() >> (20 + random() % 40));
    expectReadsBack(steps / kPowersOfTen[decimals], decimals);
    // A neighbour of what the decimals hold.
    expectReadsBack(std::nextafter(steps / kPowersOfTen[decimals], 0.0), decimals);
  }
}

TEST(NumberText, EveryIntegerTypeReachesItsEnds) {
  char buffer[kMostNumberChars];
  const auto lowest = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(std::string(buffer, writeShortest(buffer, lowest)), "-9223372036854775808");
  EXPECT_EQ(std::string(buffer, writeShortest(buffer, std::uint8_t{255})), "255");
  EXPECT_EQ(std::string(buffer, writeShortest(buffer, 0.1F)), "0.1");
}

}  // namespace Formats
