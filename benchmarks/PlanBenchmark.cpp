// SPDX-License-Identifier: Apache-2.0
//
// What planning costs at sizes far beyond what is split in a day. These goals are absolute: the
// ratio is what was measured to what is allowed.
//
//   mapping      a million tiles by ten thousand fragments: 1 s, and 300 bytes per tile
//                four hundred tiles by a million fragments: 1 s
//   whole plan   survey, tiling, output grid and mapping of fifty million tiles with 8 GB of
//                address space: done, or refused within 1 s with a text that tells the need

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>

#include "benchmarks/MappingScene.hpp"
#include "benchmarks/PlanScene.hpp"
#include "benchmarks/Program.hpp"
#include "datamodel/memcore/Console.hpp"
#include "operation/GridPlan.hpp"

namespace Benchmarks {

namespace {

using MemCore::Failure;
using MemCore::Outcome;

const Goal kManyTilesTime{"6a", Bound::AtMost, 1.0};
const Goal kManyTilesBytes{"6b", Bound::AtMost, 1.0};
const Goal kManyFragments{"6c", Bound::AtMost, 1.0};
const Goal kWholePlan{"6d", Bound::AtMost, 1.0};

constexpr double kSecondsAllowed = 1.0;
constexpr double kBytesPerTileAllowed = 300.0;
constexpr std::uint64_t kPlanBytesAllowed = 8'000'000'000;
constexpr double kRefusalSecondsAllowed = 1.0;

// ------------------------------------------------------------------------------------ mapping

std::string nameOf(const char* what, const MappingSizes& sizes) {
  return fmt::format("{}, {} tiles x {} fragments", what, sizes.tiles, sizes.fragments);
}

void addTime(Bench& bench, const Goal& goal, const MappingSizes& sizes,
             const Measurement& measured) {
  Finding finding;
  finding.goal = goal;
  finding.name = nameOf("mapping, time to 1 s", sizes);
  finding.ratio = measured.seconds / kSecondsAllowed;
  finding.seconds = measured.seconds;
  finding.peakBytes = measured.peakBytes;
  bench.report.add(finding);
}

void addBytes(Bench& bench, const MappingSizes& sizes, std::uint64_t peak, std::uint64_t before) {
  const double perTile =
      static_cast<double>(peak - std::min(peak, before)) / static_cast<double>(sizes.tiles);
  Finding finding;
  finding.goal = kManyTilesBytes;
  finding.name = nameOf("mapping, bytes to 300 a tile", sizes);
  finding.ratio = perTile / kBytesPerTileAllowed;
  finding.peakBytes = peak;
  finding.figures = {{"bytes per tile", perTile}};
  bench.report.add(finding);
}

/// Returns the measurement of the mapping; reports it when it fails.
Outcome<Measurement> measureMapping(Bench& bench, const MappingSizes& sizes) {
  auto measured = bestOf(bench.repetitions, mapping(sizes));
  if (!measured.ok()) bench.report.fail(nameOf("mapping", sizes) + ": " + measured.error());
  return measured;
}

void runMappings(Bench& bench, const MappingSizes& manyTiles, const MappingSizes& manyFragments) {
  if (const auto measured = measureMapping(bench, manyTiles); measured.ok()) {
    addTime(bench, kManyTilesTime, manyTiles, *measured);
    const auto before = mappingSceneAlone(manyTiles)();
    if (!before.ok()) return bench.report.fail(before.error());
    addBytes(bench, manyTiles, measured->peakBytes, before->peakBytes);
  }
  if (const auto measured = measureMapping(bench, manyFragments); measured.ok()) {
    addTime(bench, kManyFragments, manyFragments, *measured);
  }
}

// --------------------------------------------------------------------------------- whole plan

/// Plans as a run does, until the tiles would be built. Returns the number of tiles; 0 when the
/// operation refuses with a text that tells the need. Errors: it refuses without one, or the limit
/// is hit unforeseen.
Outcome<std::uint64_t> plan(const MappingSizes& sizes) {
  MemCore::Console::setSink([](const std::string&) {});
  const rlimit limit{kPlanBytesAllowed, kPlanBytesAllowed};
  ::setrlimit(RLIMIT_AS, &limit);
  LidarLib::RefragmentAndSplit operation;
  operation.inputBundle = Fiber::BundlePtr(new Fiber::Bundle);
  const auto input = promisedCloud(*operation.inputBundle, sizes.fragments);
  const double edge = 1.0 / static_cast<double>(edgeOf(sizes.tiles));
  // A little longer, so that rounding does not add a row.
  operation.FragmentLength = {{edge * (1 + 1e-9), edge * (1 + 1e-9), 0.0}};
  Fiber::Bundle output;
  LidarLib::GridPlan made;
  const auto outputGrid = (*output[0.0])["points"];
  if (planTiling(operation, *input, made) != LidarLib::PlanOutcome::Ready ||
      planOutput(operation, *input, outputGrid, made) != LidarLib::PlanOutcome::Ready) {
    const bool tellsNeed =
        !operation.messages.empty() && operation.messages.front().find(" GB") != std::string::npos;
    if (!tellsNeed) return Failure{"refused without a text that tells the need"};
    return 0;
  }
  return made.tileCount();
}

/// A refusal in time is as good as a plan within memory; running out of memory is neither.
void runWholePlan(Bench& bench, const MappingSizes& sizes) {
  const auto measured = measureInChild([&] { return plan(sizes); });
  Finding finding;
  finding.goal = kWholePlan;
  finding.name = nameOf("whole plan within 8 GB", sizes);
  if (measured.ok()) {
    const bool isRefused = measured->points == 0;
    finding.name =
        nameOf(isRefused ? "whole plan refused, time to 1 s" : "whole plan, memory to 8 GB", sizes);
    finding.ratio = isRefused ? measured->seconds / kRefusalSecondsAllowed
                              : static_cast<double>(measured->peakBytes) / kPlanBytesAllowed;
    finding.seconds = measured->seconds;
    finding.peakBytes = measured->peakBytes;
    finding.figures = {{"tiles planned", static_cast<double>(measured->points)}};
  } else {
    finding.failure = measured.error();
  }
  bench.report.add(finding);
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("plan_benchmark", "Measures planning at very large sizes");
  bool isQuick = false;
  program.flags().add_flag("--quick", isQuick, "A hundredth of the sizes");
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    const std::uint64_t part = bench.isSmoke ? 10'000 : isQuick ? 100 : 1;
    Benchmarks::runMappings(bench, {1'000'000 / part, 10'000}, {400, 1'000'000 / part});
    // The most that a tiling may have; both are squares or nearly so.
    Benchmarks::runWholePlan(bench,
                             {49'999'041 / part, 10'000 / std::min<std::uint64_t>(part, 100)});
  });
}
