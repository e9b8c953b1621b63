// SPDX-License-Identifier: Apache-2.0
//
// How large are tiles in the default storage, and how fast are they read back? Both stand beside
// LAZ: the survey as one LAZ file, and each tile as a LAZ file of its own, which has the same
// points in the same order.
//
//   size    bytes of all tile files to bytes of the LAZ
//   read    decoding the LAZ into records to reading every field of every tile, by one thread;
//           here the floor is what is to be far away

#include <fmt/format.h>
#include <omp.h>

#include <algorithm>
#include <filesystem>

#include "benchmarks/ChildProgram.hpp"
#include "benchmarks/DecodeFloor.hpp"
#include "benchmarks/Program.hpp"
#include "benchmarks/SurveyInput.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace fs = std::filesystem;

namespace Benchmarks {

namespace {

using MemCore::Failure;
using MemCore::Outcome;

const Goal kSize{"4a", Bound::AtMost, 1.4};
const Goal kRead{"4b", Bound::AtLeast, 8.0};

using Paths = std::vector<std::string>;

Paths filesIn(const std::string& folder, const std::string& ending) {
  Paths files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ending) files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::uint64_t bytesOf(const Paths& files) {
  std::uint64_t bytes = 0;
  for (const std::string& file : files) bytes += fs::file_size(file);
  return bytes;
}

/// Makes the data of every field of every fragment; returns the points.
Outcome<std::uint64_t> readGrid(const Fiber::Grid& grid) {
  const auto vertices = grid.getCartesianRepresentation("");
  std::uint64_t points = 0;
  for (const auto& [name, field] : vertices->fields()) {
    for (const auto& fragment : vertices->fragments()->all()) {
      const auto creator = field->getCreator(fragment);
      const auto data = creator ? creator->data() : nullptr;
      if (!data) return Failure{name + ": cannot be read"};
      if (name == "Positions") points += data->size().elementCount();
    }
  }
  return points;
}

Outcome<std::uint64_t> readBundle(const std::string& file) {
  bool ok = false;
  std::string failure;
  const auto bundle = Fiber::Bundle::load(
      ok, MemCore::makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, false}),
      nullptr, &failure);
  if (!ok) return Failure{failure};
  std::uint64_t points = 0;
  for (const auto& [time, slice] : bundle->slices()) {
    for (const auto& [name, grid] : slice->grids()) {
      const auto read = readGrid(*grid);
      if (!read.ok()) return Failure{file + ": " + read.error()};
      points += *read;
    }
  }
  return points;
}

/// What is read of a tile is dropped before the next one.
Outcome<std::uint64_t> readAll(const Paths& tiles) {
  omp_set_num_threads(1);
  std::uint64_t points = 0;
  for (const std::string& tile : tiles) {
    const auto read = readBundle(tile);
    if (!read.ok()) return read.failure();
    points += *read;
    MemCore::Cache::MemCache()->clear();
  }
  return points;
}

Outcome<std::uint64_t> decodeAll(const Paths& files) {
  std::uint64_t points = 0;
  for (const std::string& file : files) {
    const auto decoded = decodeOnly(file, 1);
    if (!decoded.ok()) return decoded.failure();
    points += *decoded;
  }
  return points;
}

void compareSizes(Bench& bench, const char* name, const Paths& tiles, const Paths& laz) {
  Finding finding;
  finding.goal = kSize;
  finding.name = fmt::format("size, default storage to {}", name);
  finding.ratio = static_cast<double>(bytesOf(tiles)) / static_cast<double>(bytesOf(laz));
  finding.figures = {{"MB", static_cast<double>(bytesOf(tiles)) / 1e6},
                     {"MB of LAZ", static_cast<double>(bytesOf(laz)) / 1e6}};
  bench.report.add(finding);
}

void compareReading(Bench& bench, const char* name, const Paths& tiles, const Paths& laz,
                    std::uint64_t points) {
  bench.compare(
      kRead, fmt::format("decode {} to reading the tiles, 1 thread", name),
      inChild([&] { return readAll(tiles); }), inChild([&] { return decodeAll(laz); }),
      [&](Finding& finding, const Comparison& compared) {
        const double count = static_cast<double>(points);
        finding.figures.emplace_back("Mpoints per s read", count / compared.floor.seconds / 1e6);
        const bool isRight = compared.floor.points == points && compared.work.points == points;
        return std::string(isRight ? "" : "wrong number of points");
      });
}

/// Splits a survey into tiles and writes those as LAZ, too. Errors: what the program says.
Outcome<Measurement> makeTiles(const std::string& program, const InputFacts& survey, double tiles,
                               const std::string& folder) {
  const std::string bundle = folder + "/tiles.f5";
  auto split =
      measureProgram(program,
                     {"split", survey.path, "-o", bundle, "--no-sync", "--quiet",
                      "--fragment-length", fmt::format("{:.3f}", survey.edgeForTiles(tiles))},
                     folder);
  if (!split.ok()) return split;
  return measureProgram(program, {"export", bundle, "-o", folder + "/laz", "--no-sync", "--quiet"},
                        folder);
}

struct Settings {
  std::string program = builtProgram();
  std::string laz;
  std::uint64_t points = 10'000'000;
  double tiles = 25.0;
};

void run(Bench& bench, const Settings& settings) {
  const auto survey = surveyAt(settings.laz, bench.workspace.path("survey.laz"), settings.points);
  if (!survey.ok()) return bench.report.fail(survey.error());
  const std::string folder = bench.workspace.path("tiles");
  fs::create_directories(folder);
  const auto made = makeTiles(settings.program, *survey, settings.tiles, folder);
  if (!made.ok()) return bench.report.fail(made.error());
  const Paths tiles = filesIn(folder + "/tiles", ".f5");
  const Paths laz = filesIn(folder + "/laz", ".laz");
  bench.report.say(fmt::format("{}: {} points in {} tiles",
                               fs::path(survey->path).filename().string(), survey->points,
                               tiles.size()));
  compareSizes(bench, "the survey's LAZ", tiles, {survey->path});
  compareSizes(bench, "the tiles' LAZ", tiles, laz);
  compareReading(bench, "the survey's LAZ", tiles, {survey->path}, survey->points);
  compareReading(bench, "the tiles' LAZ", tiles, laz, survey->points);
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("storage_benchmark", "Measures tiles in default storage against LAZ");
  Benchmarks::Settings settings;
  program.flags().add_option("--program", settings.program,
                             "The program [as built beside this one]");
  program.flags().add_option("--laz", settings.laz, "The survey; a synthetic one without it");
  program.flags().add_option("--points", settings.points, "Points of the synthetic survey");
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    if (bench.isSmoke) settings.points = 20'000;
    if (bench.isSmoke) settings.tiles = 4.0;
    Benchmarks::run(bench, settings);
  });
}
