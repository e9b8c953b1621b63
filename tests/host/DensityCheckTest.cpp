// SPDX-License-Identifier: Apache-2.0

#include "host/DensityCheck.hpp"

#include <gtest/gtest.h>

#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;

/// Two fragments side by side over 200 x 100 units, each of `count` points.
CloudBuilder twoFragments(std::size_t count) {
  CloudBuilder builder;
  for (const double x : {0.0, 100.0}) {
    std::vector<LidarLib::TestSupport::Point> points(count, {x + 50.0, 50.0, 0.0});
    points.front() = {x, 0.0, 0.0};
    points.back() = {x + 100.0, 100.0, 0.0};
    builder.fragment(points);
  }
  return builder;
}

LidarLib::TilingLayout estimated(CloudBuilder& builder, double density) {
  LidarLib::TilingLayout layout;
  layout.positions = builder.positions();
  layout.isEstimated = density > 0.0;
  layout.estimatedDensity = density;
  return layout;
}

TEST(DensityCheck, MeanAndPeakFollowTheFragments) {
  auto builder = twoFragments(20000);
  const DensityFigures figures = measureDensity(builder.positions());
  EXPECT_NEAR(figures.mean, 2.0, 0.1);
  EXPECT_NEAR(figures.peak, 2.0, 0.1);
}

TEST(DensityCheck, GoodEstimateIsNotWarnedOf) {
  auto builder = twoFragments(20000);
  EXPECT_EQ(densityWarning(estimated(builder, 2.0), true), "");
  EXPECT_EQ(densityWarning(estimated(builder, 0.0), false), "");
}

TEST(DensityCheck, MissingEstimateNamesTheFlags) {
  auto builder = twoFragments(20);
  const std::string warning = densityWarning(estimated(builder, 0.0), true);
  EXPECT_NE(warning.find("too few points"), std::string::npos) << warning;
  EXPECT_NE(warning.find("--points-per-tile"), std::string::npos) << warning;
}

TEST(DensityCheck, DensityBeyond255IsWarnedOf) {
  auto builder = twoFragments(3000000);
  const std::string warning = densityWarning(estimated(builder, 44.0), true);
  EXPECT_NE(warning.find("up to 300 points"), std::string::npos) << warning;
}

TEST(DensityCheck, EstimateFarFromTheTruthIsWarnedOf) {
  auto builder = twoFragments(20000);
  EXPECT_NE(densityWarning(estimated(builder, 0.5), true), "");
}

TEST(DensityCheck, CloudWithoutExtentHasNoDensity) {
  CloudBuilder builder;
  builder.fragment({{1, 1, 1}, {1, 1, 1}});
  EXPECT_EQ(measureDensity(builder.positions()).mean, 0.0);
  EXPECT_EQ(measureDensity(nullptr).peak, 0.0);
}

}  // namespace
}  // namespace Host
