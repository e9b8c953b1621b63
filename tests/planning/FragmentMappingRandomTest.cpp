// SPDX-License-Identifier: Apache-2.0
//
// Mappings of random clouds against the plain version that compares every tile with every fragment:
// the same sets, walked in the same order, for every number of threads.

#include <gtest/gtest.h>
#include <omp.h>

#include <bit>
#include <random>

#include "planning/FragmentMapping.hpp"
#include "tests/planning/PlainPlanning.hpp"
#include "tests/planning/PlanningScene.hpp"
#include "tests/support/ConsoleCapture.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib {

namespace {

using TestSupport::Lengths;
using TestSupport::makeBox;
using TestSupport::makeLayout;
using TestSupport::outputView;
using TestSupport::Point;

/// Numbers of the fragments in the order in which the set is walked.
std::vector<unsigned> walk(const FragmentSet& fragments) {
  std::vector<unsigned> numbers;
  for (const auto& id : fragments) numbers.push_back(id->number());
  return numbers;
}

/// Restores the number of threads when it ends.
class ThreadCount {
 public:
  explicit ThreadCount(int threads) : former_(omp_get_max_threads()) {
    omp_set_num_threads(threads);
  }
  ~ThreadCount() { omp_set_num_threads(former_); }
  ThreadCount(const ThreadCount&) = delete;
  ThreadCount& operator=(const ThreadCount&) = delete;

 private:
  int former_;
};

void compare(const TilingLayout& layout, double overlap,
             const MemCore::StrongPtr<Fiber::Field>& positions) {
  const auto view = outputView({{layout.nx, layout.ny, layout.nz}});
  const auto ids = positions->getFragmentIDs();
  const auto plain = TestSupport::plainMapping(layout, view, overlap, ids, positions);
  const TestSupport::ConsoleCapture console;
  for (const int threads : {1, 3}) {
    const ThreadCount limit(threads);
    const FragmentMapping mapping = mapFragmentBoxes(layout, view, overlap, ids, positions);
    ASSERT_EQ(mapping.tilesWithData, plain.tilesWithData);
    ASSERT_EQ(mapping.inputPointTotal, plain.inputPointTotal);
    ASSERT_EQ(mapping.tileCells->size(), plain.tileCells.size());
    for (std::size_t t = 0; t < plain.tileCells.size(); ++t) {
      ASSERT_EQ(walk((*mapping.tileCells)[t].first), walk(plain.tileCells[t].first)) << t;
      ASSERT_EQ((*mapping.tileCells)[t].second, plain.tileCells[t].second) << t;
    }
  }
}

double randomOverlap(std::mt19937_64& random) {
  const double overlaps[] = {0.0, 0.0, 0.05, 0.5, 3.0, -1.0};
  return overlaps[random() % 6];
}

/// A layout as it is settled for a cloud, of at most some thousand tiles.
TilingLayout settledLayout(std::mt19937_64& random, const TestSupport::BoxHandle& box) {
  Lengths length;
  const auto edge = box->diagonal();
  for (std::size_t axis = 0; axis < 3; ++axis) {
    // Often a divisor of the edge, so that fragments end on faces.
    const double parts = random() % 2 == 0 ? static_cast<double>(1 + random() % 12)
                                           : 1.0 + static_cast<double>(random() % 1000) / 90.0;
    length[axis] = edge[axis] > 0.0 ? edge[axis] / parts : 1.0;
  }
  return estimateTiling(box, length, 0.0, nullptr, false);
}

/// A box of any bit patterns, of usual numbers, or of something between.
TestSupport::BoxHandle randomBox(std::mt19937_64& random) {
  std::uniform_real_distribution<double> usual(-20.0, 60.0);
  const auto number = [&] {
    return random() % 12 == 0 ? std::bit_cast<double>(random()) : usual(random);
  };
  Point a{number(), number(), number()};
  Point b{number(), number(), number()};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (b[axis] < a[axis] && random() % 10 != 0) std::swap(a[axis], b[axis]);
  }
  return makeBox(a, b);
}

MemCore::StrongPtr<Fiber::Field> randomBoxes(std::mt19937_64& random, std::size_t count) {
  TestSupport::CloudBuilder builder;
  while (count-- > 0) builder.fragmentOf(TestSupport::promisedPoints(1, randomBox(random)));
  return builder.positions();
}

Fiber::MultiIndex<3> randomCounts(std::mt19937_64& random) {
  return {{1 + random() % 12, 1 + random() % 12, 1 + random() % 6}};
}

}  // namespace

TEST(FragmentMappingRandom, CloudsOfPointsAgreeWithThePlainVersion) {
  std::mt19937_64 random(TestSupport::testSeed());
  int compared = 0;
  for (int n = 0; n < 60 && !testing::Test::HasFailure(); ++n) {
    const auto fragments = TestSupport::randomCloud(random, n % 3 == 0);
    const auto box = TestSupport::boxOfPoints(fragments);
    if (!box) continue;
    const TilingLayout layout = settledLayout(random, box);
    if (!layout.message.empty()) continue;  // an infinite edge
    compare(layout, randomOverlap(random), TestSupport::positionsOf(fragments));
    ++compared;
  }
  EXPECT_TRUE(compared > 15 || testing::Test::HasFailure());
}

TEST(FragmentMappingRandom, BoxesOfOddNumbersAgreeWithThePlainVersion) {
  std::mt19937_64 random(TestSupport::testSeed());
  for (int n = 0; n < 60 && !testing::Test::HasFailure(); ++n) {
    const TilingLayout layout = makeLayout({0, 0, 0}, {{5, 4.3, 6.1}}, randomCounts(random));
    compare(layout, randomOverlap(random), randomBoxes(random, 1 + random() % 60));
  }
}

// Tiles that are shorter than the rounding of their coordinates: many faces coincide.
TEST(FragmentMappingRandom, TilesBelowTheRoundingAgreeWithThePlainVersion) {
  std::mt19937_64 random(TestSupport::testSeed());
  constexpr double kFar = 1e16;
  for (int n = 0; n < 20 && !testing::Test::HasFailure(); ++n) {
    TestSupport::CloudBuilder builder;
    for (int fragment = 0; fragment < 30; ++fragment) {
      const double x = kFar + 2.0 * static_cast<double>(random() % 200);
      const double end = x + 2.0 * static_cast<double>(random() % 20);
      builder.fragmentOf(TestSupport::promisedPoints(1, makeBox({x, 0, 0}, {end, 1, 1})));
    }
    compare(makeLayout({kFar, 0, 0}, {{0.7, 1, 1}}, {{600, 1, 1}}), 0.0, builder.positions());
  }
}

// No layout that was settled is like these, but the mapping takes any.
TEST(FragmentMappingRandom, LayoutsOfOddNumbersAgreeWithThePlainVersion) {
  std::mt19937_64 random(TestSupport::testSeed());
  const auto anyNumber = [&] {
    const double numbers[] = {-5.0,
                              0.0,
                              5.0,
                              -1e308,
                              1e308,
                              std::bit_cast<double>(random()),
                              std::numeric_limits<double>::infinity(),
                              std::nan("")};
    return numbers[random() % 8];
  };
  for (int n = 0; n < 120 && !testing::Test::HasFailure(); ++n) {
    const Point corner{anyNumber(), random() % 2 == 0 ? anyNumber() : 0.0, 0.0};
    const Lengths length{{anyNumber(), random() % 2 == 0 ? anyNumber() : 3.0, 7.0}};
    compare(makeLayout(corner, length, randomCounts(random)), random() % 2 == 0 ? anyNumber() : 0.0,
            randomBoxes(random, 1 + random() % 20));
  }
}

TEST(FragmentMappingRandom, ManyTilesInARowAgreeWithThePlainVersion) {
  std::mt19937_64 random(TestSupport::testSeed());
  for (const Fiber::MultiIndex<3>& counts :
       {Fiber::MultiIndex<3>{{5000, 1, 1}}, Fiber::MultiIndex<3>{{1, 5000, 1}},
        Fiber::MultiIndex<3>{{1, 1, 5000}}, Fiber::MultiIndex<3>{{70, 70, 1}}}) {
    compare(makeLayout({0, 0, 0}, {{0.01, 0.01, 0.01}}, counts), 0.0, randomBoxes(random, 200));
  }
}

}  // namespace LidarLib
