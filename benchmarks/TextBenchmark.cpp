// SPDX-License-Identifier: Apache-2.0
//
// What text files of points cost to read and to write. Every step stands beside the floor of the
// same run: reading the file by one thread, finding its line ends and parsing every number, the
// numbers being added up and thrown away.
//
//   survey   the pass that opens a cloud: counts, types, boxes, and the columns on the way
//   data     all positions of the opened cloud, from the cache
//   again    the same with an empty cache: parsed a second time
//   format   all points as rows of text, by one thread
//
// The file is made up from a seed: coordinates of three decimals, an intensity, a time.

#include <fast_float/fast_float.h>
#include <fmt/format.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "benchmarks/Program.hpp"
#include "datamodel/memcore/Cache.hpp"
#include "formats/text/TextCloudReader.hpp"
#include "formats/text/TextRows.hpp"

namespace fs = std::filesystem;

namespace Benchmarks {

namespace {

using MemCore::Failure;
using MemCore::Outcome;

struct Scene {
  std::string file;
  std::uint64_t points = 0;
  double sum = 0.0;  ///< of all numbers, to the precision of their sum
};

Scene makeScene(const std::string& file, std::uint64_t points) {
  Scene scene{file, points, 0.0};
  std::mt19937_64 random(1);
  std::ofstream out(file, std::ios::binary);
  out << "x,y,z,intensity,gps_time\n";
  for (std::uint64_t i = 0; i < points; ++i) {
    const auto x = 455000.0 + static_cast<double>(random() % 1000000) / 1000.0;
    const auto y = 5427000.0 + static_cast<double>(random() % 1000000) / 1000.0;
    const auto z = static_cast<double>(random() % 50000) / 1000.0;
    const auto intensity = random() % 65536;
    const auto time = 300000.0 + static_cast<double>(i) * 1e-5;
    out << fmt::format("{:.3f},{:.3f},{:.3f},{},{:.6f}\n", x, y, z, intensity, time);
    scene.sum += x + y + z + static_cast<double>(intensity) + time;
  }
  return scene;
}

/// Parses every number of whole lines and returns their sum.
double sumOf(const char* at, const char* end) {
  double sum = 0.0;
  while (const auto* const lineEnd =
             static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)))) {
    while (at < lineEnd) {
      double value = 0.0;
      at = fast_float::from_chars(at, lineEnd, value).ptr + 1;
      sum += value;
    }
    at = lineEnd + 1;
  }
  return sum;
}

/// The floor, piece by piece.
Outcome<std::uint64_t> parsePlainly(const Scene& scene) {
  constexpr std::size_t kPieceBytes = std::size_t{1} << 18U;
  std::ifstream file(scene.file, std::ios::binary);
  std::string header;
  std::getline(file, header);
  std::vector<char> buffer(kPieceBytes);
  std::size_t kept = 0;
  double sum = 0.0;
  while (file.read(buffer.data() + kept, static_cast<std::streamsize>(kPieceBytes - kept)) ||
         file.gcount() != 0) {
    const std::size_t size = kept + static_cast<std::size_t>(file.gcount());
    std::size_t whole = size;
    while (whole > 0 && buffer[whole - 1] != '\n') --whole;
    sum += sumOf(buffer.data(), buffer.data() + whole);
    kept = size - whole;
    std::memmove(buffer.data(), buffer.data() + whole, kept);
  }
  constexpr double kTolerance = 1e-9;
  if (std::abs(sum - scene.sum) > kTolerance * scene.sum) return Failure{"the plain sum is wrong"};
  return scene.points;
}

MemCore::StrongPtr<Fiber::Field> positionsOf(Fiber::Bundle& bundle) {
  return bundle[0.0]->findGrid("points")->CartesianPositions();
}

Outcome<std::uint64_t> survey(Fiber::Bundle& bundle, const Scene& scene) {
  const auto cloud = Formats::addTextCloud(bundle, {scene.file}, {});
  if (!cloud) return cloud.failure();
  return cloud->points;
}

Outcome<std::uint64_t> readData(Fiber::Bundle& bundle) {
  const auto positions = positionsOf(bundle);
  const auto ids = positions->getFragmentIDs();
  std::uint64_t points = 0;
#pragma omp parallel for schedule(dynamic, 1) reduction(+ : points)
  for (std::size_t i = 0; i < ids.size(); ++i) {
    const auto data = positions->getData(ids[i]);
    points += data ? data->size().elementCount() : 0;
  }
  return points;
}

Outcome<std::uint64_t> formatAll(Fiber::Bundle& bundle, const Scene& scene) {
  const auto positions = positionsOf(bundle);
  std::uint64_t points = 0;
  for (const auto& id : positions->getFragmentIDs()) {
    const std::vector<Formats::TextColumn> columns{
        {"Positions", positions->getData(id), Formats::decimalsOf(positions->properties())}};
    const auto text = Formats::formatRows(columns, {});
    if (!text) return text.failure();
    points += static_cast<std::uint64_t>(std::count(text->begin(), text->end(), '\n'));
  }
  return std::min(points, scene.points);
}

/// Opens the cloud; then makes all data once, or empties the cache.
Outcome<std::uint64_t> prepareCloud(Fiber::Bundle& bundle, const Scene& scene, bool isCached) {
  if (const auto opened = survey(bundle, scene); !opened) return opened.failure();
  if (isCached) return readData(bundle);
  MemCore::Cache::MemCache()->clear();
  return scene.points;
}

struct Step {
  const char* name;
  bool isCached;  ///< all data are in the cache beforehand
  Outcome<std::uint64_t> (*work)(Fiber::Bundle&, const Scene&);
};

void compare(Bench& bench, const Scene& scene, const Measure& floor, const char* name,
             const Measure& work) {
  const double megabytes = static_cast<double>(fs::file_size(scene.file)) / 1e6;
  bench.compare(
      {}, fmt::format("{} {} thread(s)", name, omp_get_max_threads()), floor, work,
      [&](Finding& finding, const Comparison& compared) {
        finding.figures.emplace_back("MB per s", megabytes / compared.work.seconds);
        return std::string(compared.work.points == scene.points ? "" : "a point is missing");
      });
}

void run(Bench& bench, std::uint64_t points) {
  const Scene scene = makeScene(bench.workspace.path("survey.csv"), points);
  bench.report.say(fmt::format("{} points as text", points));
  const Measure floor = inChild([&] { return parsePlainly(scene); });
  compare(bench, scene, floor, "text: survey", inChild([&] {
            Fiber::Bundle bundle;
            return survey(bundle, scene);
          }));
  const auto data = [](Fiber::Bundle& bundle, const Scene&) { return readData(bundle); };
  for (const Step& step :
       {Step{"text: data, cached", true, data}, Step{"text: data, again", false, data},
        Step{"text: format", true, formatAll}}) {
    Fiber::Bundle bundle;  // every child fills its own copy
    compare(bench, scene, floor, step.name,
            inChild([&] { return step.work(bundle, scene); },
                    [&] { return prepareCloud(bundle, scene, step.isCached); }));
  }
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("text_benchmark",
                              "Measures what text files of points cost to read and to write");
  std::uint64_t points = 5'000'000;
  program.flags().add_option("--points", points, "Rows of the file");
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    Benchmarks::run(bench, bench.isSmoke ? 1000 : points);
  });
}
