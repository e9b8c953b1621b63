// SPDX-License-Identifier: Apache-2.0
//
// What the way from LAZ to a bundle and back costs, beside the mere codec on the same threads:
//
//   import   a LAZ file as a bundle (default storage); floor: decoding all its chunks
//   export   that bundle as LAZ; floor: reading the same records from a plain LAS file and encoding
//            them, thrown away
//   export   that bundle as LAS; floor: copying the plain LAS file
//
// Without --laz a synthetic survey is taken. Every line checks that all points came through.

#include <fmt/format.h>
#include <omp.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "benchmarks/BundlePoints.hpp"
#include "benchmarks/ChildProgram.hpp"
#include "benchmarks/DecodeFloor.hpp"
#include "benchmarks/Program.hpp"
#include "benchmarks/SurveyInput.hpp"
#include "formats/las/LasFile.hpp"
#include "formats/laz/LazCodec.hpp"

namespace fs = std::filesystem;

namespace Benchmarks {

namespace {

using MemCore::Failure;
using MemCore::Outcome;

struct Scene {
  std::string program = builtProgram();
  std::string laz;
  std::string bundle;
  std::string las;
  std::string out;
  std::uint64_t points = 0;
};

/// The number of points of a LAS or LAZ file.
Outcome<std::uint64_t> pointsOf(const std::string& path) {
  const auto opened = Formats::LasFile::open(path);
  if (!opened.ok()) return opened.failure();
  return (*opened)->pointCount();
}

/// Runs the program as its users do; waiting for the disk left out.
Measure running(const Scene& scene, std::vector<std::string> arguments, int threads) {
  for (const char* more : {"--no-sync", "--force", "--threads"}) arguments.emplace_back(more);
  arguments.push_back(std::to_string(threads));
  return [&scene, arguments] { return measureProgram(scene.program, arguments, scene.out); };
}

/// Empties what an earlier run has written: freeing its pages would be counted with the next one.
void emptyFile(const std::string& path) {
  std::error_code none;
  fs::resize_file(path, 0, none);
}

Measure importing(const Scene& scene, int threads) {
  return [&scene, run = running(scene, {"import", scene.laz, "-o", scene.bundle}, threads)] {
    emptyFile(scene.bundle);
    auto measured = run();
    if (!measured.ok()) return measured;
    const auto points = pointsOfBundle(scene.bundle);
    if (!points.ok()) return Outcome<Measurement>(points.failure());
    measured->points = *points;
    return measured;
  };
}

Measure exporting(const Scene& scene, const std::string& path, int threads) {
  return [path, run = running(scene, {"export", scene.bundle, "-o", path}, threads)] {
    emptyFile(path);
    auto measured = run();
    if (!measured.ok()) return measured;
    const auto points = pointsOf(path);
    if (!points.ok()) return Outcome<Measurement>(points.failure());
    measured->points = *points;
    return measured;
  };
}

/// Reads the records of a plain file and encodes them, chunk by chunk.
Outcome<std::uint64_t> encodeOnly(const Scene& scene, int threads) {
  const auto opened = Formats::LasFile::open(scene.las);
  if (!opened.ok()) return opened.failure();
  const Formats::LasFile& file = **opened;
  const auto extra = static_cast<std::uint16_t>(
      file.recordBytes() - Formats::standardRecordBytes(file.header().pointFormat));
  const auto codec = Formats::LazCodec::forFormat(file.header().pointFormat, extra);
  if (!codec.ok()) return codec.failure();
  constexpr std::uint64_t kChunk = Formats::kUsualChunkPoints;
  const auto chunks = static_cast<std::int64_t>((file.pointCount() + kChunk - 1) / kChunk);
  bool encodedAll = true;
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads) reduction(&& : encodedAll)
  for (std::int64_t c = 0; c < chunks; ++c) {
    const std::uint64_t first = static_cast<std::uint64_t>(c) * kChunk;
    const std::uint64_t count = std::min(kChunk, file.pointCount() - first);
    std::vector<std::byte> records(count * file.recordBytes());
    encodedAll =
        encodedAll && file.readRecords(first, count, records).ok() && codec->compress(records).ok();
  }
  if (!encodedAll) return Failure{scene.las + ": encoding failed"};
  return file.pointCount();
}

Outcome<std::uint64_t> copyOnly(const Scene& scene) {
  fs::copy_file(scene.las, scene.out + "/copy.las", fs::copy_options::overwrite_existing);
  return scene.points;
}

const Goal kImport{"10a", Bound::AtMost, 1.2};
const Goal kExport{"10b", Bound::AtMost, 1.2};

struct Step {
  Goal goal;
  const char* name;
  Measure floor;
  Measure work;
};

void compareAll(Bench& bench, const Scene& scene, int threads) {
  const std::string laz = scene.out + "/back.laz";
  const std::string las = scene.out + "/back.las";
  const std::vector<Step> steps{
      {kImport, "import LAZ", inChild([&] { return decodeOnly(scene.laz, threads); }),
       importing(scene, threads)},
      {kExport, "export LAZ", inChild([&] { return encodeOnly(scene, threads); }),
       exporting(scene, laz, threads)},
      {{}, "export LAS", inChild([&] { return copyOnly(scene); }), exporting(scene, las, threads)}};
  for (const Step& step : steps) {
    bench.compare(
        step.goal, fmt::format("{} {} thread(s)", step.name, threads), step.floor, step.work,
        [&](Finding& finding, const Comparison& compared) {
          const double points = static_cast<double>(scene.points);
          finding.figures.emplace_back("Mpoints per s", points / compared.work.seconds / 1e6);
          const bool isRight =
              compared.floor.points == scene.points && compared.work.points == scene.points;
          return std::string(isRight ? "" : "wrong number of points");
        });
  }
}

/// A bundle of the survey, and a plain copy. Everything runs in children, so that this process
/// starts no threads.
Outcome<std::uint64_t> prepare(const Scene& scene) {
  for (const Measure& step : {importing(scene, 2), exporting(scene, scene.las, 2)}) {
    const auto done = step();
    if (!done.ok()) return done.failure();
  }
  return pointsOf(scene.laz);
}

void run(Bench& bench, const std::string& laz, std::uint64_t points) {
  const auto survey = surveyAt(laz, bench.workspace.path("survey.laz"), points);
  if (!survey.ok()) return bench.report.fail(survey.error());
  Scene scene;
  scene.laz = survey->path;
  scene.out = bench.workspace.folder();
  scene.bundle = bench.workspace.path("survey.f5");
  scene.las = bench.workspace.path("survey.las");
  const auto prepared = prepare(scene);
  if (!prepared.ok()) return bench.report.fail(prepared.error());
  scene.points = *prepared;
  for (const int threads : {1, 2}) compareAll(bench, scene, threads);
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("export_benchmark",
                              "Measures import and export against the codec alone");
  std::string laz;
  std::uint64_t points = 5'000'000;
  program.flags().add_option("--laz", laz, "The survey; a synthetic one without it");
  program.flags().add_option("--points", points, "Points of the synthetic survey");
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    Benchmarks::run(bench, laz, bench.isSmoke ? 20'000 : points);
  });
}
