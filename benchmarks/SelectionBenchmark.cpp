// SPDX-License-Identifier: Apache-2.0
//
// How close is the selection of a tile's points to the speed of memory? One thread, one array of
// positions in memory; the floor is adding the array up, which tells the bandwidth of reading. The
// ratio is the share of that bandwidth: floor time over measured time. The allocator is set as the
// program sets it: lists up to 32 MB get the memory of the repetition before, as those of the
// second tile get that of the first.
//
//   every block tested    points in random order, so that no box of a block decides anything
//   all outside, inside   the boxes of the blocks decide everything

#include <fmt/format.h>

#include <cmath>
#include <random>

#include "assembly/PointBlockBoxes.hpp"
#include "assembly/PointSelection.hpp"
#include "benchmarks/Program.hpp"
#include "datamodel/memcore/Allocator.hpp"
#include "datamodel/memcore/Cache.hpp"

namespace Benchmarks {

namespace {

using Eagle::PhysicalSpace;
using LidarLib::PointBlockBoxes;
using LidarLib::PositionArray;
using MemCore::Outcome;
using MemCore::StrongPtr;

const Goal kSelection{"5a", Bound::AtLeast, 0.8};

/// Sixty-four bytes of doubles: what one load fetches where the machine can.
using Doubles [[gnu::vector_size(64)]] = double;

/// Adds up all numbers, in eight independent chains so that nothing but memory is waited for.
[[gnu::target_clones("avx512f", "avx2", "default")]] double sumOf(const double* at,
                                                                  std::size_t count) {
  constexpr std::size_t kChains = 8;
  constexpr std::size_t kStep = kChains * sizeof(Doubles) / sizeof(double);
  Doubles sums[kChains] = {};
  std::size_t i = 0;
  for (; i + kStep <= count; i += kStep) {
    const auto* vectors = reinterpret_cast<const Doubles*>(at + i);
    for (std::size_t c = 0; c < kChains; ++c) sums[c] += vectors[c];
  }
  double sum = 0.0;
  for (const Doubles& chain : sums) {
    for (std::size_t lane = 0; lane < sizeof(Doubles) / sizeof(double); ++lane) sum += chain[lane];
  }
  for (; i < count; ++i) sum += at[i];
  return sum;
}

/// Points of a unit cube in random order, so that every block spans all of it; chunks are aligned
/// to 64 bytes.
StrongPtr<PositionArray> randomCube(std::size_t count) {
  auto chunk = MemCore::Chunk<PhysicalSpace::point>::uninitialised(count);
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (auto& point : *chunk) point = {unit(random), unit(random), unit(random)};
  auto array = Fiber::makeArray<PhysicalSpace::point>(chunk);
  PointBlockBoxes::attachTo(*array);
  return array;
}

/// One way that the blocks can lie to the tile.
struct Query {
  Goal goal;
  const char* name;
  Eagle::BoundingBox box;
};

Measure adding(const PositionArray& points) {
  return inThisProcess([&points]() -> Outcome<std::uint64_t> {
    const double sum = sumOf(&points[0].x, 3 * points.count());
    // Each coordinate is a half on average.
    const double expected = 1.5 * static_cast<double>(points.count());
    if (std::abs(sum - expected) > 0.1 * expected) return MemCore::Failure{"wrong sum"};
    return points.count();
  });
}

void select(Bench& bench, const PositionArray& points, const Query& query) {
  const Measure selecting = inThisProcess([&]() -> Outcome<std::uint64_t> {
    return LidarLib::selectPointsInBox(points, query.box, {{1, 1, 1}})->size();
  });
  const auto compared = compareInTurn(bench.repetitions, adding(points), selecting);
  if (!compared.ok()) return bench.report.fail(fmt::format("{}: {}", query.name, compared.error()));
  // Counted plainly, once.
  const LidarLib::TileBounds bounds(query.box, {{1, 1, 1}});
  std::uint64_t expected = 0;
  for (const auto& point : points.span()) expected += bounds.contains(point) ? 1 : 0;
  if (compared->work.points != expected) {
    return bench.report.fail(fmt::format("{}: wrong answer, found {} points, expected {}",
                                         query.name, compared->work.points, expected));
  }
  Finding finding = findingOf(query.goal, query.name, *compared);
  finding.ratio = compared->floor.seconds / compared->work.seconds;
  const double blocks = static_cast<double>(Fiber::blockCount(points.count()));
  const double gigabytes = static_cast<double>(points.byteCount()) / 1e9;
  finding.figures = {{"ns per block", compared->work.seconds / blocks * 1e9},
                     {"GB per s", gigabytes / compared->work.seconds},
                     {"GB per s added up", gigabytes / compared->floor.seconds}};
  bench.report.add(finding);
}

void selectAll(Bench& bench, std::size_t count) {
  const auto points = randomCube(count);
  bench.report.say(fmt::format("selection from {} points", count));
  const auto box = points->findInterface<PointBlockBoxes>();
  bench.compare({}, "boxes of all blocks, once per array, to adding up", adding(*points),
                inThisProcess([&]() -> Outcome<std::uint64_t> {
                  PositionArray again({points->count()}, points->chunk());
                  PointBlockBoxes::attachTo(again);
                  return again.findInterface<PointBlockBoxes>()->boxes(again.span()).size();
                }));
  box->boxes(points->span());
  for (const Query& query :
       {Query{kSelection,
              "selection, every block tested, none inside",
              {{0.5, 0.5, 0.5}, {0.5, 0.5, 0.5 + 1e-9}}},
        Query{kSelection,
              "selection, every block tested, 4 % inside",
              {{0.4, 0.4, -1.0}, {0.6, 0.6, 2.0}}},
        Query{kSelection,
              "selection, every block tested, 50 % inside",
              {{0.5, -1.0, -1.0}, {2.0, 2.0, 2.0}}},
        Query{{}, "selection, all blocks outside", {{5.0, 5.0, 5.0}, {6.0, 6.0, 6.0}}},
        Query{{}, "selection, all blocks inside", {{-1.0, -1.0, -1.0}, {2.0, 2.0, 2.0}}}}) {
    select(bench, *points, query);
  }
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("selection_benchmark",
                              "Measures point selection against the speed of memory");
  std::size_t points = 10'000'000;
  program.flags().add_option("--points", points, "Points in memory")->check(CLI::PositiveNumber);
  MemCore::fitAllocator(MemCore::Cache::MemCache()->budget());
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    Benchmarks::selectAll(bench, bench.isSmoke ? 50'000 : points);
  });
}
