// SPDX-License-Identifier: Apache-2.0
//
// Tilings of random clouds against the plain version.

#include <gtest/gtest.h>

#include <bit>
#include <random>

#include "planning/TilingLayout.hpp"
#include "tests/planning/PlainPlanning.hpp"
#include "tests/planning/PlanningScene.hpp"
#include "tests/support/ConsoleCapture.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib {

namespace {

using TestSupport::BoxHandle;
using TestSupport::Lengths;
using TestSupport::PlainTiling;
using TestSupport::Point;

/// Usual lengths, none, negative ones, and now and then any bit pattern at all.
double randomLength(std::mt19937_64& random) {
  std::uniform_real_distribution<double> usual(0.05, 40.0);
  switch (random() % 8) {
    case 0:
    case 1:
    case 2:
      return 0.0;
    case 3:
      return -usual(random);
    case 4:
      return std::bit_cast<double>(random());
    default:
      return usual(random);
  }
}

/// Equal, NaN included.
bool sameNumbers(const Point& a, const Point& b) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (!(a[axis] == b[axis] || (a[axis] != a[axis] && b[axis] != b[axis]))) return false;
  }
  return true;
}

Point asPoint(const Lengths& v) { return {v[0], v[1], v[2]}; }

void expectSame(const TilingLayout& layout, const PlainTiling& plain) {
  EXPECT_EQ(layout.message, plain.message);
  EXPECT_EQ(layout.info, plain.info);
  EXPECT_EQ((std::array{layout.nx, layout.ny, layout.nz}), plain.counts);
  if (!plain.message.empty()) {
    EXPECT_FALSE(layout.tiledBox);
    EXPECT_EQ(layout.fragmentLength, Lengths{});
    return;
  }
  EXPECT_TRUE(sameNumbers(asPoint(layout.fragmentLength),
                          {plain.length[0], plain.length[1], plain.length[2]}));
  EXPECT_TRUE(sameNumbers(layout.tiledBox->min(), plain.tiledMin));
  EXPECT_TRUE(sameNumbers(layout.tiledBox->max(), plain.tiledMax));
}

std::string allMessages(const TestSupport::ConsoleCapture& console) {
  std::string all;
  for (const std::string& message : console.messages()) all += message + "\n";
  return all;
}

/// A cloud that is dense enough for an estimate, by facts alone: fragments side by side and over
/// each other, of any density up to beyond what a cell holds.
MemCore::StrongPtr<Fiber::Field> denseRandomCloud(std::mt19937_64& random, BoxHandle& box) {
  std::uniform_real_distribution<double> place(0.0, 400.0);
  std::uniform_real_distribution<double> edge(0.1, 200.0);
  std::uniform_real_distribution<double> density(0.2, 300.0);
  TestSupport::CloudBuilder builder;
  for (std::size_t n = 1 + random() % 20; n > 0; --n) {
    const Point min{place(random), place(random), place(random)};
    const Point max{min.x + edge(random), min.y + edge(random), min.z + edge(random)};
    const double count = density(random) * (max.x - min.x) * (max.y - min.y);
    builder.fragmentOf(TestSupport::promisedPoints(static_cast<std::uint64_t>(count) + 1,
                                                   TestSupport::makeBox(min, max)));
  }
  Fiber::expandBoundingBox(builder.positions(), box);
  return builder.positions();
}

void compare(std::mt19937_64& random, const MemCore::StrongPtr<Fiber::Field>& positions,
             const BoxHandle& box) {
  Lengths length{{randomLength(random), randomLength(random), randomLength(random)}};
  const bool hasWaveforms = random() % 2 == 0;
  const PlainTiling plain =
      TestSupport::plainTiling(*box, length.components, positions, hasWaveforms);
  const TestSupport::ConsoleCapture console;
  expectSame(estimateTiling(box, length, 0.0, positions, hasWaveforms), plain);
  EXPECT_TRUE(sameNumbers(asPoint(length), {plain.length[0], plain.length[1], plain.length[2]}));
  EXPECT_EQ(allMessages(console), plain.console);
}

}  // namespace

TEST(TilingLayoutRandom, CloudsOfPointsAgreeWithThePlainVersion) {
  std::mt19937_64 random(TestSupport::testSeed());
  int compared = 0;
  for (int n = 0; n < 150 && !testing::Test::HasFailure(); ++n) {
    const auto fragments = TestSupport::randomCloud(random, n % 4 == 0);
    const BoxHandle box = TestSupport::boxOfPoints(fragments);
    if (!box) continue;
    compare(random, TestSupport::positionsOf(fragments), box);
    ++compared;
  }
  EXPECT_TRUE(compared > 40 || testing::Test::HasFailure());
}

TEST(TilingLayoutRandom, DenseCloudsAgreeWithThePlainVersion) {
  std::mt19937_64 random(TestSupport::testSeed());
  for (int n = 0; n < 300 && !testing::Test::HasFailure(); ++n) {
    BoxHandle box;
    const auto positions = denseRandomCloud(random, box);
    compare(random, positions, box);
  }
}

}  // namespace LidarLib
