// SPDX-License-Identifier: Apache-2.0

#include "host/Session.hpp"

#include <fmt/format.h>
#include <omp.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

#include "datamodel/memcore/Allocator.hpp"
#include "datamodel/memcore/Cache.hpp"
#include "host/PathText.hpp"

namespace Host {

namespace {

/// The most memory that this program has had; 0 where the system does not tell. From the status
/// file, because the figure of getrusage begins with that of the program that started this one.
std::uint64_t peakMemoryBytes() {
  constexpr std::string_view kPeak = "VmHWM:";
  constexpr std::uint64_t kUnitBytes = 1024;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(kPeak)) continue;
    std::uint64_t units = 0;
    std::istringstream(line.substr(kPeak.size())) >> units;
    return units * kUnitBytes;
  }
  return 0;
}

}  // namespace

Session::Session(const CommonOptions& common, const Terminal& terminal, Messages& messages)
    : common_(common),
      terminal_(terminal),
      messages_(messages),
      workingFolder_(workingFolderPath()),
      begin_(std::chrono::steady_clock::now()) {
  if (common_.threadCount > 0) omp_set_num_threads(common_.threadCount);
  const auto cache = MemCore::Cache::MemCache();
  if (common_.memoryBytes) cache->setBudget(*common_.memoryBytes);
  MemCore::fitAllocator(cache->budget());
}

bool Session::print(const std::string& words, const std::string& json) {
  const bool isQuiet = common_.verbosity == Verbosity::Quiet;
  std::string text = json;
  if (!common_.json) text = isQuiet ? "" : withShortPaths(words, workingFolder_);
  messages_.clearStatus();
  const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  return std::fflush(stdout) == 0 && isWritten;
}

ExitCode Session::afterPrint(bool printed, ExitCode code) {
  if (printed) return code;
  return stop(failedStop("standard output: cannot be written, found \"" +
                         std::generic_category().message(errno) + "\""));
}

ExitCode Session::stop(const Stop& stop) {
  messages_.error(stop.text);
  return stop.code;
}

void Session::warnOfAll(const std::vector<std::string>& lines) {
  constexpr std::size_t kHandful = 10;
  const std::size_t shown = std::min(kHandful, lines.size());
  for (std::size_t i = 0; i < shown; ++i) messages_.warning(lines[i]);
  if (lines.size() == shown) return;
  messages_.warning(
      fmt::format("... and {} more like these (-v shows them)", lines.size() - shown));
  for (std::size_t i = shown; i < lines.size(); ++i) messages_.detail(lines[i]);
}

ResourceUse Session::use() const {
  ResourceUse use;
  use.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
  use.peakMemoryBytes = peakMemoryBytes();
  return use;
}

}  // namespace Host
