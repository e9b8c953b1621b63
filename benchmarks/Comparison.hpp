// SPDX-License-Identifier: Apache-2.0
//
// Comparison: a piece of work beside its floor, both measured in one run. Repetitions take turns,
// so that a machine that slows down for a while slows down both, and the best time of each counts.

#pragma once

#include <functional>

#include "benchmarks/MeasuredChild.hpp"

namespace Benchmarks {

/// Makes one measurement.
using Measure = std::function<MemCore::Outcome<Measurement>()>;

/// Measures work in a child process of its own, `prepare` (may be empty) in the same child but
/// outside the time.
Measure inChild(MeasuredWork work, MeasuredWork prepare = {});
/// Measures work in this process; without a peak of memory.
Measure inThisProcess(MeasuredWork work);

/// Of each side the shortest time and the highest peak.
struct Comparison {
  Measurement floor;
  Measurement work;
};

/// Errors: the first measurement that fails, or delivers another number than the one before it.
MemCore::Outcome<Comparison> compareInTurn(int repetitions, const Measure& floor,
                                           const Measure& work);

/// One side alone.
MemCore::Outcome<Measurement> bestOf(int repetitions, const Measure& work);

}  // namespace Benchmarks
