// SPDX-License-Identifier: Apache-2.0
//
// Program: what all benchmark programs have in common: the flags --folder, --results, --repetitions
// and --smoke, a place for files, and the report.

#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "benchmarks/Report.hpp"
#include "benchmarks/Workspace.hpp"

namespace Benchmarks {

/// What a program's work is given.
struct Bench {
  Workspace& workspace;
  Report& report;
  int repetitions = 3;   ///< measurements per line; the best counts
  bool isSmoke = false;  ///< one tiny pass, to see that all is in order

  /// Measures work beside its floor and adds the finding, after `complete` (may be empty) has had
  /// a look at it: it adds figures, or returns why the answer is wrong. What fails is reported.
  void compare(const Goal& goal, const std::string& name, const Measure& floor, const Measure& work,
               const std::function<std::string(Finding&, const Comparison&)>& complete = {});
};

class Program {
 public:
  Program(std::string name, const std::string& purpose);

  /// For the program's own flags.
  CLI::App& flags() { return flags_; }
  /// Parses the command line and does the work; returns the exit status.
  int run(int argc, char** argv, const std::function<void(Bench&)>& work);

 private:
  int runWork(const std::function<void(Bench&)>& work);

  std::string name_;
  CLI::App flags_;
  std::string folder_;
  std::string results_;
  int repetitions_ = 3;
  bool isSmoke_ = false;
};

}  // namespace Benchmarks
