// SPDX-License-Identifier: Apache-2.0
//
// Messages: the one way to standard error. Errors, warnings, notes and details go there as far as
// the user wants to see them, each as "refragment: ..."; a status line (the progress bar) stays
// below them. A log file receives everything, with the time of day.

#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "host/Options.hpp"
#include "host/Terminal.hpp"

namespace Host {

/// Paths below the folder where the program was started are told relative to it.
/// Threads: any number at once.
class Messages {
 public:
  /// Receives what would go to standard error.
  using Sink = std::function<void(std::string_view)>;

  /// Errors: the log file cannot be opened.
  static MemCore::Outcome<std::unique_ptr<Messages>> make(const CommonOptions& options,
                                                          const Terminal& terminal, Sink sink);
  /// The sink that writes to standard error.
  static Sink standardError();

  /// Always shown.
  void error(const std::string& text);
  /// Always shown, and kept for the result.
  void warning(const std::string& text);
  /// Shown unless --quiet.
  void note(const std::string& text);
  /// Shown with --verbose. Line breaks and blanks around the text are left out.
  void detail(const std::string& text);

  /// Shows a line that later messages push down; a longer one replaces a shorter one in place.
  void setStatus(const std::string& line);
  void clearStatus();
  /// Passes a line through as it is, for programs that read along.
  void rawLine(const std::string& line);

  std::vector<std::string> warnings() const;
  Verbosity verbosity() const { return verbosity_; }

 private:
  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  using LogFile = std::unique_ptr<std::FILE, CloseFile>;

  Messages(Verbosity verbosity, const Terminal& terminal, Sink sink, LogFile log);
  void showLocked(const std::string& label, const char* colour, const std::string& text);
  void logLocked(const char* level, const std::string& text);

  const Verbosity verbosity_;
  const bool hasColour_;
  const std::string workingFolder_;
  const Sink sink_;
  const LogFile log_;
  mutable std::mutex mutex_;
  std::string status_;
  std::vector<std::string> warnings_;
};

}  // namespace Host
