// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/ChildProgram.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace Benchmarks {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr int kNotRun = 127;

std::string lastLineOf(const std::string& file) {
  std::ifstream in(file);
  std::string last;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty()) last = line;
  }
  return last;
}

[[noreturn]] void becomeProgram(const std::vector<std::string>& command, const std::string& log) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  const int file = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file >= 0 && ::dup2(file, 1) >= 0 && ::dup2(file, 2) >= 0) {
    ::execv(words[0], words.data());
  }
  ::_exit(kNotRun);
}

}  // namespace

std::string builtProgram() {
  std::error_code ignored;
  const fs::path own = fs::read_symlink("/proc/self/exe", ignored);
  return (own.parent_path().parent_path() / "host" / "refragment").string();
}

Outcome<Measurement> measureProgram(const std::string& program,
                                    const std::vector<std::string>& arguments,
                                    const std::string& folder) {
  std::vector<std::string> command{program};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const std::string log = folder + "/refragment.log";
  std::fflush(stdout);
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child < 0) return Failure{program + ": no child process"};
  if (child == 0) becomeProgram(command, log);
  rusage usage{};
  int status = 0;
  ::wait4(child, &status, 0, &usage);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    return Failure{fmt::format("{} {}: failed, found status {}, expected 0: {}", program,
                               arguments.empty() ? "" : arguments.front(),
                               WIFEXITED(status) ? WEXITSTATUS(status) : -1, lastLineOf(log))};
  }
  constexpr std::uint64_t kKilobyte = 1024;
  return Measurement{elapsed.count(), static_cast<std::uint64_t>(usage.ru_maxrss) * kKilobyte, 0};
}

}  // namespace Benchmarks
