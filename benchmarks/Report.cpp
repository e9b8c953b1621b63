// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/Report.hpp"

#include <fmt/format.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

namespace Benchmarks {

namespace {

constexpr double kMegabyte = 1e6;

std::string verdict(const Finding& finding) {
  if (finding.goal.bound == Bound::None) return "";
  return fmt::format(" ({} {:g}: {})", finding.goal.bound == Bound::AtMost ? "at most" : "at least",
                     finding.goal.limit, finding.isMet() ? "met" : "MISSED");
}

std::string lineOf(const Finding& finding) {
  const std::string ratio =
      finding.failure.empty() ? fmt::format("{:8.3f}", finding.ratio) : "not done";
  std::string line =
      fmt::format("{:<4}{:<58} {}{}", finding.goal.number, finding.name, ratio, verdict(finding));
  if (!finding.failure.empty()) line += " | " + finding.failure;
  if (finding.seconds > 0.0) line += fmt::format(" | {:.4f} s", finding.seconds);
  if (finding.floorSeconds > 0.0) line += fmt::format(" | floor {:.4f} s", finding.floorSeconds);
  if (finding.peakBytes > 0) {
    line += fmt::format(" | peak {:.0f} MB", static_cast<double>(finding.peakBytes) / kMegabyte);
  }
  for (const auto& [name, value] : finding.figures)
    line += fmt::format(" | {:.4g} {}", value, name);
  return line;
}

nlohmann::ordered_json jsonOf(const Finding& finding) {
  nlohmann::ordered_json json{
      {"goal", finding.goal.number}, {"name", finding.name}, {"ratio", finding.ratio}};
  if (!finding.failure.empty()) {
    json["ratio"] = nullptr;
    json["failure"] = finding.failure;
  }
  if (finding.goal.bound != Bound::None) {
    json["limit"] = finding.goal.limit;
    json["bound"] = finding.goal.bound == Bound::AtMost ? "at most" : "at least";
    json["met"] = finding.isMet();
  }
  json["seconds"] = finding.seconds;
  json["floor_seconds"] = finding.floorSeconds;
  json["peak_bytes"] = finding.peakBytes;
  for (const auto& [name, value] : finding.figures) json["figures"][name] = value;
  return json;
}

}  // namespace

bool Finding::isMet() const {
  if (!failure.empty()) return false;
  switch (goal.bound) {
    case Bound::AtMost:
      return ratio <= goal.limit;
    case Bound::AtLeast:
      return ratio >= goal.limit;
    case Bound::None:
      break;
  }
  return true;
}

Finding findingOf(const Goal& goal, const std::string& name, const Comparison& comparison) {
  Finding finding;
  finding.goal = goal;
  finding.name = name;
  finding.ratio = comparison.work.seconds / comparison.floor.seconds;
  finding.seconds = comparison.work.seconds;
  finding.floorSeconds = comparison.floor.seconds;
  finding.peakBytes = comparison.work.peakBytes;
  return finding;
}

void Report::say(const std::string& text) {
  fmt::print("\n{}: {}\n", program_, text);
  std::fflush(stdout);
}

void Report::add(const Finding& finding) {
  fmt::print("{}\n", lineOf(finding));
  std::fflush(stdout);
  auto json = jsonOf(finding);
  json["program"] = program_;
  append(json.dump());
}

void Report::addGrowth(const std::string& curve, double n, double seconds) {
  fmt::print("    {:<40} n {:>10.0f}  {:10.5f} s\n", curve, n, seconds);
  std::fflush(stdout);
  append(nlohmann::ordered_json{{"curve", curve}, {"n", n}, {"seconds", seconds}}.dump());
}

void Report::fail(const std::string& text) {
  fmt::print(stderr, "{}: {}\n", program_, text);
  ok_ = false;
}

void Report::append(const std::string& json) {
  if (resultsFile_.empty()) return;
  std::ofstream file(resultsFile_, std::ios::app);
  file << json << '\n';
  if (!file.flush()) fail(resultsFile_ + ": cannot be written");
}

}  // namespace Benchmarks
