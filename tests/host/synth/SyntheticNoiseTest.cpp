// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticNoise.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace Synth {
namespace {

TEST(RandomStream, BelongsToItsOwnerAndNumber) {
  RandomStream first(7, 3, 11);
  RandomStream same(7, 3, 11);
  RandomStream otherNumber(7, 3, 12);
  RandomStream otherSeed(8, 3, 11);
  const std::uint64_t value = first.next();
  EXPECT_EQ(same.next(), value);
  EXPECT_NE(otherNumber.next(), value);
  EXPECT_NE(otherSeed.next(), value);
}

TEST(RandomStream, UniformFillsItsRange) {
  constexpr int kDraws = 20000;
  double sum = 0;
  double least = 1;
  double most = -1;
  for (int i = 0; i < kDraws; ++i) {
    const double value = RandomStream(1, 2, static_cast<std::uint64_t>(i)).uniform(-1.0, 1.0);
    sum += value;
    least = std::min(least, value);
    most = std::max(most, value);
  }
  EXPECT_GE(least, -1.0);
  EXPECT_LT(most, 1.0);
  EXPECT_LT(least, -0.99);
  EXPECT_GT(most, 0.99);
  EXPECT_NEAR(sum / kDraws, 0.0, 0.02);
}

TEST(RandomStream, NormalHasUnitDeviationAndBoundedTails) {
  constexpr int kDraws = 50000;
  RandomStream random(5, 0, 0);
  double sum = 0;
  double squares = 0;
  for (int i = 0; i < kDraws; ++i) {
    const double value = random.normal();
    ASSERT_LE(std::abs(value), RandomStream::kLargestNormal);
    sum += value;
    squares += value * value;
  }
  EXPECT_NEAR(sum / kDraws, 0.0, 0.02);
  EXPECT_NEAR(squares / kDraws, 1.0, 0.03);
}

TEST(ValueNoise, IsContinuousAcrossCellsAndBounded) {
  constexpr double kStep = 1e-4;
  for (double x = -3.0; x < 3.0; x += 0.0937) {
    const double here = valueNoise(9, x, -x * 0.7);
    EXPECT_LE(std::abs(here), 1.0);
    EXPECT_NEAR(valueNoise(9, x + kStep, -x * 0.7), here, 4 * kStep);
  }
  for (int corner = -2; corner <= 2; ++corner) {
    EXPECT_NEAR(valueNoise(9, corner - 1e-9, 0.5), valueNoise(9, corner + 1e-9, 0.5), 1e-6);
  }
}

TEST(ValueNoise, DiffersBetweenSeeds) {
  EXPECT_NE(valueNoise(1, 0.0, 0.0), valueNoise(2, 0.0, 0.0));
  EXPECT_NE(fractalNoise(1, 0.3, 0.4, 4), fractalNoise(2, 0.3, 0.4, 4));
}

}  // namespace
}  // namespace Synth
