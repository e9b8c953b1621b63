// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/Comparison.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace Benchmarks {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

Outcome<void> improve(Measurement& best, const Measure& measure) {
  const auto next = measure();
  if (!next.ok()) return next.failure();
  if (best.seconds == 0.0) {
    best = *next;
    return {};
  }
  if (next->points != best.points) {
    return Failure{fmt::format("delivers other numbers from run to run, found {}, expected {}",
                               next->points, best.points)};
  }
  best.seconds = std::min(best.seconds, next->seconds);
  best.peakBytes = std::max(best.peakBytes, next->peakBytes);
  return {};
}

}  // namespace

Measure inChild(MeasuredWork work, MeasuredWork prepare) {
  return [work = std::move(work), prepare = std::move(prepare)] {
    return measureInChild(work, prepare);
  };
}

Measure inThisProcess(MeasuredWork work) {
  return [work = std::move(work)]() -> Outcome<Measurement> {
    const auto start = std::chrono::steady_clock::now();
    const auto done = work();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    if (!done.ok()) return done.failure();
    return Measurement{elapsed.count(), 0, *done};
  };
}

Outcome<Comparison> compareInTurn(int repetitions, const Measure& floor, const Measure& work) {
  Comparison comparison;
  for (int r = 0; r < repetitions; ++r) {
    if (auto done = improve(comparison.floor, floor); !done.ok()) {
      return Failure{"floor: " + done.error()};
    }
    if (auto done = improve(comparison.work, work); !done.ok()) return done.failure();
  }
  return comparison;
}

Outcome<Measurement> bestOf(int repetitions, const Measure& work) {
  Measurement best;
  for (int r = 0; r < repetitions; ++r) {
    if (auto done = improve(best, work); !done.ok()) return done.failure();
  }
  return best;
}

}  // namespace Benchmarks
