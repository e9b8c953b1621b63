// SPDX-License-Identifier: Apache-2.0
//
// What a linked bundle over a million tiles costs to open and to save, without the tiles: their
// facts are made up, as the linking would have found them. These goals are absolute: the ratio is
// what was measured to what is allowed.
//
//   save    the bundle in memory as a file of links: 2 s
//   open    loading that file: 0.5 s

#include <fmt/format.h>

#include "benchmarks/LinkedTable.hpp"
#include "benchmarks/Program.hpp"

namespace Benchmarks {

namespace {

using MemCore::Outcome;

const Goal kOpen{"7b", Bound::AtMost, 1.0};
const Goal kSave{"7c", Bound::AtMost, 1.0};
constexpr double kOpenSecondsAllowed = 0.5;
constexpr double kSaveSecondsAllowed = 2.0;

struct Line {
  Goal goal;
  const char* name;
  double secondsAllowed;
};

void add(Bench& bench, const Line& line, std::uint64_t count,
         const Outcome<Measurement>& measured) {
  const std::string name = fmt::format("{} a linked bundle of {} fragments, to {} s", line.name,
                                       count, line.secondsAllowed);
  if (!measured.ok()) return bench.report.fail(name + ": " + measured.error());
  if (measured->points != count) {
    return bench.report.fail(fmt::format("{}: wrong answer, found {} fragments, expected {}", name,
                                         measured->points, count));
  }
  Finding finding;
  finding.goal = line.goal;
  finding.name = name;
  finding.ratio = measured->seconds / line.secondsAllowed;
  finding.seconds = measured->seconds;
  finding.peakBytes = measured->peakBytes;
  bench.report.add(finding);
}

void run(Bench& bench, std::uint64_t count) {
  const std::string file = bench.workspace.path("linked.f5");
  add(bench, {kSave, "save", kSaveSecondsAllowed}, count,
      bestOf(bench.repetitions, savingLinks(file, count)));
  add(bench, {kOpen, "open", kOpenSecondsAllowed}, count,
      bestOf(bench.repetitions, openingLinks(file)));
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("table_benchmark", "Measures linked bundles over very many tiles");
  std::uint64_t count = 1'000'000;
  program.flags()
      .add_option("--fragments", count, "Tiles that the bundle links")
      ->check(CLI::PositiveNumber);
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    Benchmarks::run(bench, bench.isSmoke ? 100 : count);
  });
}
