// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Allocator.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/MemoryLimit.hpp"

namespace MemCore {
namespace {

TEST(UsableMemory, IsThatOfTheMachineWithoutALimit) {
  EXPECT_GT(usableMemory(), 0U);
  EXPECT_EQ(usableMemory(), machineMemory());
}

/// Ends the process: 0 when what may be used is what the limit leaves, or little less.
[[noreturn]] void exitUnderLimit() {
  constexpr std::uint64_t kLeft = 100'000'000;
  if (!LidarLib::TestSupport::leaveMemory(kLeft)) std::exit(2);
  std::exit(usableMemory() <= kLeft && usableMemory() > kLeft / 2 ? 0 : 1);
}

TEST(UsableMemory, IsWhatTheLimitOfAddressSpaceLeaves) {
  EXPECT_EXIT(exitUnderLimit(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace MemCore
