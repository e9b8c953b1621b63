// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Allocator.hpp"

#include <sys/resource.h>
#include <unistd.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <algorithm>
#include <fstream>

namespace MemCore {

void fitAllocator([[maybe_unused]] std::uint64_t budgetBytes) {
#ifdef __GLIBC__
  // Blocks above the first size come from the system and go back to it at once; setting it also
  // ends glibc's habit of raising it with the sizes it meets. 32 MiB is the most it takes.
  // The lower bounds let the columns of a tile of some hundred thousand points be reused however
  // small the budget is; what they keep is a few megabytes for each thread.
  constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;
  const std::uint64_t mapped = std::clamp(budgetBytes / 256, 4 * kMiB, 32 * kMiB);
  const std::uint64_t kept = std::clamp(budgetBytes / 16, 8 * kMiB, 256 * kMiB);
  mallopt(M_MMAP_THRESHOLD, static_cast<int>(mapped));
  mallopt(M_TRIM_THRESHOLD, static_cast<int>(kept));
#endif
}

namespace {

/// The address space in use; 0 where the system does not tell.
std::uint64_t addressSpace() {
  std::ifstream file("/proc/self/statm");
  std::uint64_t pages = 0;
  file >> pages;
  return pages * static_cast<std::uint64_t>(std::max(0L, sysconf(_SC_PAGE_SIZE)));
}

}  // namespace

std::uint64_t usableMemory() {
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return machineMemory();
  const std::uint64_t allowed = limit.rlim_cur;
  return std::min(machineMemory(), allowed - std::min(allowed, addressSpace()));
}

std::uint64_t machineMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageBytes = sysconf(_SC_PAGE_SIZE);
  constexpr std::uint64_t kFallback = std::uint64_t{1} << 31U;
  if (pages <= 0 || pageBytes <= 0) return kFallback;
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageBytes);
}

}  // namespace MemCore
