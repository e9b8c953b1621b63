// SPDX-License-Identifier: Apache-2.0
//
// Parallel loops whose steps may throw. An exception must not leave a parallel region, or the
// program ends: it is kept, and raised again on the calling thread.

#pragma once

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>

namespace MemCore {

/// Runs step(i) for every i below `count`, in any order and by any thread; within a parallel region
/// by the calling one alone. Raises what one of the steps has thrown once all are done.
template <class Step>
void parallelFor(std::size_t count, const Step& step) {
  std::exception_ptr failure;
  std::mutex failureMutex;
#pragma omp parallel for schedule(dynamic, 1) if (count > 1)
  for (std::size_t i = 0; i < count; ++i) {
    try {
      step(i);
    } catch (...) {
      const std::lock_guard lock(failureMutex);
      failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

/// Runs step(i) for every i below `count` within a step of a parallel loop: threads that find no
/// more steps of that loop take some of these, and the calling thread does the others, if need be
/// all of them. Elsewhere the calling thread does them all. Raises what one of the steps has thrown
/// once all are done. Requires: no step takes a lock that the calling thread holds; it is held on
/// while other threads do the steps.
template <class Step>
void shareSteps(std::size_t count, const Step& step) {
  std::exception_ptr failure;
  std::mutex failureMutex;
  std::atomic<std::size_t> next = 0;
  const auto takeSteps = [&] {
    for (std::size_t i = next++; i < count; i = next++) {
      try {
        step(i);
      } catch (...) {
        const std::lock_guard lock(failureMutex);
        failure = std::current_exception();
      }
    }
  };
  // One task for each thread that may come to help, not for each step: those would cost more, and
  // of too many at once the runtime offers none to other threads.
  const auto threads = static_cast<std::size_t>(omp_get_num_threads());
#pragma omp taskgroup
  {
    for (std::size_t helper = 1; helper < std::min(count, threads); ++helper) {
#pragma omp task default(shared)
      takeSteps();
    }
    takeSteps();
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace MemCore
