// SPDX-License-Identifier: Apache-2.0

#include "formats/export/InOrder.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "tests/support/Seed.hpp"

namespace Formats {
namespace {

using MemCore::Failure;
using MemCore::Outcome;
using testing::ElementsAre;
using testing::IsEmpty;

/// Follows steps and notes which.
class Notes {
 public:
  std::vector<std::size_t> taken;
  Outcome<void> operator()(std::size_t step) {
    taken.push_back(step);
    if (step == failing) return Failure{"full"};
    return {};
  }
  std::size_t failing = ~std::size_t{0};
};

TEST(InOrder, StepsWaitForThoseBeforeThem) {
  InOrder order(4);
  Notes notes;
  const auto complete = [&](std::size_t step) {
    return order.complete(step, [&](std::size_t k) { return notes(k); });
  };
  EXPECT_TRUE(complete(2).ok());
  EXPECT_THAT(notes.taken, IsEmpty());
  EXPECT_TRUE(complete(0).ok());
  EXPECT_THAT(notes.taken, ElementsAre(0));
  EXPECT_TRUE(complete(1).ok());
  EXPECT_THAT(notes.taken, ElementsAre(0, 1, 2));
  EXPECT_TRUE(complete(3).ok());
  EXPECT_THAT(notes.taken, ElementsAre(0, 1, 2, 3));
}

TEST(InOrder, NothingFollowsAFailure) {
  InOrder order(3);
  Notes notes;
  notes.failing = 1;
  const auto complete = [&](std::size_t step) {
    return order.complete(step, [&](std::size_t k) { return notes(k); });
  };
  EXPECT_TRUE(complete(1).ok());
  EXPECT_EQ(complete(0).error(), "full");
  EXPECT_TRUE(complete(2).ok());
  EXPECT_THAT(notes.taken, ElementsAre(0, 1));
}

TEST(InOrder, AnyOrderByAnyThreadGivesTheSame) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  std::mt19937_64 random(seed);
  for (int round = 0; round < 50; ++round) {
    std::vector<std::size_t> steps(1 + random() % 200);
    std::iota(steps.begin(), steps.end(), 0);
    const std::vector<std::size_t> inOrder = steps;
    std::shuffle(steps.begin(), steps.end(), random);
    InOrder order(steps.size());
    Notes notes;
#pragma omp parallel for schedule(dynamic, 1)
    for (std::size_t i = 0; i < steps.size(); ++i) {
      EXPECT_TRUE(order.complete(steps[i], [&](std::size_t k) { return notes(k); }).ok());
    }
    EXPECT_EQ(notes.taken, inOrder) << "seed " << seed;
  }
}

}  // namespace
}  // namespace Formats
