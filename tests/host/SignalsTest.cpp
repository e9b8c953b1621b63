// SPDX-License-Identifier: Apache-2.0

#include "host/Signals.hpp"

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>

namespace Host {
namespace {

/// Ends with 0 if the first signal is noted only. Runs in a process of its own, because signals
/// are noted for good.
void raiseOnce(int signal) {
  noteStopSignals();
  if (stopRequested()) std::exit(1);
  ::raise(signal);
  std::exit(stopRequested() ? 0 : 2);
}

TEST(SignalsDeathTest, FirstSignalIsNoted) {
  EXPECT_EXIT(raiseOnce(SIGINT), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(raiseOnce(SIGTERM), testing::ExitedWithCode(0), "");
}

TEST(SignalsDeathTest, SecondSignalEndsTheProcess) {
  EXPECT_EXIT(
      {
        noteStopSignals();
        ::raise(SIGINT);
        ::raise(SIGINT);
      },
      testing::KilledBySignal(SIGINT), "");
}

TEST(SignalsDeathTest, FileThatGrowsTooLargeEndsNothing) {
  EXPECT_EXIT(
      {
        noteStopSignals();
        ::raise(SIGXFSZ);
        std::exit(stopRequested() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Host
