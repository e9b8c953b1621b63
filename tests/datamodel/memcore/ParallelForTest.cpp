// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/ParallelFor.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace MemCore {
namespace {

TEST(ParallelFor, DoesEveryStepOnce) {
  std::vector<std::atomic<int>> done(1000);
  parallelFor(done.size(), [&](std::size_t i) { ++done[i]; });
  for (const auto& times : done) EXPECT_EQ(times, 1);
}

TEST(ParallelFor, RaisesWhatAStepHasThrown) {
  std::atomic<int> done = 0;
  const auto run = [&] {
    parallelFor(100, [&](std::size_t i) {
      ++done;
      if (i == 41) throw std::runtime_error("41");
    });
  };
  EXPECT_THROW(run(), std::runtime_error);
  EXPECT_EQ(done, 100);
}

TEST(ShareSteps, DoesEveryStepOnceOutsideOfAnyLoop) {
  std::vector<int> done(100);
  shareSteps(done.size(), [&](std::size_t i) { ++done[i]; });
  EXPECT_EQ(done, std::vector<int>(100, 1));
  shareSteps(0, [](std::size_t) { ADD_FAILURE(); });
}

TEST(ShareSteps, DoesEveryStepOfEveryStep) {
  std::vector<std::atomic<int>> done(2000);
  parallelFor(20, [&](std::size_t outer) {
    shareSteps(100, [&](std::size_t inner) { ++done[100 * outer + inner]; });
    // All of its own are done when it comes back.
    for (std::size_t inner = 0; inner < 100; ++inner) EXPECT_EQ(done[100 * outer + inner], 1);
  });
  for (const auto& times : done) EXPECT_EQ(times, 1);
}

TEST(ShareSteps, RaisesWhatAStepHasThrownWhereItWasCalled) {
  std::atomic<int> raised = 0;
  std::atomic<int> done = 0;
  parallelFor(4, [&](std::size_t outer) {
    try {
      shareSteps(50, [&](std::size_t inner) {
        ++done;
        if (outer == 2 && inner == 7) throw std::runtime_error("7");
      });
    } catch (const std::runtime_error&) {
      EXPECT_EQ(outer, 2U);
      ++raised;
    }
  });
  EXPECT_EQ(raised, 1);
  EXPECT_EQ(done, 200);
}

// One of the two steps of the loop takes long: the thread of the other one helps. A step of the
// long one waits for that, and gives up after a while.
TEST(ShareSteps, ThreadsWithoutStepsOfTheirOwnHelp) {
  if (omp_get_max_threads() < 2) GTEST_SKIP() << "needs two threads";
  std::atomic<int> helpers = 0;
  parallelFor(2, [&](std::size_t outer) {
    if (outer == 1) return;
    const int own = omp_get_thread_num();
    shareSteps(1000, [&](std::size_t) {
      if (omp_get_thread_num() != own) ++helpers;
      if (helpers == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
  });
  EXPECT_GT(helpers, 0);
}

}  // namespace
}  // namespace MemCore
