// SPDX-License-Identifier: Apache-2.0
//
// How far is a split from its floor? Scenarios, each beside its floor from the same run:
//
//   LAS -> tiles, against the plain scatter:  1 and 2 threads, about 25 and 400 tiles,
//                                             overlap 0 and 0.1, storage raw and grid
//   LAZ -> tiles, against decoding alone:     1 and 2 threads, about 25 tiles
//   memory:                                   LAS -> tiles with a budget of a tenth of the input
//   LAZ chunks decoded, over those there are: budget of a tenth of the decoded input; as given, and
//                                             in order of place where --ordered-laz names such a
//                                             file
//
// Each line gives the best of the repetitions, floor and split alternating, because timings on a
// shared machine are noisy. Without --las a synthetic survey is made. Tiles are not flushed to the
// disk on either side. Every split is checked: without overlap it must deliver every point.

#include <fmt/format.h>

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string>

#include "benchmarks/DecodeFloor.hpp"
#include "benchmarks/PlainScatter.hpp"
#include "benchmarks/SplitScenario.hpp"
#include "formats/las/LasFile.hpp"
#include "host/synth/SyntheticSurvey.hpp"

namespace fs = std::filesystem;

namespace Benchmarks {

namespace {

struct Settings {
  std::string las;
  std::string laz;
  std::string orderedLaz;
  std::string folder;
  std::uint64_t points = 10'000'000;
  int repetitions = 3;
  bool isSmoke = false;
};

/// A file's horizontal extent and size.
struct InputFacts {
  std::string path;
  std::uint64_t points = 0;
  std::uint64_t recordBytes = 0;
  std::uint64_t runs = 0;
  double area = 0.0;

  double edgeForTiles(double tiles) const { return std::sqrt(area / tiles); }
};

MemCore::Outcome<InputFacts> factsOf(const std::string& path) {
  const auto opened = Formats::LasFile::open(path);
  if (!opened.ok()) return opened.failure();
  const Formats::LasHeader& header = (*opened)->header();
  return InputFacts{
      path, (*opened)->pointCount(), (*opened)->recordBytes(), (*opened)->runs().size(),
      (header.maximum[0] - header.minimum[0]) * (header.maximum[1] - header.minimum[1])};
}

/// Empties the working folder before a measurement, outside its time.
std::string freshFolder(const Settings& settings) {
  const fs::path folder = fs::path(settings.folder) / "tiles";
  fs::remove_all(folder);
  fs::create_directories(folder / "out");
  return folder.string();
}

struct Line {
  std::string name;
  Measurement floor;
  Measurement split;
  std::uint64_t recordBytes = 0;
};

void keepBest(Measurement& best, const Measurement& next) {
  if (best.seconds == 0.0 || next.seconds < best.seconds) best = next;
}

void print(const Line& line) {
  const double points = static_cast<double>(line.split.points);
  fmt::print(
      "{:<44} {:7.3f} s {:6.2f} Mpoints/s {:7.1f} MB/s  peak {:6.0f} MB | floor {:7.3f} s "
      "| ratio {:5.2f}\n",
      line.name, line.split.seconds, points / line.split.seconds / 1e6,
      points * static_cast<double>(line.recordBytes) / line.split.seconds / 1e6,
      static_cast<double>(line.split.peakBytes) / 1e6, line.floor.seconds,
      line.split.seconds / line.floor.seconds);
  std::fflush(stdout);
}

class Runner {
 public:
  explicit Runner(Settings settings) : settings_(std::move(settings)) {}

  /// Measures floor and split in turn. A failed or wrong measurement is reported and remembered.
  void compare(Line line, const InputFacts& input, bool expectAllPoints,
               const std::function<MeasuredWork(const std::string&)>& floorWork,
               const std::function<MeasuredWork(const std::string&)>& splitWork) {
    for (int r = 0; r < settings_.repetitions; ++r) {
      if (!measure(floorWork, line.name + " (floor)", line.floor)) return;
      if (!measure(splitWork, line.name, line.split)) return;
    }
    line.recordBytes = input.recordBytes;
    if (expectAllPoints && line.split.points != input.points) {
      fail(fmt::format("{}: wrong answer, found {} points, expected {}", line.name,
                       line.split.points, input.points));
      return;
    }
    print(line);
  }

  const Settings& settings() const { return settings_; }
  bool ok() const { return ok_; }
  void fail(const std::string& text) {
    fmt::print(stderr, "split_benchmark: {}\n", text);
    ok_ = false;
  }

 private:
  bool measure(const std::function<MeasuredWork(const std::string&)>& makeWork,
               const std::string& name, Measurement& best) {
    const auto measured = measureInChild(makeWork(freshFolder(settings_)));
    if (!measured.ok()) {
      fail(name + ": " + measured.error());
      return false;
    }
    keepBest(best, *measured);
    return true;
  }

  Settings settings_;
  bool ok_ = true;
};

void compareLas(Runner& runner, const InputFacts& input, int threads, double tiles, double overlap,
                Fiber::StorageKind storage) {
  const double edge = input.edgeForTiles(tiles);
  Line line;
  line.name = fmt::format("LAS {} thread(s) ~{:.0f} tiles overlap {} {}", threads, tiles, overlap,
                          storage == Fiber::StorageKind::Raw ? "raw" : "grid");
  runner.compare(
      line, input, overlap == 0.0,
      [&](const std::string& folder) {
        return [=] { return scatterPlainly({input.path, folder, edge, overlap, threads}); };
      },
      [&](const std::string& folder) {
        return [=] { return splitFile({input.path, folder, edge, overlap, threads, storage, 0}); };
      });
}

void compareLaz(Runner& runner, const InputFacts& input, int threads, double tiles) {
  const double edge = input.edgeForTiles(tiles);
  Line line;
  line.name = fmt::format("LAZ {} thread(s) ~{:.0f} tiles overlap 0 grid", threads, tiles);
  runner.compare(
      line, input, true,
      [&](const std::string&) { return [=] { return decodeOnly(input.path, threads); }; },
      [&](const std::string& folder) {
        return [=] {
          return splitFile({input.path, folder, edge, 0.0, threads, Fiber::StorageKind::Grid, 0});
        };
      });
}

void compareMemory(Runner& runner, const InputFacts& input) {
  const std::uint64_t budget = input.points * input.recordBytes / 10;
  const double edge = input.edgeForTiles(100);
  Line line;
  line.name = fmt::format("LAS 2 thread(s) ~100 tiles, budget {:.0f} MB",
                          static_cast<double>(budget) / 1e6);
  runner.compare(
      line, input, true,
      [&](const std::string& folder) {
        return [=] { return scatterPlainly({input.path, folder, edge, 0.0, 2}); };
      },
      [&](const std::string& folder) {
        return [=] {
          return splitFile({input.path, folder, edge, 0.0, 2, Fiber::StorageKind::Grid, budget});
        };
      });
}

/// How often a chunk is decoded where memory holds a tenth of the points.
void countChunkDecodes(Runner& runner, const std::string& path, const std::string& order) {
  if (path.empty()) return;
  const auto input = factsOf(path);
  if (!input.ok()) return runner.fail(input.error());
  const std::uint64_t budget = input->points * input->recordBytes / 10;
  const double edge = input->edgeForTiles(100);
  const std::string folder = freshFolder(runner.settings());
  const auto counted = measureInChild([&] {
    return countDecodes({path, folder, edge, 0.0, 2, Fiber::StorageKind::Grid, budget});
  });
  if (!counted.ok()) return runner.fail(path + ": " + counted.error());
  fmt::print(
      "LAZ 2 thread(s) ~100 tiles, budget {:.0f} MB, {}: {:.2f} decodes per chunk, {:.3f} s\n",
      static_cast<double>(budget) / 1e6, order,
      static_cast<double>(counted->points) / static_cast<double>(input->runs), counted->seconds);
}

/// Makes the synthetic survey in a child, so that this process starts no threads.
MemCore::Outcome<std::string> synthesise(const Settings& settings) {
  const std::string path = (fs::path(settings.folder) / "survey.las").string();
  const auto made = measureInChild([&]() -> MemCore::Outcome<std::uint64_t> {
    Synth::SurveyOptions options;
    options.pointCount = settings.points;
    options.hasWaveforms = false;
    const auto summary = Synth::writeSyntheticSurvey(options, path, {});
    if (!summary.ok()) return summary.failure();
    return summary->pointCount;
  });
  if (!made.ok()) return made.failure();
  return path;
}

void runLas(Runner& runner) {
  auto path = MemCore::Outcome<std::string>(runner.settings().las);
  if (path->empty()) path = synthesise(runner.settings());
  if (!path.ok()) return runner.fail(path.error());
  const auto input = factsOf(*path);
  if (!input.ok()) return runner.fail(input.error());
  fmt::print("{}: {} points of {} bytes\n", input->path, input->points, input->recordBytes);
  for (const int threads : {1, 2}) {
    for (const double tiles : {25.0, 400.0}) {
      for (const double overlap : {0.0, 0.1}) {
        for (const auto storage : {Fiber::StorageKind::Raw, Fiber::StorageKind::Grid}) {
          compareLas(runner, *input, threads, tiles, overlap, storage);
        }
      }
    }
  }
  compareMemory(runner, *input);
}

void runLaz(Runner& runner) {
  if (runner.settings().laz.empty()) {
    fmt::print("LAZ: left out, no --laz FILE given\n");
    return;
  }
  const auto input = factsOf(runner.settings().laz);
  if (!input.ok()) return runner.fail(input.error());
  fmt::print("{}: {} points of {} bytes\n", input->path, input->points, input->recordBytes);
  for (const int threads : {1, 2}) compareLaz(runner, *input, threads, 25.0);
  countChunkDecodes(runner, input->path, "order of the file");
  countChunkDecodes(runner, runner.settings().orderedLaz, "order of place");
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Settings settings;
  CLI::App app("Measures splits against their floors");
  app.add_option("--las", settings.las, "Uncompressed input; a synthetic survey without it");
  app.add_option("--laz", settings.laz, "Compressed input; left out without it");
  app.add_option("--ordered-laz", settings.orderedLaz, "Such a file in order of place (an export)");
  app.add_option("--points", settings.points, "Points of the synthetic survey");
  app.add_option("--folder", settings.folder, "Working folder, made and emptied");
  app.add_option("--repetitions", settings.repetitions, "Measurements per line; the best counts");
  app.add_flag("--smoke", settings.isSmoke, "One tiny pass over every scenario");
  CLI11_PARSE(app, argc, argv);
  if (settings.isSmoke) {
    settings.points = 20'000;
    settings.repetitions = 1;
  }
  if (settings.folder.empty()) {
    settings.folder = (fs::temp_directory_path() /
                       fmt::format("split_benchmark.{}", static_cast<long>(::getpid())))
                          .string();
  }
  fs::create_directories(settings.folder);
  Benchmarks::Runner runner(settings);
  Benchmarks::runLas(runner);
  Benchmarks::runLaz(runner);
  fs::remove_all(fs::path(settings.folder) / "tiles");
  if (settings.las.empty()) fs::remove(fs::path(settings.folder) / "survey.las");
  fs::remove(settings.folder);
  return runner.ok() ? 0 : 1;
}
