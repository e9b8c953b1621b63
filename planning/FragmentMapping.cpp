// SPDX-License-Identifier: Apache-2.0
//
// Tiles are regular, so the tiles that a fragment's box touches form a block of indices, found by
// bisection along each axis with the very comparison that defines touching: work grows with tiles +
// fragments + matches, not with tiles x fragments. Each thread then owns whole runs of tiles and
// goes through all fragments in order, so every set has one writer and one order of insertion,
// whatever the number of threads, and nothing is locked.

#include "planning/FragmentMapping.hpp"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>

#include "datamodel/memcore/Allocator.hpp"
#include "datamodel/memcore/Console.hpp"
#include "datamodel/memcore/ParallelFor.hpp"
#include "planning/AxisMatcher.hpp"

namespace LidarLib {

using Eagle::BoundingBox;
using Fiber::FragmentHandle;
using MemCore::StrongPtr;

namespace {

using TileCells = MemCore::Chunk<TileCell>;

/// The part of `range` that lies in `window`, whose index `origin` counts as 0. Empty ranges may
/// end before they begin.
IndexRange clipped(const IndexRange& range, const IndexRange& window, std::uint64_t origin) {
  const auto relative = [origin](std::uint64_t index) { return index - std::min(index, origin); };
  return {std::max(range.begin, relative(window.begin)), std::min(range.end, relative(window.end))};
}

/// Input fragments, and the box of each; empty for a fragment without data.
struct FragmentBoxes {
  const std::vector<FragmentHandle>& ids;
  std::vector<StrongPtr<const BoundingBox>> boxes;
};

/// Deliberate: taken from tile 0 and used for every tile.
double matchTolerance(const TilingLayout& layout, double normalizedOverlap) {
  const auto edge = tileBox({}, layout, normalizedOverlap)->diagonal();
  return 0.001 * std::sqrt(edge[0] * edge[0] + edge[1] * edge[1] + edge[2] * edge[2]);
}

/// All fragments against all tiles. Threads: fill() may run at once for different runs.
class TileMatcher {
 public:
  TileMatcher(const TilingLayout& layout, double normalizedOverlap, const FragmentBoxes& fragments)
      : TileMatcher(layout, normalizedOverlap, matchTolerance(layout, normalizedOverlap),
                    fragments) {}

  std::uint64_t tileCount() const { return x_.count() * y_.count() * z_.count(); }

  /// Sorts the fragments by the runs of tiles that they may touch, in their order.
  void divideIntoRuns(std::uint64_t tilesPerRun) {
    tilesPerRun_ = tilesPerRun;
    runs_.resize((tileCount() + tilesPerRun - 1) / tilesPerRun);
    for (std::size_t f = 0; f < blocks_.size(); ++f) {
      forEachRow(blocks_[f], [&](const IndexRange& tiles) {
        for (std::uint64_t r = tiles.begin / tilesPerRun; r * tilesPerRun < tiles.end; ++r) {
          if (runs_[r].empty() || runs_[r].back() != f) runs_[r].push_back(f);
        }
      });
    }
  }
  std::uint64_t runCount() const { return runs_.size(); }

  /// Inserts the fragments of a run into the sets of those of its tiles that they touch. Returns
  /// how many tiles of the run then have fragments.
  std::uint64_t fill(std::uint64_t run, TileCells& cells) const {
    const IndexRange tiles{run * tilesPerRun_, std::min((run + 1) * tilesPerRun_, tileCount())};
    for (const std::size_t f : runs_[run]) insertFragment(f, tiles, cells);
    std::uint64_t filled = 0;
    for (std::uint64_t t = tiles.begin; t < tiles.end; ++t)
      filled += cells[t].first.empty() ? 0 : 1;
    return filled;
  }

  /// The bytes that the cells with their sets take up at least. It need not be exact where it is
  /// sure that `enough` are enough, nor where counting would take long and it is sure that they are
  /// not.
  std::uint64_t leastBytes(std::uint64_t bytesPerEmptyTile, std::uint64_t enough) const {
    // The first insertion makes a table of buckets, each one a node.
    constexpr std::uint64_t kBucketsBytes = 112;
    constexpr std::uint64_t kNodeBytes = 32;
    constexpr std::uint64_t kMostToCount = 200'000'000;
    const std::uint64_t cells = tileCount() * bytesPerEmptyTile;
    // Which candidates are confirmed is not known before each one is asked.
    if (!x_.facesAscend() || !y_.facesAscend() || !z_.facesAscend()) return cells;
    const std::uint64_t matches = matchCount();
    const std::uint64_t least = cells + matches * kNodeBytes;
    const std::uint64_t most = least + std::min(matches, tileCount()) * kBucketsBytes;
    if (most <= enough || (least > enough && matches > kMostToCount)) return least;
    return least + touchedCount() * kBucketsBytes;
  }

 private:
  /// The tiles that a box may touch: ranges along the axes.
  struct Block {
    IndexRange x;
    IndexRange y;
    IndexRange z;

    std::uint64_t tileCount() const { return lengthOf(x) * lengthOf(y) * lengthOf(z); }
    static std::uint64_t lengthOf(const IndexRange& range) {
      return range.end - std::min(range.begin, range.end);
    }
  };

  TileMatcher(const TilingLayout& layout, double normalizedOverlap, double tolerance,
              const FragmentBoxes& fragments)
      : x_(layout, 0, normalizedOverlap, tolerance),
        y_(layout, 1, normalizedOverlap, tolerance),
        z_(layout, 2, normalizedOverlap, tolerance),
        fragments_(fragments),
        blocks_(fragments.boxes.size()) {
#pragma omp parallel for schedule(static)
    for (std::size_t f = 0; f < blocks_.size(); ++f) {
      // The block of a fragment without a box stays empty.
      const auto& box = fragments_.boxes[f];
      if (box) blocks_[f] = {x_.candidates(*box), y_.candidates(*box), z_.candidates(*box)};
    }
  }

  /// Calls visit(tiles) for every row of a block that is not empty.
  template <class Visit>
  void forEachRow(const Block& block, const Visit& visit) const {
    if (block.tileCount() == 0) return;
    for (std::uint64_t k = block.z.begin; k < block.z.end; ++k) {
      for (std::uint64_t j = block.y.begin; j < block.y.end; ++j) {
        const std::uint64_t first = (y_.count() * k + j) * x_.count();
        visit(IndexRange{first + block.x.begin, first + block.x.end});
      }
    }
  }

  /// Pairs of a fragment and a tile that it touches; stops counting where no memory would do.
  std::uint64_t matchCount() const {
    constexpr std::uint64_t kEnough = std::uint64_t{1} << 48U;
    std::uint64_t count = 0;
    for (const Block& block : blocks_) count = std::min(count + block.tileCount(), kEnough);
    return count;
  }

  /// Tiles that some fragment touches.
  std::uint64_t touchedCount() const {
    std::vector<bool> isTouched(tileCount());
    for (const Block& block : blocks_) {
      forEachRow(block, [&](const IndexRange& tiles) {
        std::fill(isTouched.begin() + static_cast<std::ptrdiff_t>(tiles.begin),
                  isTouched.begin() + static_cast<std::ptrdiff_t>(tiles.end), true);
      });
    }
    return static_cast<std::uint64_t>(std::count(isTouched.begin(), isTouched.end(), true));
  }

  /// The outer loops visit only rows that the range and the block share.
  void insertFragment(std::size_t f, const IndexRange& tiles, TileCells& cells) const {
    const Block& block = blocks_[f];
    const IndexRange rows{tiles.begin / x_.count(), (tiles.end - 1) / x_.count() + 1};
    const IndexRange layers{rows.begin / y_.count(), (rows.end - 1) / y_.count() + 1};
    const IndexRange ks = clipped(block.z, layers, 0);
    for (std::uint64_t k = ks.begin; k < ks.end; ++k) {
      if (!z_.confirms(k, *fragments_.boxes[f])) continue;
      const IndexRange js = clipped(block.y, rows, y_.count() * k);
      for (std::uint64_t j = js.begin; j < js.end; ++j) {
        insertIntoRow(f, y_.count() * k + j, tiles, cells);
      }
    }
  }

  void insertIntoRow(std::size_t f, std::uint64_t row, const IndexRange& tiles,
                     TileCells& cells) const {
    const auto& box = fragments_.boxes[f];
    if (!y_.confirms(row % y_.count(), *box)) return;
    const std::uint64_t first = row * x_.count();
    const IndexRange is = clipped(blocks_[f].x, tiles, first);
    for (std::uint64_t i = is.begin; i < is.end; ++i) {
      if (x_.confirms(i, *box)) cells[first + i].first.insert(fragments_.ids[f]);
    }
  }

  AxisMatcher x_;
  AxisMatcher y_;
  AxisMatcher z_;
  const FragmentBoxes& fragments_;
  std::vector<Block> blocks_;
  std::uint64_t tilesPerRun_ = 0;
  std::vector<std::vector<std::size_t>> runs_;  ///< fragments in ascending order
};

/// Fills all sets in parallel and returns how many are not empty. Errors: what a thread could not
/// allocate is raised again on the calling thread.
std::uint64_t matchTilesToFragments(TileMatcher& matcher, TileCells& cells) {
  constexpr std::uint64_t kRunsPerThread = 16;  // evens out tiles of differing cost
  const auto wantedRuns = static_cast<std::uint64_t>(omp_get_max_threads()) * kRunsPerThread;
  matcher.divideIntoRuns((matcher.tileCount() + wantedRuns - 1) / wantedRuns);
  std::atomic<std::uint64_t> tilesWithData = 0;
  MemCore::parallelFor(matcher.runCount(),
                       [&](std::size_t run) { tilesWithData += matcher.fill(run, cells); });
  return tilesWithData;
}

/// One cell per tile with its output fragment and an empty set.
StrongPtr<TileCells> makeTileCells(const TilingLayout& layout,
                                   const Fiber::FragmentedUniformGrid3D& view) {
  constexpr std::uint64_t kAtOnce = 4096;
  auto cells = TileCells::uninitialised(layout.nx * layout.ny * layout.nz);
  auto cell = cells->begin();
  for (std::uint64_t k = 0; k < layout.nz; ++k) {
    for (std::uint64_t j = 0; j < layout.ny; ++j) {
      for (std::uint64_t i = 0; i < layout.nx; i += kAtOnce) {
        auto fragments = view.fragmentsFrom({{i, j, k}}, std::min(kAtOnce, layout.nx - i));
        for (FragmentHandle& fragment : fragments) (cell++)->second = std::move(fragment);
      }
    }
  }
  return cells;
}

/// The box of one fragment, the creator's own; empty without data. Adds its points to `pointTotal`.
StrongPtr<const BoundingBox> boxOfFragment(Fiber::CreativeArrayBase& creator,
                                           std::uint64_t& pointTotal) {
  const std::uint64_t pointCount = Fiber::pointCountOf(creator);
  pointTotal += pointCount;
  if (pointCount == 0) return nullptr;
  auto box = Fiber::boxOf(creator, Fiber::DataCreationMode::KnownOrCreate);
  creator.finish();
  return box;
}

/// The boxes of one run of fragments; returns the number of their points.
std::uint64_t fillBoxes(FragmentBoxes& fragments, const Fiber::Field& positions,
                        const IndexRange& run) {
  std::vector<unsigned> numbers;
  for (std::uint64_t f = run.begin; f < run.end; ++f) {
    numbers.push_back(fragments.ids[f] ? fragments.ids[f]->number() : 0);
  }
  const auto creators = positions.getCreators(numbers);
  std::uint64_t pointTotal = 0;
  for (std::uint64_t f = run.begin; f < run.end; ++f) {
    const auto& creator = creators[f - run.begin];
    if (fragments.ids[f] && creator) fragments.boxes[f] = boxOfFragment(*creator, pointTotal);
  }
  return pointTotal;
}

/// Boxes that are not known yet are computed first, by several threads at once, and remembered;
/// then the creators only tell. Errors: what a thread could not allocate is raised again here.
FragmentBoxes fragmentBoxes(const std::vector<FragmentHandle>& fragmentIDs,
                            const StrongPtr<Fiber::Field>& positions, std::uint64_t& pointTotal) {
  StrongPtr<BoundingBox> cloudBox;
  Fiber::expandBoundingBox(positions, cloudBox);
  constexpr std::uint64_t kRun = 4096;
  const std::uint64_t count = fragmentIDs.size();
  const std::uint64_t runs = (count + kRun - 1) / kRun;
  FragmentBoxes fragments{fragmentIDs, std::vector<StrongPtr<const BoundingBox>>(count)};
  std::atomic<std::uint64_t> points = 0;
  MemCore::parallelFor(runs, [&](std::size_t run) {
    points += fillBoxes(fragments, *positions, {run * kRun, std::min((run + 1) * kRun, count)});
  });
  pointTotal += points;
  return fragments;
}

/// Errors: MappingTooLarge. A lower bound is asked, so that nothing is refused that could be done.
void requireMemory(const TileMatcher& matcher, const Fiber::FragmentedUniformGrid3D& view) {
  const std::uint64_t usable = MemCore::usableMemory();
  const std::uint64_t bytesPerEmptyTile =
      sizeof(TileCell) + (view.hasFragments() ? sizeof(Fiber::FragmentID) : 0);
  const std::uint64_t needed = matcher.leastBytes(bytesPerEmptyTile, usable);
  if (needed > usable) throw MappingTooLarge(needed);
}

double secondsSince(const std::chrono::system_clock::time_point& start) {
  const auto elapsed = std::chrono::system_clock::now() - start;
  return 1e-9 *
         static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count());
}

}  // namespace

FragmentEntry fragmentBox(const FragmentHandle& id, const StrongPtr<Fiber::Field>& positions,
                          std::uint64_t& pointTotal) {
  const Fiber::CreatorHandle creator = positions->getCreator(id);
  if (!creator) return {};
  const std::uint64_t before = pointTotal;
  const auto box = boxOfFragment(*creator, pointTotal);
  if (pointTotal == before) return {};
  return {id, box ? MemCore::makeStrong<BoundingBox>(*box) : nullptr};
}

FragmentMapping mapFragmentBoxes(const TilingLayout& layout,
                                 const Fiber::FragmentedUniformGrid3D& view,
                                 double normalizedOverlap,
                                 const std::vector<FragmentHandle>& fragmentIDs,
                                 const StrongPtr<Fiber::Field>& positions) {
  FragmentMapping mapping;
  const auto fragments = fragmentBoxes(fragmentIDs, positions, mapping.inputPointTotal);

  const auto start = std::chrono::system_clock::now();
  TileMatcher matcher(layout, normalizedOverlap, fragments);
  requireMemory(matcher, view);
  mapping.tileCells = makeTileCells(layout, view);
  mapping.tilesWithData =
      static_cast<std::uint32_t>(matchTilesToFragments(matcher, *mapping.tileCells));
  MemCore::Console() << "\nNeeded time for bbox mapping: " << secondsSince(start) << "[s]."
                     << " Estimated fragments with data for the out-bundle: "
                     << mapping.tilesWithData
                     << ". Total number of fragments: " << matcher.tileCount() << "\n";
  return mapping;
}

}  // namespace LidarLib
