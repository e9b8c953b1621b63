// SPDX-License-Identifier: Apache-2.0
//
// A parallel loop whose steps can fail: every step is carried out, in any order and by any thread,
// and the text of the first failed one (by its number, not by time) is the result. Called from
// within a parallel region it runs in the calling thread alone, as OpenMP has it by default.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// Work below this is done sooner by one thread than it takes to wake the others.
inline constexpr std::uint64_t kWorthThreadsBytes = std::uint64_t{1} << 20U;

/// Runs step(i) for every i below `count`; a step returns Outcome<void> and writes only what is
/// its own. Memory that runs out within a step becomes its text. `workBytes` says how much all
/// steps together have to handle.
template <class Step>
MemCore::Outcome<void> parallelTexts(std::size_t count, std::uint64_t workBytes, const Step& step) {
  const bool worthThreads = count > 1 && workBytes >= kWorthThreadsBytes;
  std::vector<MemCore::Outcome<void>> outcomes(count);
#pragma omp parallel for schedule(dynamic, 1) if (worthThreads)
  for (std::size_t i = 0; i < count; ++i) {
    try {
      outcomes[i] = step(i);
    } catch (const std::bad_alloc&) {
      outcomes[i] = MemCore::Failure{"not enough memory"};
    }
  }
  for (auto& outcome : outcomes) {
    if (!outcome.ok()) return outcome;
  }
  return {};
}

/// Runs step(i) for every i below `count`, many of them at a time: for steps of less than a
/// microsecond. After a failed step the rest of its block is left out; the result is the text of
/// the first failed one.
template <class Step>
MemCore::Outcome<void> parallelBlocks(std::size_t count, const Step& step) {
  constexpr std::size_t kBlock = 1024;
  const std::size_t blocks = (count + kBlock - 1) / kBlock;
  const std::uint64_t workBytes = count <= kBlock ? 0 : kWorthThreadsBytes;
  return parallelTexts(blocks, workBytes, [&](std::size_t b) -> MemCore::Outcome<void> {
    for (std::size_t i = b * kBlock; i < std::min(count, (b + 1) * kBlock); ++i) {
      if (auto done = step(i); !done.ok()) return done;
    }
    return {};
  });
}

}  // namespace Fiber::Container
