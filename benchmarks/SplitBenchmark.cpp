// SPDX-License-Identifier: Apache-2.0
//
// How far is a split from its floor? Scenarios, each beside its floor from the same run:
//
//   LAS -> tiles, against the plain scatter:  1 and 2 threads, about 25 and 400 tiles,
//                                             overlap 0 and 0.1, storage raw and grid
//   LAZ -> tiles, against decoding alone:     1 and 2 threads, about 25 tiles
//   memory:                                   both, with a budget of a tenth of the plain points
//   decodes per LAZ chunk with such a budget: points in the order of the file, and, where
//                                             --ordered-laz names such a file, in order of place
//
// Without --las and --laz synthetic surveys are made. Tiles are not flushed to the disk on either
// side. Every split is checked: without overlap it must deliver every point.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "benchmarks/DecodeFloor.hpp"
#include "benchmarks/PlainScatter.hpp"
#include "benchmarks/Program.hpp"
#include "benchmarks/SplitScenario.hpp"
#include "benchmarks/SurveyInput.hpp"
#include "formats/las/LasFile.hpp"

namespace Benchmarks {

namespace {

struct Settings {
  std::string las;
  std::string laz;
  std::string orderedLaz;
  std::uint64_t points = 10'000'000;
};

const Goal kRawTiles{"1a", Bound::AtMost, 1.5};
const Goal kDefaultTiles{"1b", Bound::AtMost, 2.5};
const Goal kLazTiles{"2a", Bound::AtMost, 1.15};
const Goal kDecodes{"2b", Bound::AtMost, 2.0};
const Goal kOrderedDecodes{"2b", Bound::AtMost, 1.3};
const Goal kSmallBudget{"2c", Bound::None, 0.0};

/// "LAS 10 M" and the like.
std::string nameOf(const char* kind, const InputFacts& input) {
  return fmt::format("{} {:.3g} M", kind, static_cast<double>(input.points) / 1e6);
}

/// One line: what to split, and how.
struct Scenario {
  std::string name;
  Goal goal;
  InputFacts input;
  double tiles = 25.0;
  double overlap = 0.0;
  int threads = 2;
  Fiber::StorageKind storage = Fiber::StorageKind::Grid;
  std::uint64_t memoryBytes = 0;  ///< budget of the cache; 0 leaves the default
};

SplitJob jobOf(Bench& bench, const Scenario& scenario) {
  SplitJob job;
  job.input = scenario.input.path;
  job.folder = bench.workspace.freshFolder();
  job.edgeLength = scenario.input.edgeForTiles(scenario.tiles);
  job.overlap = scenario.overlap;
  job.threads = scenario.threads;
  job.storage = scenario.storage;
  job.memoryBytes = scenario.memoryBytes;
  return job;
}

Measure splitting(Bench& bench, const Scenario& scenario) {
  return [&bench, scenario] {
    const SplitJob job = jobOf(bench, scenario);
    return measureInChild([&] { return splitFile(job); });
  };
}

Measure scattering(Bench& bench, const Scenario& scenario) {
  return [&bench, scenario] {
    const ScatterJob job{scenario.input.path, bench.workspace.freshFolder(),
                         scenario.input.edgeForTiles(scenario.tiles), scenario.overlap,
                         scenario.threads};
    return measureInChild([&] { return scatterPlainly(job); });
  };
}

Measure decoding(const Scenario& scenario) {
  return inChild([=] { return decodeOnly(scenario.input.path, scenario.threads); });
}

void compare(Bench& bench, const Scenario& scenario, const Measure& floor) {
  bench.compare(scenario.goal, scenario.name, floor, splitting(bench, scenario),
                [&](Finding& finding, const Comparison& compared) -> std::string {
                  const double points = static_cast<double>(compared.work.points);
                  finding.figures.emplace_back("Mpoints per s",
                                               points / compared.work.seconds / 1e6);
                  if (scenario.overlap != 0.0 || compared.work.points == scenario.input.points) {
                    return "";
                  }
                  return fmt::format("wrong answer, found {} points, expected {}",
                                     compared.work.points, scenario.input.points);
                });
}

Scenario lasScenario(const InputFacts& input, double tiles, double overlap, bool isRaw,
                     int threads) {
  Scenario scenario;
  scenario.name =
      fmt::format("{}, {} thread(s), ~{:.0f} tiles, overlap {}, {}", nameOf("LAS", input), threads,
                  tiles, overlap, isRaw ? "raw" : "default");
  scenario.goal = isRaw ? kRawTiles : kDefaultTiles;
  scenario.input = input;
  scenario.tiles = tiles;
  scenario.overlap = overlap;
  scenario.threads = threads;
  scenario.storage = isRaw ? Fiber::StorageKind::Raw : Fiber::StorageKind::Grid;
  return scenario;
}

Scenario lazScenario(const InputFacts& input, int threads) {
  Scenario scenario;
  scenario.name =
      fmt::format("{}, {} thread(s), ~25 tiles, default", nameOf("LAZ", input), threads);
  scenario.goal = kLazTiles;
  scenario.input = input;
  scenario.threads = threads;
  return scenario;
}

/// About 100 tiles with a cache that holds a tenth of the points as they stand in a LAS file.
Scenario smallBudget(const char* kind, const InputFacts& input) {
  Scenario scenario;
  scenario.goal = kSmallBudget;
  scenario.input = input;
  scenario.tiles = 100.0;
  constexpr std::uint64_t kLeastBudget =
      4'000'000;  // below, a tiny input would be decoded per tile
  scenario.memoryBytes = std::max(kLeastBudget, input.plainBytes() / 10);
  scenario.name = fmt::format("{}, 2 threads, ~100 tiles, budget {:.0f} MB", nameOf(kind, input),
                              static_cast<double>(scenario.memoryBytes) / 1e6);
  return scenario;
}

void describe(Bench& bench, const InputFacts& input) {
  bench.report.say(fmt::format("{}: {} points of {} bytes",
                               std::filesystem::path(input.path).filename().string(), input.points,
                               input.recordBytes));
}

void runLas(Bench& bench, const InputFacts& input) {
  describe(bench, input);
  for (const int threads : {1, 2}) {
    for (const double tiles : {25.0, bench.isSmoke ? 40.0 : 400.0}) {
      for (const double overlap : {0.0, 0.1}) {
        for (const bool isRaw : {true, false}) {
          const Scenario scenario = lasScenario(input, tiles, overlap, isRaw, threads);
          compare(bench, scenario, scattering(bench, scenario));
        }
      }
    }
  }
  const Scenario small = smallBudget("LAS", input);
  compare(bench, small, scattering(bench, small));
}

/// How often a chunk of a LAZ file is decoded with a small budget, on average.
void countChunkDecodes(Bench& bench, const InputFacts& input, const Goal& goal,
                       const std::string& order) {
  const Scenario small = smallBudget("LAZ", input);
  const SplitJob job = jobOf(bench, small);
  const auto counted = measureInChild([&] { return countDecodes(job); });
  const auto file = Formats::LasFile::open(input.path);
  if (!counted.ok()) return bench.report.fail(counted.error());
  if (!file.ok()) return bench.report.fail(file.error());
  Finding finding;
  finding.goal = goal;
  finding.name = fmt::format("decodes per chunk, {}, {}", small.name, order);
  finding.ratio =
      static_cast<double>(counted->points) / static_cast<double>((*file)->runs().size());
  bench.report.add(finding);
}

void runLaz(Bench& bench, const InputFacts& input) {
  describe(bench, input);
  for (const int threads : {1, 2}) {
    const Scenario scenario = lazScenario(input, threads);
    compare(bench, scenario, decoding(scenario));
  }
  const Scenario small = smallBudget("LAZ", input);
  compare(bench, small, decoding(small));
  countChunkDecodes(bench, input, kDecodes, "order of the file");
}

void run(Bench& bench, const Settings& settings) {
  const auto las = surveyAt(settings.las, bench.workspace.path("survey.las"), settings.points);
  if (las.ok()) runLas(bench, *las);
  const auto laz = surveyAt(settings.laz, bench.workspace.path("survey.laz"), settings.points);
  if (laz.ok()) runLaz(bench, *laz);
  if (!settings.orderedLaz.empty()) {
    const auto ordered = factsOf(settings.orderedLaz);
    if (ordered.ok()) {
      countChunkDecodes(bench, *ordered, kOrderedDecodes, "order of place");
    } else {
      bench.report.fail(ordered.error());
    }
  }
  if (!las.ok()) bench.report.fail(las.error());
  if (!laz.ok()) bench.report.fail(laz.error());
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Settings settings;
  Benchmarks::Program program("split_benchmark", "Measures splits against their floors");
  program.flags().add_option("--las", settings.las, "Plain input; a synthetic survey without it");
  program.flags().add_option("--laz", settings.laz, "Compressed input; likewise");
  program.flags().add_option("--ordered-laz", settings.orderedLaz,
                             "Compressed input in order of place, such as an export");
  program.flags().add_option("--points", settings.points, "Points of the synthetic surveys");
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    if (bench.isSmoke) settings.points = 20'000;
    Benchmarks::run(bench, settings);
  });
}
