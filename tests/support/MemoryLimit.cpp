// SPDX-License-Identifier: Apache-2.0

#include "tests/support/MemoryLimit.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

namespace LidarLib::TestSupport {

bool leaveMemory(std::uint64_t bytes) {
  std::ifstream file("/proc/self/statm");
  std::uint64_t pages = 0;
  file >> pages;
  if (!file) return false;
  const rlim_t total = pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGE_SIZE)) + bytes;
  const rlimit limit{total, total};
  return ::setrlimit(RLIMIT_AS, &limit) == 0;
}

}  // namespace LidarLib::TestSupport
