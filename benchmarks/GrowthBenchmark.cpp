// SPDX-License-Identifier: Apache-2.0
//
// Does twice as much cost twice as much? Each curve takes five steps over two decades in the number
// of tiles, fragments, fields or files, everything else staying as it is. The ratio is the exponent
// b of the curve a * n^b that fits best in logarithms: 1 is in proportion, below 1 a fixed part
// still shows.
//
// benchmarks/plot_growth.py draws the curves from the results file.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>

#include "benchmarks/LinkScene.hpp"
#include "benchmarks/LinkedTable.hpp"
#include "benchmarks/MappingScene.hpp"
#include "benchmarks/PlanScene.hpp"
#include "benchmarks/Program.hpp"
#include "benchmarks/SurveyInput.hpp"
#include "datamodel/fiber/Bundle.hpp"
#include "formats/cloud/PointCloudReader.hpp"

namespace fs = std::filesystem;

namespace Benchmarks {

namespace {

using MemCore::Failure;
using MemCore::Outcome;

const Goal kExponent{"8b", Bound::AtMost, 1.2};
constexpr int kSteps = 5;
constexpr double kDecades = 2.0;

/// Makes the measurement for n of something; may prepare files first.
using MakeMeasure = std::function<Outcome<Measure>(std::uint64_t n)>;

struct Curve {
  std::string name;
  std::uint64_t largest = 0;  ///< the curve begins two decades below
  MakeMeasure make;
  bool needsSquares = false;  ///< n must be the square of a whole number
};

struct CurvePoint {
  double n = 0.0;
  double seconds = 0.0;
};

/// The slope of the line that fits the logarithms best.
double exponentOf(const std::vector<CurvePoint>& points) {
  double sumX = 0.0;
  double sumY = 0.0;
  double sumXX = 0.0;
  double sumXY = 0.0;
  for (const CurvePoint& point : points) {
    const double x = std::log(point.n);
    const double y = std::log(point.seconds);
    sumX += x;
    sumY += y;
    sumXX += x * x;
    sumXY += x * y;
  }
  const auto count = static_cast<double>(points.size());
  return (count * sumXY - sumX * sumY) / (count * sumXX - sumX * sumX);
}

/// The slope from the second largest to the largest: what the fit could hide.
double lastExponentOf(const std::vector<CurvePoint>& points) {
  const CurvePoint& last = points[points.size() - 1];
  const CurvePoint& before = points[points.size() - 2];
  return std::log(last.seconds / before.seconds) / std::log(last.n / before.n);
}

void draw(Bench& bench, const Curve& curve) {
  std::vector<CurvePoint> points;
  for (int step = 0; step < kSteps; ++step) {
    const double below = kDecades * (kSteps - 1 - step) / (kSteps - 1);
    const double wanted = static_cast<double>(curve.largest) * std::pow(10.0, -below);
    auto n = std::max<std::uint64_t>(1, static_cast<std::uint64_t>(std::lround(wanted)));
    if (curve.needsSquares) n = edgeOf(n) * edgeOf(n);
    const auto measure = curve.make(n);
    if (!measure.ok()) return bench.report.fail(curve.name + ": " + measure.error());
    const auto measured = bestOf(bench.repetitions, *measure);
    if (!measured.ok()) return bench.report.fail(curve.name + ": " + measured.error());
    if (measured->points != n) {
      return bench.report.fail(
          fmt::format("{}: wrong answer, found {}, expected {}", curve.name, measured->points, n));
    }
    points.push_back({static_cast<double>(n), measured->seconds});
    bench.report.addGrowth(curve.name, points.back().n, points.back().seconds);
  }
  Finding finding;
  finding.goal = kExponent;
  finding.name = "exponent of growth: " + curve.name;
  finding.ratio = exponentOf(points);
  finding.figures = {{"at the upper end", lastExponentOf(points)}};
  bench.report.add(finding);
}

// ------------------------------------------------------------------------------------ fields

constexpr std::uint64_t kPointsPerField = 20'000;

Fiber::Bundle bundleOfFields(std::uint64_t fields) {
  Fiber::Bundle bundle;
  const auto vertices = (*bundle[0.0])["points"]->makeCartesianRepresentation(3, "", 0);
  const auto add = [&](const std::string& name, const MemCore::StrongPtr<Fiber::MemBase>& data) {
    vertices->makeField(vertices->makeFieldID(name), nullptr, data);
  };
  add("Positions",
      Fiber::makeArray<Eagle::PhysicalSpace::point>(
          MemCore::makeStrong<MemCore::Chunk<Eagle::PhysicalSpace::point>>(kPointsPerField)));
  for (std::uint64_t f = 0; f < fields; ++f) {
    const auto values = MemCore::makeStrong<MemCore::Chunk<std::uint16_t>>(kPointsPerField);
    for (std::uint64_t i = 0; i < kPointsPerField; ++i) {
      (*values)[i] = static_cast<std::uint16_t>((i * (f + 7)) % 1000);
    }
    add(fmt::format("Field{}", f), Fiber::makeArray<std::uint16_t>(values));
  }
  return bundle;
}

/// Saves a tile of n fields, loads it and reads them all; returns how many came back.
Outcome<std::uint64_t> saveAndRead(Fiber::Bundle& bundle, const std::string& file) {
  const auto transformations = MemCore::makeStrong<Fiber::StorageTransformations>();
  transformations->durable = false;
  const auto saved = bundle.save(file, nullptr, transformations);
  if (!saved.ok()) return saved.failure();
  bool ok = false;
  const auto loaded = Fiber::Bundle::load(
      ok, MemCore::makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, false}),
      nullptr);
  if (!ok) return Failure{file + ": cannot be loaded"};
  const auto vertices = (*(*loaded)[0.0]).findGrid("points")->getCartesianRepresentation("");
  std::uint64_t read = 0;
  for (const auto& [name, field] : vertices->fields()) {
    const auto creator = field->getFirstCreator();
    read += name != "Positions" && creator && creator->data() ? 1 : 0;
  }
  return read;
}

// ------------------------------------------------------------------------------------- files

/// Opens files as one cloud; returns how many.
Outcome<std::uint64_t> openFiles(const std::vector<std::string>& files) {
  Fiber::Bundle bundle;
  const auto cloud = Formats::addPointCloud(bundle, files, {});
  if (!cloud.ok()) return cloud.failure();
  return files.size();
}

Outcome<std::vector<std::string>> makeFiles(const std::string& folder, std::uint64_t count) {
  constexpr std::uint64_t kPoints = 1'000;
  const auto first = makeSurvey(folder + "/first.las", kPoints);
  if (!first.ok()) return first.failure();
  std::vector<std::string> files;
  for (std::uint64_t f = 0; f < count; ++f) {
    files.push_back(fmt::format("{}/{}.las", folder, f));
    fs::copy_file(first->path, files.back());
  }
  return files;
}

// ------------------------------------------------------------------------------------ curves

/// A measure that checks its answer itself, counted in something else than it delivers.
Measure delivering(std::uint64_t n, const Measure& measure) {
  return [n, measure]() -> Outcome<Measurement> {
    auto measured = measure();
    if (measured.ok()) measured->points = n;
    return measured;
  };
}

/// A part of the sizes meant, for quick runs.
std::vector<Curve> allCurves(Bench& bench, std::uint64_t part) {
  const std::string table = bench.workspace.path("table.f5");
  const std::string tile = bench.workspace.path("fields.f5");
  return {{"mapping, tiles", 1'000'000 / part,
           [](std::uint64_t n) -> Outcome<Measure> {
             return mapping({n, 1'000});
           },
           true},
          {"mapping, fragments", 1'000'000 / part,
           [](std::uint64_t n) -> Outcome<Measure> {
             return delivering(n, mapping({400, n}));
           }},
          {"linking, tile files", 10'000 / part,
           [&bench](std::uint64_t n) -> Outcome<Measure> {
             auto scene = makeLinkScene(bench.workspace.freshFolder(), n);
             if (!scene.ok()) return scene.failure();
             return inChild([scene = *scene] { return linkAll(scene); });
           }},
          {"saving links, fragments", 100'000 / part,
           [=](std::uint64_t n) -> Outcome<Measure> { return savingLinks(table, n); }},
          {"opening links, fragments", 100'000 / part,
           [=](std::uint64_t n) -> Outcome<Measure> {
             const auto saved = savingLinks(table, n)();
             if (!saved.ok()) return saved.failure();
             return openingLinks(table);
           }},
          {"saving and reading a tile, fields", 400 / std::min<std::uint64_t>(part, 4),
           [=](std::uint64_t n) -> Outcome<Measure> {
             return Measure([=] {
               Fiber::Bundle bundle;  // filled in the child
               return measureInChild([&] { return saveAndRead(bundle, tile); },
                                     [&]() -> Outcome<std::uint64_t> {
                                       bundle = bundleOfFields(n);
                                       return n;
                                     });
             });
           }},
          {"opening a cloud, LAS files", 1'000 / std::min<std::uint64_t>(part, 10),
           [&bench](std::uint64_t n) -> Outcome<Measure> {
             auto files = makeFiles(bench.workspace.freshFolder(), n);
             if (!files.ok()) return files.failure();
             return inChild([files = *files] { return openFiles(files); });
           }}};
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("growth_benchmark", "Measures how costs grow over two decades");
  bool isQuick = false;
  program.flags().add_flag("--quick", isQuick, "A tenth of the sizes");
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    const std::uint64_t part = bench.isSmoke ? 100 : isQuick ? 10 : 1;
    for (const auto& curve : Benchmarks::allCurves(bench, part)) Benchmarks::draw(bench, curve);
  });
}
