// SPDX-License-Identifier: Apache-2.0

#include "formats/export/Scaling.hpp"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <random>

#include "tests/formats/export/ExportTestGrids.hpp"
#include "tests/support/Seed.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using testing::HasSubstr;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

ExportSource gridOf(const std::vector<Point>& points) {
  CloudBuilder cloud;
  if (points.empty()) {
    cloud.currentGrid()->makeCartesianRepresentation(3, "", 0);
    cloud.fragment({});
  } else {
    cloud.fragment(points);
  }
  return sourceOf(cloud);
}

void hint(const ExportSource& source, double scale, double offset) {
  auto& properties = source.positions->properties();
  for (const auto& [name, value] :
       {std::pair("GridScale", scale), std::pair("GridOffset", offset)}) {
    properties.setAttribute(name, MemCore::makeStrong<MemCore::Chunk<double>>(3, value));
  }
}

SourceFile scaledFile(double scale, double offset) {
  LasWriterOptions options = lasOptions(0);
  options.header.scale.fill(scale);
  options.header.offset.fill(offset);
  return sourceFile("a.las", options);
}

void expectAll(const MemCore::Outcome<CoordinateGrid>& grid, double scale, double offset) {
  ASSERT_TRUE(grid.ok()) << grid.error();
  for (const auto& axis : *grid) {
    EXPECT_EQ(axis.scale, scale);
    EXPECT_EQ(axis.offset, offset);
  }
}

}  // namespace

TEST(Scaling, FilesThatAgreeAreFollowed) {
  ExportSource source = gridOf({{1, 2, 3}});
  hint(source, 0.5, 0);
  source.files = {scaledFile(0.125, 7), scaledFile(0.125, 7)};
  expectAll(settleScaling(source, {}), 0.125, 7);
}

TEST(Scaling, WithoutFilesTheHintIsFollowedWhereItHolds) {
  const ExportSource source = gridOf({{1.5, 2, 3}});
  hint(source, 0.5, 1);
  expectAll(settleScaling(source, {}), 0.5, 1);
}

TEST(Scaling, HintThatDoesNotHoldIsNotFollowed) {
  const ExportSource source = gridOf({{1.25, 2, 3}});
  hint(source, 0.5, 1);
  const auto grid = settleScaling(source, {});
  ASSERT_TRUE(grid.ok()) << grid.error();
  EXPECT_TRUE(encodePositions(std::array{1.25, 2.0, 3.0}, *grid, false).ok());
}

TEST(Scaling, FilesThatDifferShareTheFinerGridWhereItHoldsAll) {
  ExportSource source = gridOf({{1.5, 2, 3}, {1.25, 7, 9}});
  source.files = {scaledFile(0.5, 0), scaledFile(0.25, 0)};
  expectAll(settleScaling(source, {}), 0.25, 0);
}

TEST(Scaling, PointsOnNoGridAreRefusedUnlessRounded) {
  ExportSource source = gridOf({{M_PI, M_E, std::sqrt(2)}, {1e5 * M_E, 1e3, 17}});
  source.files = {scaledFile(0.5, 0), scaledFile(0.25, 0)};
  EXPECT_EQ(
      settleScaling(source, {}).error(),
      "positions: no scale and offset hold them exactly in 32 bits (a lossy export rounds them)");
  LasExportOptions lossy;
  lossy.isLossy = true;
  const auto grid = settleScaling(source, lossy);
  ASSERT_TRUE(grid.ok()) << grid.error();
  EXPECT_EQ((*grid)[0].scale, 1e-3);
  EXPECT_EQ((*grid)[0].offset, 3);
  EXPECT_EQ((*grid)[1].scale, 1e-6);
  EXPECT_EQ((*grid)[2].scale, 1e-8);
}

TEST(Scaling, RoundScalesArePowersOfTenAsTheyAreWritten) {
  LasExportOptions lossy;
  lossy.isLossy = true;
  for (const auto& [extent, scale] :
       {std::pair(1e0, 1e-9), std::pair(2e4, 1e-5), std::pair(2e5, 1e-4), std::pair(1e9, 1e0),
        std::pair(3e15, 1e7)}) {
    const auto grid =
        settleScaling(gridOf({{M_PI, M_E, 0.1 + M_PI}, {M_PI + extent, M_E, M_PI}}), lossy);
    ASSERT_TRUE(grid.ok()) << grid.error();
    EXPECT_EQ((*grid)[0].scale, scale) << extent;
  }
}

TEST(Scaling, PointsTooFarApartAreRefused) {
  LasExportOptions lossy;
  lossy.isLossy = true;
  const auto grid = settleScaling(gridOf({{-1.5e308, M_E, M_PI}, {1.5e308, M_E, M_PI}}), lossy);
  ASSERT_FALSE(grid.ok());
  EXPECT_EQ(grid.error(), "positions: too far apart for 32 bits");
}

TEST(Scaling, WhatIsNoNumberIsRefused) {
  for (const double odd : {kInfinity, -kInfinity, std::nan("")}) {
    LasExportOptions lossy;
    lossy.isLossy = true;
    EXPECT_THAT(settleScaling(gridOf({{0, odd, 0}}), lossy).error(),
                HasSubstr("positions: cannot be stored, found one that is not finite"));
  }
}

TEST(Scaling, WishesOfTheUserStandAboveAll) {
  ExportSource source = gridOf({{M_PI, M_E, 0}});
  source.files = {scaledFile(0.5, 3)};
  LasExportOptions options;
  options.scale = {0.25, 0.25, 0.25};
  expectAll(settleScaling(source, options), 0.25, 3);
  options.offset = {1, 1, 1};
  source.files.clear();
  expectAll(settleScaling(source, options), 0.25, 1);
}

TEST(Scaling, GridWithoutPointsTakesAny) {
  ExportSource source = gridOf({});
  EXPECT_TRUE(settleScaling(source, {}).ok());
  source.files = {scaledFile(0.5, 3), scaledFile(0.25, 4)};
  expectAll(settleScaling(source, {}), 0.5, 3);
}

TEST(EncodePositions, ExactOnesComeBackExactly) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  const CoordinateGrid grid{{{0.001, 5e5}, {0.01, -2e6}, {1e-7, 0}}};
  std::vector<std::int32_t> raw(3000);
  std::vector<double> xyz(raw.size());
  for (std::size_t i = 0; i < raw.size(); ++i) {
    raw[i] = static_cast<std::int32_t>(random());
    const volatile double scaled = raw[i] * grid[i % 3].scale;
    xyz[i] = scaled + grid[i % 3].offset;
  }
  const auto encoded = encodePositions(xyz, grid, false);
  ASSERT_TRUE(encoded.ok()) << encoded.error();
  for (std::size_t i = 0; i < raw.size(); ++i) {
    ASSERT_EQ(encoded->columns[i % 3][i / 3], raw[i]) << i;
  }
}

TEST(EncodePositions, LossyOnesAreWithinHalfAStep) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  std::uniform_real_distribution<double> coordinate(-1e6, 1e6);
  const CoordinateGrid grid{{{0.01, 3}, {0.5, 0}, {1, -7.25}}};
  std::vector<double> xyz(3000);
  for (double& value : xyz) value = coordinate(random);
  const auto encoded = encodePositions(xyz, grid, true);
  ASSERT_TRUE(encoded.ok()) << encoded.error();
  for (std::size_t i = 0; i < xyz.size(); ++i) {
    const auto& axis = grid[i % 3];
    const double back = encoded->columns[i % 3][i / 3] * axis.scale + axis.offset;
    ASSERT_NEAR(back, xyz[i], axis.scale / 2 + 1e-9) << i;
  }
  EXPECT_FALSE(encodePositions(xyz, grid, false).ok());
}

TEST(EncodePositions, DigitsCountWhereLastBitsDiffer) {
  // 100.07 lies an ulp beside 7 * 0.01 + 100, which is what readers make of the integer.
  const CoordinateGrid grid{{{0.01, 100}, {0.01, 0}, {0.01, 0}}};
  const volatile double scaled = 7 * 0.01;
  const double beside = std::nextafter(scaled + 100.0, 1e300);
  const auto encoded = encodePositions(std::array{beside, 0.07, 0.0}, grid, false);
  ASSERT_TRUE(encoded.ok()) << encoded.error();
  EXPECT_THAT(encoded->columns[0], testing::ElementsAre(7));
  EXPECT_FALSE(encodePositions(std::array{100.0700001, 0.07, 0.0}, grid, false).ok());
}

TEST(Scaling, DecimalsOfTextAreFound) {
  const auto grid =
      settleScaling(gridOf({{634123.45, 5123456.789, 17.5}, {634000.01, 5e6, 1}}), {});
  ASSERT_TRUE(grid.ok()) << grid.error();
  EXPECT_EQ((*grid)[0].scale, 0.01);
  EXPECT_EQ((*grid)[1].scale, 0.001);
}

TEST(EncodePositions, NegativeZeroIsZero) {
  const auto encoded = encodePositions(std::array{-0.0, 0.0, -0.0}, CoordinateGrid{}, false);
  ASSERT_TRUE(encoded.ok()) << encoded.error();
  EXPECT_THAT(encoded->columns[0], testing::ElementsAre(0));
  EXPECT_THAT(encoded->columns[2], testing::ElementsAre(0));
}

TEST(EncodePositions, TheFirstThatDoesNotFitIsNamed) {
  const CoordinateGrid grid{{{1, 0}, {0.5, 10}, {1, 0}}};
  EXPECT_EQ(encodePositions(std::array{1.0, 2.25, 3.0}, grid, false).error(),
            "positions: coordinate not exact (a lossy export rounds it), found y = 2.25, scale "
            "0.5, offset 10");
}

TEST(EncodePositions, BeyondThirtyTwoBitsEvenRoundingDoesNotHelp) {
  const CoordinateGrid grid{};
  for (const double far : {2147483648.0, -2147483649.0, 1e300, kInfinity, std::nan("")}) {
    EXPECT_THAT(encodePositions(std::array{0.0, 0.0, far}, grid, true).error(),
                HasSubstr("positions: coordinate beyond 32 bits, found z = "));
  }
  const auto ends =
      encodePositions(std::array{2147483647.0, -2147483648.0, 2147483647.4}, grid, true);
  ASSERT_TRUE(ends.ok()) << ends.error();
  EXPECT_EQ(ends->columns[1][0], std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(ends->columns[2][0], std::numeric_limits<std::int32_t>::max());
}

}  // namespace Formats
