// SPDX-License-Identifier: Apache-2.0

#include "host/Messages.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "host/PathText.hpp"

namespace Host {

namespace {

constexpr const char* kRed = "\033[31m";
constexpr const char* kYellow = "\033[33m";
constexpr const char* kPlain = "\033[0m";
constexpr const char* kEraseLine = "\r\033[K";

std::string trimmed(const std::string& text) {
  constexpr const char* kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

Messages::Messages(Verbosity verbosity, const Terminal& terminal, Sink sink, LogFile log)
    : verbosity_(verbosity),
      hasColour_(terminal.hasColour),
      workingFolder_(workingFolderPath()),
      sink_(std::move(sink)),
      log_(std::move(log)) {}

MemCore::Outcome<std::unique_ptr<Messages>> Messages::make(const CommonOptions& options,
                                                           const Terminal& terminal, Sink sink) {
  LogFile log;
  if (!options.logFile.empty()) {
    log.reset(std::fopen(options.logFile.c_str(), "ae"));
    if (!log) {
      return MemCore::Failure{fmt::format("{}: cannot be opened as log file, found \"{}\"",
                                          options.logFile, std::generic_category().message(errno))};
    }
  }
  return std::unique_ptr<Messages>(
      new Messages(options.verbosity, terminal, std::move(sink), std::move(log)));
}

Messages::Sink Messages::standardError() {
  return [](std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
  };
}

void Messages::logLocked(const char* level, const std::string& text) {
  if (!log_) return;
  const auto now =
      std::chrono::time_point_cast<std::chrono::seconds>(std::chrono::system_clock::now());
  const std::string line =
      fmt::format("{:%Y-%m-%dT%H:%M:%SZ} {:<7} {}\n",
                  fmt::gmtime(std::chrono::system_clock::to_time_t(now)), level, text);
  std::fwrite(line.data(), 1, line.size(), log_.get());
  std::fflush(log_.get());
}

void Messages::showLocked(const std::string& label, const char* colour, const std::string& text) {
  const bool isColoured = hasColour_ && colour != nullptr;
  const std::string words = label + withShortPaths(text, workingFolder_);
  std::string line = status_.empty() ? "" : kEraseLine;
  line += isColoured ? fmt::format("refragment: {}{}{}\n", colour, words, kPlain)
                     : fmt::format("refragment: {}\n", words);
  sink_(line + status_);
}

void Messages::error(const std::string& text) {
  const std::lock_guard lock(mutex_);
  logLocked("error", text);
  showLocked("", kRed, text);
}

void Messages::warning(const std::string& text) {
  const std::lock_guard lock(mutex_);
  logLocked("warning", text);
  showLocked("warning: ", kYellow, text);
  warnings_.push_back(text);
}

void Messages::note(const std::string& text) {
  const std::lock_guard lock(mutex_);
  logLocked("note", text);
  if (verbosity_ != Verbosity::Quiet) showLocked("", nullptr, text);
}

void Messages::detail(const std::string& text) {
  const std::string line = trimmed(text);
  const std::lock_guard lock(mutex_);
  logLocked("detail", line);
  if (verbosity_ == Verbosity::Verbose) showLocked("", nullptr, line);
}

void Messages::setStatus(const std::string& line) {
  const std::lock_guard lock(mutex_);
  status_ = line;
  sink_(kEraseLine + status_);
}

void Messages::clearStatus() {
  const std::lock_guard lock(mutex_);
  if (status_.empty()) return;
  status_.clear();
  sink_(kEraseLine);
}

void Messages::rawLine(const std::string& line) {
  const std::lock_guard lock(mutex_);
  sink_(line + "\n");
}

std::vector<std::string> Messages::warnings() const {
  const std::lock_guard lock(mutex_);
  return warnings_;
}

}  // namespace Host
