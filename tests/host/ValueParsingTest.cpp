// SPDX-License-Identifier: Apache-2.0

#include "host/ValueParsing.hpp"

#include <gtest/gtest.h>

#include <clocale>
#include <limits>

namespace Host {
namespace {

TEST(ValueParsing, NumbersAreReadWhole) {
  EXPECT_EQ(*parseNumber("-5"), -5.0);
  EXPECT_EQ(*parseNumber(" 1.5e3 "), 1500.0);
  EXPECT_EQ(*parseNumber("+2"), 2.0);
  for (const char* bad : {"", " ", "5x", "1,5", "nan", "inf", "-inf", "1e999", "+-2", "0x10"}) {
    EXPECT_FALSE(parseNumber(bad).ok()) << bad;
  }
  EXPECT_EQ(parseNumber("5x").error(), "found \"5x\", expected a finite number");
}

TEST(ValueParsing, CountsTakeGroupsAndUnits) {
  constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(*parseCount("1_000'000", 0, kMost), 1000000U);
  EXPECT_EQ(*parseCount("500k", 0, kMost), 500000U);
  EXPECT_EQ(*parseCount("2M", 0, kMost), 2000000U);
  EXPECT_EQ(*parseCount("18446744073709551615", 0, kMost), kMost);
}

TEST(ValueParsing, CountsOutsideTheRangeAreRefused) {
  EXPECT_FALSE(parseCount("18446744073709551616", 0, ~std::uint64_t{0}).ok());
  EXPECT_FALSE(parseCount("18446744073709552k", 0, ~std::uint64_t{0}).ok());
  EXPECT_EQ(parseCount("0", 1, 4096).error(),
            "found \"0\", expected a whole number from 1 to 4096");
  for (const char* bad : {"", "-1", "1.5", "k", "5kk", "5 000", "M5"}) {
    EXPECT_FALSE(parseCount(bad, 0, 1000000).ok()) << bad;
  }
}

TEST(ValueParsing, ByteSizesUsePowersOf1024) {
  EXPECT_EQ(*parseByteSize("4096"), 4096U);
  EXPECT_EQ(*parseByteSize("8G"), std::uint64_t{8} << 30U);
  EXPECT_EQ(*parseByteSize("512m"), std::uint64_t{512} << 20U);
  EXPECT_EQ(*parseByteSize("1.5 GiB"), std::uint64_t{1536} << 20U);
  EXPECT_EQ(*parseByteSize("2kb"), 2048U);
  for (const char* bad : {"", "0", "-1G", "8Q", "G", "1e30T", "nan", "B"}) {
    EXPECT_FALSE(parseByteSize(bad).ok()) << bad;
  }
}

TEST(ValueParsing, PointsTakeNegativeNumbers) {
  const auto point = parsePoint("-5,-.5, 1e3");
  ASSERT_TRUE(point.ok());
  EXPECT_EQ(*point, (Eagle::PhysicalSpace::point{-5.0, -0.5, 1000.0}));
  for (const char* bad : {"1,2", "1,2,3,4", "1,,3", "1,2,nan", ",1,2,3", "1,2,3,", "a,b,c"}) {
    EXPECT_FALSE(parsePoint(bad).ok()) << bad;
  }
}

TEST(ValueParsing, OneLengthIsForBothHorizontalAxes) {
  using Lengths = std::array<double, 3>;
  EXPECT_EQ(parseFragmentLength("100")->components, (Lengths{100.0, 100.0, 0.0}));
  EXPECT_EQ(parseFragmentLength("100,50")->components, (Lengths{100.0, 50.0, 0.0}));
  EXPECT_EQ(parseFragmentLength("100,50,20")->components, (Lengths{100.0, 50.0, 20.0}));
  EXPECT_EQ(parseFragmentLength("0,0,20")->components, (Lengths{0.0, 0.0, 20.0}));
}

TEST(ValueParsing, SenselessLengthsAreRefused) {
  for (const char* bad : {"-1", "nan", "inf", "100,0", "0,100", "1,2,-3", "", "1,2,3,4"}) {
    EXPECT_FALSE(parseFragmentLength(bad).ok()) << bad;
  }
}

TEST(ValueParsing, OverlapIsNotNegative) {
  EXPECT_EQ(*parseOverlap("0.1"), 0.1);
  for (const char* bad : {"-0.1", "nan", "inf", ""}) EXPECT_FALSE(parseOverlap(bad).ok()) << bad;
}

TEST(ValueParsing, DecimalCommaLocaleChangesNothing) {
  const std::string former = std::setlocale(LC_NUMERIC, nullptr);
  std::setlocale(LC_NUMERIC, "de_DE.UTF-8");  // where it is not installed, nothing changes
  EXPECT_EQ(*parseNumber("1.5"), 1.5);
  EXPECT_FALSE(parseNumber("1,5").ok());
  std::setlocale(LC_NUMERIC, former.c_str());
}

TEST(ValueParsing, ColumnNamesNameEveryAxisOnce) {
  const auto names = parseColumnNames("x, y,z,Intensity,-");
  ASSERT_TRUE(names.ok()) << names.error();
  EXPECT_EQ(*names, (std::vector<std::string>{"x", "y", "z", "Intensity", "-"}));
  EXPECT_EQ(parseColumnNames("x,y").error(),
            "no column for z, found \"x y\", expected one of each of x, y and z");
  EXPECT_EQ(parseColumnNames("x,y,,z").error(),
            "found \"x,y,,z\", expected a name for every column, - to leave it out");
  EXPECT_FALSE(parseColumnNames("").ok());
}

}  // namespace
}  // namespace Host
