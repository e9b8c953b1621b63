// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/MeasuredChild.hpp"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

namespace Benchmarks {

namespace {

/// What the child tells its parent through a pipe.
struct ChildReport {
  double seconds = 0.0;
  std::uint64_t points = 0;
  bool ok = false;
  char failure[1024] = {};
};

ChildReport failed(const std::string& text) {
  ChildReport report;
  std::strncpy(report.failure, text.c_str(), sizeof report.failure - 1);
  return report;
}

ChildReport runWork(const MeasuredWork& work, const MeasuredWork& prepare) {
  if (prepare) {
    const auto prepared = prepare();
    if (!prepared.ok()) return failed(prepared.error());
  }
  ChildReport report;
  const auto start = std::chrono::steady_clock::now();
  const MemCore::Outcome<std::uint64_t> outcome = work();
  report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!outcome.ok()) return failed(outcome.error());
  report.points = outcome.value();
  report.ok = true;
  return report;
}

/// Whatever the work throws ends the child with a text.
ChildReport runWorkSafely(const MeasuredWork& work, const MeasuredWork& prepare) {
  try {
    return runWork(work, prepare);
  } catch (const std::exception& error) {
    return failed(std::string("threw: ") + error.what());
  }
}

}  // namespace

MemCore::Outcome<Measurement> measureInChild(const MeasuredWork& work,
                                             const MeasuredWork& prepare) {
  int ends[2];
  if (::pipe(ends) != 0) return MemCore::Failure{"measurement: no pipe to the child"};
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child < 0) return MemCore::Failure{"measurement: no child process"};
  if (child == 0) {
    const ChildReport report = runWorkSafely(work, prepare);
    const ssize_t written = ::write(ends[1], &report, sizeof report);
    ::_exit(written == static_cast<ssize_t>(sizeof report) ? 0 : 1);
  }
  ::close(ends[1]);
  ChildReport report;
  const ssize_t received = ::read(ends[0], &report, sizeof report);
  ::close(ends[0]);
  rusage usage{};
  int status = 0;
  ::wait4(child, &status, 0, &usage);
  if (received != static_cast<ssize_t>(sizeof report)) {
    return MemCore::Failure{"measurement: the child ended early"};
  }
  if (!report.ok) return MemCore::Failure{report.failure};
  return Measurement{report.seconds, static_cast<std::uint64_t>(usage.ru_maxrss) * 1024,
                     report.points};
}

}  // namespace Benchmarks
