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
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <vector>

#include "benchmarks/DecodeFloor.hpp"
#include "benchmarks/MeasuredChild.hpp"
#include "formats/cloud/PointCloudReader.hpp"
#include "formats/export/LasExport.hpp"
#include "formats/las/LasFile.hpp"
#include "formats/laz/LazCodec.hpp"
#include "host/synth/SyntheticSurvey.hpp"

namespace fs = std::filesystem;

namespace Benchmarks {

namespace {

using MemCore::Failure;
using MemCore::Outcome;

struct Scene {
  std::string laz;
  std::string bundle;
  std::string las;
  std::string out;
  std::uint64_t points = 0;
  int repetitions = 3;
};

MemCore::StrongPtr<Fiber::StorageTransformations> notDurable() {
  const auto transformations = MemCore::makeStrong<Fiber::StorageTransformations>();
  transformations->durable = false;
  return transformations;
}

Outcome<std::uint64_t> importCloud(const Scene& scene, int threads) {
  omp_set_num_threads(threads);
  Fiber::Bundle bundle;
  const auto summary = Formats::addPointCloud(bundle, {scene.laz}, {});
  if (!summary.ok()) return summary.failure();
  const auto saved = bundle.save(scene.bundle, nullptr, notDurable());
  if (!saved.ok()) return saved.failure();
  return summary->points;
}

Outcome<std::uint64_t> exportBundle(const Scene& scene, const std::string& path, int threads) {
  omp_set_num_threads(threads);
  bool ok = false;
  std::string failure;
  const auto bundle = Fiber::Bundle::load(ok,
                                          MemCore::makeStrong<MemCore::LoaderParameters>(
                                              MemCore::LoaderParameters{{scene.bundle}, false}),
                                          nullptr, &failure);
  if (!ok) return Failure{failure};
  const auto source = Formats::exportSource(*(*(*bundle)[0.0]).findGrid("points"));
  if (!source.ok()) return source.failure();
  Formats::LasExportOptions options;
  options.isCompressed = path.ends_with(".laz");
  const auto target = Formats::lasTargetOf(*source, options);
  if (!target.ok()) return target.failure();
  const auto grid = Formats::settleScaling(*source, options);
  if (!grid.ok()) return grid.failure();
  Formats::LasExportJob job;
  job.path = path;
  job.source = &*source;
  job.fragments = source->fragments;
  job.target = &*target;
  job.grid = *grid;
  const auto done = Formats::exportLas(job);
  if (!done.ok()) return done.failure();
  return done->points;
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

/// The best of some measurements; 0 seconds and a message when one fails.
double best(const char* name, const Scene& scene, const MeasuredWork& work, bool& isGood) {
  double seconds = 0.0;
  for (int i = 0; i < scene.repetitions; ++i) {
    const auto measured = measureInChild(work);
    if (!measured.ok() || measured->points != scene.points) {
      fmt::print(stderr, "export_benchmark: {}: {}\n", name,
                 measured.ok() ? "wrong number of points" : measured.error());
      isGood = false;
      return 0.0;
    }
    seconds = seconds == 0.0 ? measured->seconds : std::min(seconds, measured->seconds);
  }
  return seconds;
}

struct Comparison {
  const char* name;
  MeasuredWork floor;
  MeasuredWork work;
};

bool compareAll(const Scene& scene, int threads) {
  const std::string laz = scene.out + "/back.laz";
  const std::string las = scene.out + "/back.las";
  const std::vector<Comparison> comparisons{
      {"import LAZ", [&] { return decodeOnly(scene.laz, threads); },
       [&] { return importCloud(scene, threads); }},
      {"export LAZ", [&] { return encodeOnly(scene, threads); },
       [&] { return exportBundle(scene, laz, threads); }},
      {"export LAS", [&] { return copyOnly(scene); },
       [&] { return exportBundle(scene, las, threads); }}};
  bool isGood = true;
  for (const Comparison& comparison : comparisons) {
    const double floor = best(comparison.name, scene, comparison.floor, isGood);
    const double ours = best(comparison.name, scene, comparison.work, isGood);
    fmt::print(
        "{:<12} {} thread(s)  floor {:7.3f} s  ours {:7.3f} s  {:6.2f} M points/s  ratio "
        "{:5.2f}\n",
        comparison.name, threads, floor, ours,
        ours > 0.0 ? static_cast<double>(scene.points) / ours / 1e6 : 0.0,
        floor > 0.0 ? ours / floor : 0.0);
    std::fflush(stdout);
  }
  return isGood;
}

/// The survey, and a plain copy and a bundle of it. Everything runs in children, so that this
/// process starts no threads.
Outcome<std::uint64_t> prepare(const Scene& scene, std::uint64_t synthPoints) {
  if (synthPoints > 0) {
    Synth::SurveyOptions options;
    options.pointCount = synthPoints;
    options.hasWaveforms = false;
    const auto made = Synth::writeSyntheticSurvey(options, scene.laz, {});
    if (!made.ok()) return made.failure();
  }
  const auto imported = importCloud(scene, 2);
  if (!imported.ok()) return imported.failure();
  return exportBundle(scene, scene.las, 2);
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  CLI::App app("Measures import and export against the codec alone");
  Benchmarks::Scene scene;
  std::string folder =
      (fs::temp_directory_path() / fmt::format("export_benchmark.{}", ::getpid())).string();
  std::uint64_t points = 5'000'000;
  bool isSmoke = false;
  app.add_option("--laz", scene.laz, "The survey; a synthetic one without it");
  app.add_option("--points", points, "Points of the synthetic survey");
  app.add_option("--folder", folder, "Working folder, made, emptied and removed");
  app.add_option("--repetitions", scene.repetitions, "Measurements per line; the best counts");
  app.add_flag("--smoke", isSmoke, "One tiny pass");
  CLI11_PARSE(app, argc, argv);
  if (isSmoke) points = 20'000;
  if (isSmoke) scene.repetitions = 1;
  fs::create_directories(folder);
  scene.out = folder;
  scene.bundle = folder + "/survey.f5";
  scene.las = folder + "/survey.las";
  const bool isSynthetic = scene.laz.empty();
  if (isSynthetic) scene.laz = folder + "/survey.laz";
  const auto prepared = Benchmarks::measureInChild(
      [&] { return Benchmarks::prepare(scene, isSynthetic ? points : 0); });
  if (!prepared.ok()) {
    fmt::print(stderr, "export_benchmark: {}\n", prepared.error());
    return 1;
  }
  scene.points = prepared->points;
  bool isGood = true;
  for (const int threads : {1, 2}) isGood = Benchmarks::compareAll(scene, threads) && isGood;
  fs::remove_all(folder);
  return isGood ? 0 : 1;
}
