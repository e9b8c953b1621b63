// SPDX-License-Identifier: Apache-2.0
//
// What does a second thread bring? Each stage of a split by one thread and by two; the ratio is the
// speed-up. Stages that wait for the disk are left out.
//
//   survey       the boxes of all fragments of a LAS file, decoded for them
//   tiles        selecting and copying the points of all tiles, input in memory, nothing written
//   encode       saving a bundle in default storage; the disk is not waited for
//   decode       all chunks of a LAZ file
//   split        the whole run, LAS to tiles and LAZ to tiles

#include <fmt/format.h>
#include <omp.h>

#include "benchmarks/DecodeFloor.hpp"
#include "benchmarks/Program.hpp"
#include "benchmarks/SplitScenario.hpp"
#include "benchmarks/SurveyInput.hpp"
#include "datamodel/memcore/Console.hpp"
#include "formats/cloud/PointCloudReader.hpp"
#include "operation/GridPlan.hpp"
#include "operation/TileCopy.hpp"

namespace Benchmarks {

namespace {

using MemCore::Failure;
using MemCore::Outcome;

const Goal kSpeedUp{"8a", Bound::AtLeast, 1.8};
constexpr double kTiles = 100.0;

/// The cloud of a file, with all that is needed to build its tiles; filled in the child.
struct OpenCloud {
  LidarLib::RefragmentAndSplit operation;
  MemCore::StrongPtr<Fiber::Grid> grid;
  Fiber::Bundle output;
  LidarLib::GridPlan plan;
};

Outcome<std::uint64_t> openCloud(OpenCloud& cloud, const InputFacts& input, int threads) {
  omp_set_num_threads(threads);
  MemCore::Console::setSink([](const std::string&) {});
  auto& bundle = cloud.operation.inputBundle;
  bundle = Fiber::BundlePtr(new Fiber::Bundle);
  const auto added = Formats::addPointCloud(*bundle, {input.path}, {});
  if (!added.ok()) return added.failure();
  cloud.grid = (*(*bundle)[0.0]).findGrid("points");
  return added->points;
}

/// The first pass over the points: boxes, tiling, mapping.
Outcome<std::uint64_t> surveyCloud(OpenCloud& cloud, const InputFacts& input) {
  const double edge = input.edgeForTiles(kTiles);
  cloud.operation.FragmentLength = {{edge, edge, 0.0}};
  const auto outputGrid = (*cloud.output[0.0])["points"];
  if (planTiling(cloud.operation, *cloud.grid, cloud.plan) != LidarLib::PlanOutcome::Ready ||
      planOutput(cloud.operation, *cloud.grid, outputGrid, cloud.plan) !=
          LidarLib::PlanOutcome::Ready) {
    return Failure{cloud.operation.messages.empty() ? "no plan" : cloud.operation.messages.front()};
  }
  return cloud.plan.mapping.inputPointTotal;
}

/// Everything of the input in memory, planned.
Outcome<std::uint64_t> prepareTiles(OpenCloud& cloud, const InputFacts& input, int threads) {
  if (auto opened = openCloud(cloud, input, threads); !opened.ok()) return opened;
  auto planned = surveyCloud(cloud, input);
  if (!planned.ok()) return planned;
  const auto vertices = cloud.grid->getCartesianRepresentation("");
  for (const auto& [name, field] : vertices->fields()) {
    for (const auto& fragment : vertices->fragments()->all()) {
      if (!field->getData(fragment)) return Failure{name + ": cannot be read"};
    }
  }
  return planned;
}

/// One tile as a run builds it, thrown away instead of saved; returns its points.
std::uint64_t buildTile(OpenCloud& cloud, std::uint64_t t) {
  const auto& cell = (*cloud.plan.mapping.tileCells)[t];
  if (cell.first.empty()) return 0;
  const auto points = selectTilePoints(cloud.operation, cloud.plan, cell, cloud.plan.tileIndex(t));
  LidarLib::FieldCopy copy =
      fieldCopyFor(cloud.operation, cloud.plan, cell, *cloud.grid, points.selection);
  copy.tileIndex = cloud.plan.tileIndex(t);
  copy.outputGrid = MemCore::makeStrong<Fiber::Grid>("tile");
  LidarLib::copyFieldsIntoTile(copy, *cloud.grid->skeletons().findVertices(-1));
  return points.selection.pointCount;
}

Outcome<std::uint64_t> buildTiles(OpenCloud& cloud) {
  std::uint64_t points = 0;
  const std::uint64_t tiles = cloud.plan.tileCount();
#pragma omp parallel for schedule(dynamic, 1) reduction(+ : points)
  for (std::uint64_t t = 0; t < tiles; ++t) points += buildTile(cloud, t);
  return points;
}

Outcome<std::uint64_t> encode(OpenCloud& cloud, const std::string& folder) {
  const auto transformations = MemCore::makeStrong<Fiber::StorageTransformations>();
  transformations->durable = false;
  const auto saved =
      cloud.operation.inputBundle->save(folder + "/encoded.f5", nullptr, transformations);
  if (!saved.ok()) return saved.failure();
  return cloud.plan.mapping.inputPointTotal;
}

using MakeMeasure = std::function<Measure(int threads)>;

void compare(Bench& bench, const std::string& name, const InputFacts& input,
             const MakeMeasure& make) {
  const auto compared = compareInTurn(bench.repetitions, make(2), make(1));
  bench.workspace.giveBackSpace();
  if (!compared.ok()) return bench.report.fail(name + ": " + compared.error());
  if (compared->work.points != input.points || compared->floor.points != input.points) {
    return bench.report.fail(fmt::format("{}: wrong answer, found {} points, expected {}", name,
                                         compared->work.points, input.points));
  }
  Finding finding = findingOf(kSpeedUp, "speed-up by a second thread: " + name, *compared);
  finding.floorSeconds = 0.0;
  finding.figures = {{"s by two", compared->floor.seconds}};
  bench.report.add(finding);
}

/// A measure over an open cloud; `prepare` is not timed.
template <class Prepare, class Work>
Measure onCloud(Prepare prepare, Work work) {
  return [=] {
    OpenCloud cloud;
    return measureInChild([&] { return work(cloud); }, [&] { return prepare(cloud); });
  };
}

Measure splitting(Bench& bench, const InputFacts& input, int threads) {
  return [&bench, input, threads] {
    SplitJob job;
    job.input = input.path;
    job.folder = bench.workspace.freshFolder();
    job.edgeLength = input.edgeForTiles(kTiles);
    job.threads = threads;
    return measureInChild([&] { return splitFile(job); });
  };
}

void run(Bench& bench, std::uint64_t points) {
  const auto made = makeSurvey(bench.workspace.path("survey.las"), points);
  const auto packed = makeSurvey(bench.workspace.path("survey.laz"), points);
  if (!made.ok() || !packed.ok()) return bench.report.fail((made.ok() ? packed : made).error());
  const InputFacts las = *made;
  const InputFacts laz = *packed;
  bench.report.say(fmt::format("{} points, {} processors", las.points, omp_get_num_procs()));
  const auto ready = [las](int threads) {
    return [las, threads](OpenCloud& cloud) { return prepareTiles(cloud, las, threads); };
  };
  compare(bench, "survey", las, [&](int threads) {
    return onCloud([las, threads](OpenCloud& cloud) { return openCloud(cloud, las, threads); },
                   [las](OpenCloud& cloud) { return surveyCloud(cloud, las); });
  });
  compare(bench, "tiles", las, [&](int threads) { return onCloud(ready(threads), buildTiles); });
  compare(bench, "encode", las, [&](int threads) {
    return onCloud(ready(threads), [folder = bench.workspace.freshFolder()](OpenCloud& cloud) {
      return encode(cloud, folder);
    });
  });
  compare(bench, "decode", laz, [&](int threads) {
    return inChild([laz, threads] { return decodeOnly(laz.path, threads); });
  });
  compare(bench, "split LAS", las, [&](int threads) { return splitting(bench, las, threads); });
  compare(bench, "split LAZ", laz, [&](int threads) { return splitting(bench, laz, threads); });
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("scaling_benchmark", "Measures what a second thread brings");
  std::uint64_t points = 5'000'000;
  program.flags().add_option("--points", points, "Points of the synthetic survey");
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    Benchmarks::run(bench, bench.isSmoke ? 20'000 : points);
  });
}
