// SPDX-License-Identifier: Apache-2.0
//
// Report: what a benchmark program found, line by line for people on standard output and, when a
// results file is named, as one JSON object per line appended to it. A missed goal is a finding,
// not a failure: only wrong answers and broken measurements make the program fail.

#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/Comparison.hpp"

namespace Benchmarks {

/// What is asked of a ratio.
enum class Bound { None, AtMost, AtLeast };

struct Goal {
  const char* number = "";  ///< such as "1a"; docs/performance.md lists them
  Bound bound = Bound::None;
  double limit = 0.0;
};

/// One measurement, as a ratio to its floor or to what is allowed.
struct Finding {
  Goal goal;
  std::string name;
  double ratio = 0.0;
  double seconds = 0.0;         ///< 0 where time is not what was measured
  double floorSeconds = 0.0;    ///< 0 where the ratio is not to a floor
  std::uint64_t peakBytes = 0;  ///< 0 where it was not measured
  /// Why what the goal asks for could not be done at all, which misses it; empty otherwise.
  std::string failure;
  /// Further figures by name, the unit within it ("Mpoints per s").
  std::vector<std::pair<std::string, double>> figures;

  /// Whether the goal is met; true without a bound. A failure misses it.
  bool isMet() const;
};

/// The finding of a comparison: its ratio is measured time over floor time.
Finding findingOf(const Goal& goal, const std::string& name, const Comparison& comparison);

class Report {
 public:
  /// An empty `resultsFile` leaves the JSON out.
  Report(std::string program, std::string resultsFile)
      : program_(std::move(program)), resultsFile_(std::move(resultsFile)) {}

  /// A heading: what the lines below it have in common.
  void say(const std::string& text);
  void add(const Finding& finding);
  /// One point of a curve: how long `n` of something took.
  void addGrowth(const std::string& curve, double n, double seconds);
  /// A wrong answer or a measurement that could not be made.
  void fail(const std::string& text);

  bool ok() const { return ok_; }

 private:
  void append(const std::string& json);

  std::string program_;
  std::string resultsFile_;
  bool ok_ = true;
};

}  // namespace Benchmarks
