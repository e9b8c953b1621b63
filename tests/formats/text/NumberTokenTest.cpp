// SPDX-License-Identifier: Apache-2.0

#include "formats/text/NumberToken.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "tests/support/Seed.hpp"

namespace Formats {
namespace {

/// Reads a text of which every character must belong to the number.
NumberToken wholeToken(const std::string& text) {
  NumberToken number;
  EXPECT_EQ(readNumber(text.data(), text.data() + text.size(), number), text.data() + text.size())
      << text;
  return number;
}

bool isRefused(const std::string& text) {
  NumberToken number;
  return readNumber(text.data(), text.data() + text.size(), number) == nullptr;
}

/// What the standard library makes of a text without a plus sign.
double plainValue(const std::string& text) {
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  EXPECT_TRUE(error == std::errc() && end == text.data() + text.size()) << text;
  return value;
}

std::uint64_t bitsOf(double value) { return std::bit_cast<std::uint64_t>(value); }

}  // namespace

TEST(NumberToken, SpellingsOfNumbersAreRead) {
  EXPECT_EQ(wholeToken("12.5").value, 12.5);
  EXPECT_EQ(wholeToken("+12.5").value, 12.5);
  EXPECT_EQ(wholeToken("-.5").value, -0.5);
  EXPECT_EQ(wholeToken("7.").value, 7.0);
  EXPECT_EQ(wholeToken("1.5e3").value, 1500.0);
  EXPECT_EQ(wholeToken("1E-2").value, 0.01);
  EXPECT_TRUE(std::isnan(wholeToken("NaN").value));
  EXPECT_EQ(wholeToken("-inf").value, -std::numeric_limits<double>::infinity());
  EXPECT_EQ(bitsOf(wholeToken("-0.0").value), bitsOf(-0.0));
}

TEST(NumberToken, WhatIsNoNumberIsRefused) {
  for (const char* text :
       {"", "-", "+", ".", "-.", "abc", "e5", "+-1", "--1", ",5", "1e999", "-1e999"}) {
    EXPECT_TRUE(isRefused(text)) << text;
  }
}

TEST(NumberToken, ReadingEndsBehindTheNumber) {
  const std::string text = "12.50,7";
  NumberToken number;
  EXPECT_EQ(readNumber(text.data(), text.data() + text.size(), number), text.data() + 5);
  EXPECT_EQ(number.value, 12.5);
}

TEST(NumberToken, DigitsAndDecimalsTellTheSpelling) {
  const NumberToken price = wholeToken("-012.340");
  EXPECT_EQ(price.decimals, 3);
  EXPECT_EQ(price.digits, 12340U);
  EXPECT_TRUE(price.hasDigits);
  EXPECT_TRUE(price.isNegative);
  EXPECT_EQ(wholeToken("42").decimals, 0);
  EXPECT_EQ(wholeToken("1e5").decimals, kUnknownDecimals);
  EXPECT_FALSE(wholeToken("1e5").hasDigits);
  EXPECT_EQ(wholeToken("0.1234567890123456789012").decimals, 22);
  EXPECT_EQ(wholeToken("0.12345678901234567890123").decimals, kUnknownDecimals);
}

TEST(NumberToken, IntegersOf64BitsKeepEveryDigit) {
  EXPECT_EQ(wholeToken("9007199254740993").digits, 9007199254740993U);
  EXPECT_EQ(wholeToken("18446744073709551615").digits, 18446744073709551615U);
  EXPECT_TRUE(wholeToken("18446744073709551615").hasDigits);
  EXPECT_FALSE(wholeToken("18446744073709551616").hasDigits);
  EXPECT_EQ(wholeToken("000000000000000000000000042").digits, 42U);
}

TEST(NumberToken, RandomDecimalsAreTheNearestDoubles) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  for (int i = 0; i < 200000; ++i) {
    const std::uint64_t digits = random() >> (random() % 64);
    const auto decimals = static_cast<std::size_t>(random() % 25);
    std::string text = fmt::format("{:0>{}}", digits, decimals + 1);
    if (decimals != 0) text.insert(text.size() - decimals, ".");
    if (random() % 2 == 0) text.insert(0, "-");
    ASSERT_EQ(bitsOf(wholeToken(text).value), bitsOf(plainValue(text))) << text;
  }
}

TEST(NumberToken, ShortestTextsOfRandomDoublesReadBackIdentically) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  for (int i = 0; i < 200000; ++i) {
    const double value = std::bit_cast<double>(random());
    if (!std::isfinite(value)) continue;
    ASSERT_EQ(bitsOf(wholeToken(fmt::format("{}", value)).value), bitsOf(value)) << value;
  }
}

}  // namespace Formats
