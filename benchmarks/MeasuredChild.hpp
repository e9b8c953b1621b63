// SPDX-License-Identifier: Apache-2.0
//
// Runs one measurement in a child process: the child starts from the same small state every time,
// so its peak memory is the measurement's own, and nothing it caches helps the next one. (A
// benchmark library repeats a function inside one process, where peak memory cannot be told apart.)

#pragma once

#include <cstdint>
#include <functional>

#include "datamodel/memcore/Outcome.hpp"

namespace Benchmarks {

struct Measurement {
  double seconds = 0.0;
  std::uint64_t peakBytes = 0;  ///< peak resident memory of the child
  std::uint64_t points = 0;     ///< that the work says it delivered
};

/// The work returns the number of points it delivered, or why it failed.
using MeasuredWork = std::function<MemCore::Outcome<std::uint64_t>()>;

/// Runs the work once in a child, after `prepare` (may be empty), which is not timed and whose
/// number does not count. Requires: the parent has started no threads.
MemCore::Outcome<Measurement> measureInChild(const MeasuredWork& work,
                                             const MeasuredWork& prepare = {});

}  // namespace Benchmarks
