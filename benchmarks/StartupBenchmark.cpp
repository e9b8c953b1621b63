// SPDX-License-Identifier: Apache-2.0
//
// How long does the program take when there is nothing, or next to nothing, to do? Measured from
// outside, on the program itself.
//
//   --help, info on small files    to 50 ms
//   info on two bundles            with as many fragments, but ten times the points: the second to
//                                  the first
//   restart                        a split whose tiles are all there; floor: linking these tiles,
//                                  which is what remains to be done

#include <fmt/format.h>

#include "benchmarks/ChildProgram.hpp"
#include "benchmarks/Program.hpp"
#include "benchmarks/SurveyInput.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace Benchmarks {

namespace {

using MemCore::Outcome;

const Goal kStart{"9a", Bound::AtMost, 1.0};
const Goal kRestart{"9b", Bound::None, 0.0};
const Goal kInfo{"6e", Bound::AtMost, 1.2};
constexpr double kStartSecondsAllowed = 0.05;
constexpr std::uint64_t kSmallPoints = 1'000;

using Arguments = std::vector<std::string>;

struct Settings {
  std::string program = builtProgram();
  std::uint64_t points = 5'000'000;
  std::uint64_t fragments = 200;
  double tiles = 100.0;
};

Measure running(const Bench& bench, const Settings& settings, Arguments arguments) {
  return [&bench, &settings, arguments = std::move(arguments)] {
    return measureProgram(settings.program, arguments, bench.workspace.folder());
  };
}

void addStart(Bench& bench, const Settings& settings, const std::string& name,
              const Arguments& arguments) {
  const auto measured = bestOf(bench.repetitions, running(bench, settings, arguments));
  if (!measured.ok()) return bench.report.fail(name + ": " + measured.error());
  Finding finding;
  finding.goal = kStart;
  finding.name = name + ", to 50 ms";
  finding.ratio = measured->seconds / kStartSecondsAllowed;
  finding.seconds = measured->seconds;
  finding.peakBytes = measured->peakBytes;
  bench.report.add(finding);
}

/// A bundle of positions in equal fragments, side by side along x.
Outcome<std::uint64_t> saveBundle(const std::string& file, std::uint64_t fragments,
                                  std::uint64_t pointsPerFragment) {
  Fiber::Bundle bundle;
  const auto vertices = (*bundle[0.0])["points"]->makeCartesianRepresentation(3, "", 0);
  const auto positions = MemCore::makeStrong<Fiber::Field>(vertices->fragments());
  vertices->setPositions(positions);
  for (std::uint64_t f = 0; f < fragments; ++f) {
    const auto chunk =
        MemCore::makeStrong<MemCore::Chunk<Eagle::PhysicalSpace::point>>(pointsPerFragment);
    for (std::uint64_t i = 0; i < pointsPerFragment; ++i) {
      const double part = static_cast<double>(i) / static_cast<double>(pointsPerFragment);
      (*chunk)[i] = {static_cast<double>(f) + part, 100.0 * part, 0.5};
    }
    positions->setPersistentData(Fiber::makeArray<Eagle::PhysicalSpace::point>(chunk),
                                 positions->makeFragmentID("0-" + std::to_string(f)), nullptr, "");
  }
  const auto transformations = MemCore::makeStrong<Fiber::StorageTransformations>();
  transformations->durable = false;
  const auto saved = bundle.save(file, nullptr, transformations);
  if (!saved.ok()) return saved.failure();
  return fragments * pointsPerFragment;
}

void compareInfo(Bench& bench, const Settings& settings) {
  const std::string few = bench.workspace.path("few.f5");
  const std::string many = bench.workspace.path("many.f5");
  const std::uint64_t largest = settings.points / settings.fragments;
  for (const auto& [file, count] : {std::pair{few, largest / 10}, std::pair{many, largest}}) {
    const auto saved = measureInChild(
        [&, path = file, points = count] { return saveBundle(path, settings.fragments, points); });
    if (!saved.ok()) return bench.report.fail(saved.error());
  }
  const auto info = [&](const std::string& file) {
    return running(bench, settings, {"info", file, "--fragment-length", "10"});
  };
  bench.compare(
      kInfo, fmt::format("info on a bundle, 10 x the points in {} fragments", settings.fragments),
      info(few), info(many));
}

void compareRestart(Bench& bench, const Settings& settings) {
  const auto survey = makeSurvey(bench.workspace.path("survey.las"), settings.points);
  if (!survey.ok()) return bench.report.fail(survey.error());
  const std::string output = bench.workspace.path("tiles.f5");
  const Arguments split{"split",
                        survey->path,
                        "-o",
                        output,
                        "--no-sync",
                        "--quiet",
                        "--fragment-length",
                        fmt::format("{:.3f}", survey->edgeForTiles(settings.tiles))};
  const Arguments link{"link",      bench.workspace.path("tiles"),
                       "-o",        bench.workspace.path("linked.f5"),
                       "--no-sync", "--quiet",
                       "--force"};
  const auto first = running(bench, settings, split)();
  if (!first.ok()) return bench.report.fail("restart: " + first.error());
  bench.compare(kRestart,
                fmt::format("restart with ~{:.0f} tiles there, to linking them", settings.tiles),
                running(bench, settings, link), running(bench, settings, split),
                [&](Finding& finding, const Comparison&) {
                  finding.figures = {{"s for the first run", first->seconds}};
                  return std::string();
                });
}

void run(Bench& bench, const Settings& settings) {
  const auto las = makeSurvey(bench.workspace.path("small.las"), kSmallPoints);
  const auto laz = makeSurvey(bench.workspace.path("small.laz"), kSmallPoints);
  if (!las.ok() || !laz.ok()) return bench.report.fail((las.ok() ? laz : las).error());
  addStart(bench, settings, "--help", {"--help"});
  addStart(bench, settings, "info on a small LAS file",
           {"info", las->path, "--fragment-length", "10"});
  addStart(bench, settings, "info on a small LAZ file",
           {"info", laz->path, "--fragment-length", "10"});
  compareInfo(bench, settings);
  compareRestart(bench, settings);
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("startup_benchmark",
                              "Measures the program with next to nothing to do");
  Benchmarks::Settings settings;
  program.flags().add_option("--program", settings.program,
                             "The program [as built beside this one]");
  program.flags().add_option("--points", settings.points, "Points of the larger inputs");
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    if (bench.isSmoke) settings.points = 20'000;
    if (bench.isSmoke) settings.tiles = 9.0;
    Benchmarks::run(bench, settings);
  });
}
