// SPDX-License-Identifier: Apache-2.0
//
// Session: what every sub-command works with: messages, the terminal, the clock, and the way to
// standard output.

#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "host/Messages.hpp"
#include "host/Options.hpp"
#include "host/Reports.hpp"
#include "host/Result.hpp"

namespace Host {

class Session {
 public:
  /// Applies the number of threads and the memory budget to the whole program.
  /// Requires: `messages` outlives this object.
  Session(const CommonOptions& common, const Terminal& terminal, Messages& messages);

  const CommonOptions& common() const { return common_; }
  const Terminal& terminal() const { return terminal_; }
  Messages& messages() { return messages_; }

  /// Prints a result on standard output: words unless --quiet, or JSON. Only the one that the user
  /// asked for is printed; either may be empty. False when standard output cannot be written.
  bool print(const std::string& words, const std::string& json);

  /// `code`, or the status of a failed print.
  ExitCode afterPrint(bool printed, ExitCode code);

  /// Says why the program stops and returns its exit status.
  ExitCode stop(const Stop& stop);

  /// Warns of each line, up to a handful; the log file gets all.
  void warnOfAll(const std::vector<std::string>& lines);

  /// Time and memory since the start of the program.
  ResourceUse use() const;

 private:
  const CommonOptions common_;
  const Terminal terminal_;
  Messages& messages_;
  const std::string workingFolder_;
  const std::chrono::steady_clock::time_point begin_;
};

}  // namespace Host
