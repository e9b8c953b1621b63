// SPDX-License-Identifier: Apache-2.0

#include "host/Session.hpp"

#include <fmt/format.h>
#include <omp.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "datamodel/memcore/Allocator.hpp"
#include "datamodel/memcore/Cache.hpp"
#include "host/PathText.hpp"

namespace Host {

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
  rusage usage{};
  constexpr std::uint64_t kUnitBytes = 1024;  // of ru_maxrss
  if (::getrusage(RUSAGE_SELF, &usage) == 0) {
    use.peakMemoryBytes = static_cast<std::uint64_t>(usage.ru_maxrss) * kUnitBytes;
  }
  return use;
}

}  // namespace Host
