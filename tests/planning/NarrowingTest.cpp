// SPDX-License-Identifier: Apache-2.0

#include "planning/Narrowing.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "tests/planning/PlainPlanning.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::int32_t kMinInt32 = std::numeric_limits<std::int32_t>::min();
constexpr std::uint64_t kTwoTo63 = std::uint64_t{1} << 63;
constexpr std::uint64_t kMaxCount = std::numeric_limits<std::uint64_t>::max();

}  // namespace

TEST(Narrowing, Int32TruncatesTowardZero) {
  EXPECT_EQ(truncateToInt32(0.99), 0);
  EXPECT_EQ(truncateToInt32(-0.99), 0);
  EXPECT_EQ(truncateToInt32(300.9), 300);
  EXPECT_EQ(truncateToInt32(-1.5), -1);
}

TEST(Narrowing, Int32EdgesOfTheRange) {
  EXPECT_EQ(truncateToInt32(2147483647.0), 2147483647);
  EXPECT_EQ(truncateToInt32(2147483647.99), 2147483647);
  EXPECT_EQ(truncateToInt32(2147483648.0), kMinInt32);
  EXPECT_EQ(truncateToInt32(-2147483648.0), kMinInt32);
  EXPECT_EQ(truncateToInt32(-2147483648.99), kMinInt32);
  EXPECT_EQ(truncateToInt32(-2147483649.0), kMinInt32);
}

TEST(Narrowing, Int32OfWhatDoesNotFitIsTheMostNegative) {
  for (const double value : {kInfinity, -kInfinity, kNaN, 1e300, -1e300}) {
    EXPECT_EQ(truncateToInt32(value), kMinInt32) << value;
  }
}

TEST(Narrowing, LowByteWrapsAndIsZeroForInfinity) {
  EXPECT_EQ(truncateToLowByte(255.9), 255);
  EXPECT_EQ(truncateToLowByte(256.0), 0);
  EXPECT_EQ(truncateToLowByte(300.0), 44);
  EXPECT_EQ(truncateToLowByte(-1.0), 255);
  EXPECT_EQ(truncateToLowByte(kInfinity), 0);
  EXPECT_EQ(truncateToLowByte(kNaN), 0);
}

TEST(Narrowing, CellIsClampedAndTruncated) {
  EXPECT_EQ(clampedCell(-0.001, 200), 0U);
  EXPECT_EQ(clampedCell(-kInfinity, 200), 0U);
  EXPECT_EQ(clampedCell(0.999, 200), 0U);
  EXPECT_EQ(clampedCell(198.999, 200), 198U);
  EXPECT_EQ(clampedCell(199.999, 200), 199U);
  EXPECT_EQ(clampedCell(200.0, 200), 199U);
  EXPECT_EQ(clampedCell(kInfinity, 200), 199U);
  EXPECT_EQ(clampedCell(kNaN, 200), 0U);
}

TEST(Narrowing, TileCountRoundsUp) {
  EXPECT_EQ(ceilToTileCount(3.0), 3U);
  EXPECT_EQ(ceilToTileCount(3.0000001), 4U);
  EXPECT_EQ(ceilToTileCount(0.0), 0U);
  EXPECT_EQ(ceilToTileCount(-0.5), 0U);
}

TEST(Narrowing, TileCountOfNegativeQuotientIsHuge) {
  EXPECT_EQ(ceilToTileCount(-1.0), kMaxCount);
  EXPECT_EQ(ceilToTileCount(-3.3), kMaxCount - 2);
  EXPECT_EQ(ceilToTileCount(std::nextafter(-0x1p63, 0.0)), kTwoTo63 + 1024);
  for (const double value : {-0x1p63, std::nextafter(-0x1p63, -kInfinity), -1e300, -kInfinity}) {
    EXPECT_EQ(ceilToTileCount(value), kTwoTo63) << value;
  }
}

TEST(Narrowing, TileCountOfHugeQuotientAndOfNaNIsTheGreatest) {
  EXPECT_EQ(ceilToTileCount(0x1p53), std::uint64_t{1} << 53);
  EXPECT_EQ(ceilToTileCount(std::nextafter(0x1p63, 0.0)), kTwoTo63 - 1024);
  for (const double value : {0x1p63, 0x1p64, 1e300, kInfinity, kNaN}) {
    EXPECT_EQ(ceilToTileCount(value), kMaxCount) << value;
  }
}

// Random bit patterns reach every magnitude, infinities and NaN among them.
TEST(Narrowing, AgreesWithTheProcessorForRandomBitPatterns) {
  std::mt19937_64 random(TestSupport::testSeed());
  std::uniform_real_distribution<double> nearInt32(-4.0e9, 4.0e9);
  for (int n = 0; n < 200000; ++n) {
    const double any = std::bit_cast<double>(random());
    const double near = nearInt32(random);
    ASSERT_EQ(truncateToInt32(any), TestSupport::processorInt32(any)) << any;
    ASSERT_EQ(truncateToInt32(near), TestSupport::processorInt32(near)) << near;
    if (!(any < 0x1p63)) continue;
    ASSERT_EQ(ceilToTileCount(any),
              static_cast<std::uint64_t>(TestSupport::processorInt64(std::ceil(any))))
        << any;
  }
}

}  // namespace LidarLib
