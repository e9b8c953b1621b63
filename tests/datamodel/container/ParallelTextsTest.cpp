// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ParallelTexts.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <string>

namespace Fiber::Container {
namespace {

using MemCore::Failure;
using MemCore::Outcome;

TEST(ParallelTexts, FirstFailedStepByNumberIsTheResult) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> done{0};
    const auto outcome =
        parallelTexts(100, kWorthThreadsBytes, [&](std::size_t i) -> Outcome<void> {
          ++done;
          if (i % 30 == 29) return Failure{"step " + std::to_string(i)};
          return {};
        });
    ASSERT_FALSE(outcome.ok());
    EXPECT_EQ(outcome.error(), "step 29");
    EXPECT_EQ(done, 100);
  }
}

TEST(ParallelTexts, MemoryThatRunsOutIsAText) {
  const auto outcome = parallelTexts(4, kWorthThreadsBytes, [](std::size_t i) -> Outcome<void> {
    if (i == 2) throw std::bad_alloc();
    return {};
  });
  EXPECT_EQ(outcome.error(), "not enough memory");
}

TEST(ParallelTexts, SmallWorkStaysInOneThread) {
  std::atomic<int> largestTeam{0};
  const auto step = [&](std::size_t) -> Outcome<void> {
    largestTeam = std::max(largestTeam.load(), omp_get_num_threads());
    return {};
  };
  EXPECT_TRUE(parallelTexts(10, 100, step).ok());
  EXPECT_EQ(largestTeam, 1);
  omp_set_num_threads(3);
  EXPECT_TRUE(parallelTexts(10, kWorthThreadsBytes, step).ok());
  EXPECT_EQ(largestTeam, 3);
  EXPECT_TRUE(parallelTexts(0, kWorthThreadsBytes, step).ok());
}

}  // namespace
}  // namespace Fiber::Container
