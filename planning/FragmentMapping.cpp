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
#include <array>
#include <chrono>
#include <cmath>
#include <exception>

#include "datamodel/memcore/Console.hpp"

namespace LidarLib {

using Eagle::BoundingBox;
using Fiber::FragmentHandle;
using MemCore::StrongPtr;

namespace {

using TileCells = MemCore::Chunk<TileCell>;

/// Half-open.
struct IndexRange {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

/// The part of `range` that lies in `window`, whose index `origin` counts as 0. Empty ranges may
/// end before they begin.
IndexRange clipped(const IndexRange& range, const IndexRange& window, std::uint64_t origin) {
  const auto relative = [origin](std::uint64_t index) { return index - std::min(index, origin); };
  return {std::max(range.begin, relative(window.begin)), std::min(range.end, relative(window.end))};
}

/// The first index below `count` that fulfils a condition which, once true, stays true; `count`
/// when none does.
template <class Condition>
std::uint64_t firstIndex(std::uint64_t count, const Condition& holds) {
  IndexRange open{0, count};
  while (open.begin < open.end) {
    const std::uint64_t middle = open.begin + (open.end - open.begin) / 2;
    if (holds(middle)) {
      open.end = middle;
    } else {
      open.begin = middle + 1;
    }
  }
  return open.begin;
}

/// Which tiles a box touches along one axis. Range: closed, so that what shares a face touches.
/// NaN touches everything.
class AxisMatcher {
 public:
  AxisMatcher(const TilingLayout& layout, std::size_t axis, double normalizedOverlap,
              double tolerance)
      : layout_(layout),
        axis_(axis),
        count_(std::array{layout.nx, layout.ny, layout.nz}[axis]),
        normalizedOverlap_(normalizedOverlap),
        tolerance_(tolerance) {
    // Each rounding step is monotonic, so these hold for the rounded faces too.
    const double length = layout.fragmentLength[axis];
    facesAscend_ = count_ == 1 || (length >= 0.0 && std::isfinite(length) &&
                                   std::isfinite(layout.globalBox->min()[axis]));
  }

  std::uint64_t count() const { return count_; }

  /// A range of tiles outside of which the box touches none.
  IndexRange candidates(const BoundingBox& box) const {
    if (!facesAscend_) return {0, count_};
    return {firstIndex(count_, [&](std::uint64_t q) { return !endsBefore(q, box); }),
            firstIndex(count_, [&](std::uint64_t q) { return beginsAfter(q, box); })};
  }
  /// Whether the box touches one of its candidates. Bisection leaves no doubt about that.
  bool confirms(std::uint64_t q, const BoundingBox& box) const {
    return facesAscend_ || (!endsBefore(q, box) && !beginsAfter(q, box));
  }

 private:
  AxisInterval tile(std::uint64_t q) const {
    return tileInterval(layout_, axis_, q, normalizedOverlap_);
  }
  bool endsBefore(std::uint64_t q, const BoundingBox& box) const {
    return tile(q).max + tolerance_ < box.min()[axis_];
  }
  bool beginsAfter(std::uint64_t q, const BoundingBox& box) const {
    return box.max()[axis_] < tile(q).min - tolerance_;
  }

  const TilingLayout& layout_;
  std::size_t axis_;
  std::uint64_t count_;
  double normalizedOverlap_;
  double tolerance_;
  bool facesAscend_;
};

/// Deliberate: taken from tile 0 and used for every tile.
double matchTolerance(const TilingLayout& layout, double normalizedOverlap) {
  const auto edge = tileBox({}, layout, normalizedOverlap)->diagonal();
  return 0.001 * std::sqrt(edge[0] * edge[0] + edge[1] * edge[1] + edge[2] * edge[2]);
}

/// All fragments against all tiles. Threads: fill() may run at once on ranges that do not overlap.
class TileMatcher {
 public:
  TileMatcher(const TilingLayout& layout, double normalizedOverlap,
              const std::vector<FragmentEntry>& fragments)
      : TileMatcher(layout, normalizedOverlap, matchTolerance(layout, normalizedOverlap),
                    fragments) {}

  std::uint64_t tileCount() const { return x_.count() * y_.count() * z_.count(); }

  /// Inserts every fragment into the sets of those tiles of a range, at least one, that it touches.
  /// Returns how many tiles of the range then have fragments.
  std::uint64_t fill(const IndexRange& tiles, TileCells& cells) const {
    for (std::size_t f = 0; f < fragments_.size(); ++f) insertFragment(f, tiles, cells);
    std::uint64_t filled = 0;
    for (std::uint64_t t = tiles.begin; t < tiles.end; ++t)
      filled += cells[t].first.empty() ? 0 : 1;
    return filled;
  }

 private:
  struct Block {
    IndexRange x;
    IndexRange y;
    IndexRange z;
  };

  TileMatcher(const TilingLayout& layout, double normalizedOverlap, double tolerance,
              const std::vector<FragmentEntry>& fragments)
      : x_(layout, 0, normalizedOverlap, tolerance),
        y_(layout, 1, normalizedOverlap, tolerance),
        z_(layout, 2, normalizedOverlap, tolerance),
        fragments_(fragments),
        blocks_(fragments.size()) {
#pragma omp parallel for schedule(static)
    for (std::size_t f = 0; f < blocks_.size(); ++f) {
      // The block of a fragment without a box stays empty.
      const auto& box = fragments_[f].second;
      if (box) blocks_[f] = {x_.candidates(*box), y_.candidates(*box), z_.candidates(*box)};
    }
  }

  /// The outer loops visit only rows that the range and the block share.
  void insertFragment(std::size_t f, const IndexRange& tiles, TileCells& cells) const {
    const Block& block = blocks_[f];
    const IndexRange rows{tiles.begin / x_.count(), (tiles.end - 1) / x_.count() + 1};
    const IndexRange layers{rows.begin / y_.count(), (rows.end - 1) / y_.count() + 1};
    const IndexRange ks = clipped(block.z, layers, 0);
    for (std::uint64_t k = ks.begin; k < ks.end; ++k) {
      if (!z_.confirms(k, *fragments_[f].second)) continue;
      const IndexRange js = clipped(block.y, rows, y_.count() * k);
      for (std::uint64_t j = js.begin; j < js.end; ++j) {
        insertIntoRow(f, y_.count() * k + j, tiles, cells);
      }
    }
  }

  void insertIntoRow(std::size_t f, std::uint64_t row, const IndexRange& tiles,
                     TileCells& cells) const {
    const auto& [id, box] = fragments_[f];
    if (!y_.confirms(row % y_.count(), *box)) return;
    const std::uint64_t first = row * x_.count();
    const IndexRange is = clipped(blocks_[f].x, tiles, first);
    for (std::uint64_t i = is.begin; i < is.end; ++i) {
      if (x_.confirms(i, *box)) cells[first + i].first.insert(id);
    }
  }

  AxisMatcher x_;
  AxisMatcher y_;
  AxisMatcher z_;
  const std::vector<FragmentEntry>& fragments_;
  std::vector<Block> blocks_;
};

void rethrowFirst(const std::vector<std::exception_ptr>& failures) {
  for (const std::exception_ptr& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
}

/// Fills all sets in parallel and returns how many are not empty. Errors: what a thread could not
/// allocate is raised again on the calling thread.
std::uint64_t matchTilesToFragments(const TileMatcher& matcher, TileCells& cells) {
  constexpr std::uint64_t kRunsPerThread = 16;  // evens out tiles of differing cost
  const auto wantedRuns = static_cast<std::uint64_t>(omp_get_max_threads()) * kRunsPerThread;
  const std::uint64_t tileCount = matcher.tileCount();
  const std::uint64_t tilesPerRun = (tileCount + wantedRuns - 1) / wantedRuns;
  const std::uint64_t runCount = (tileCount + tilesPerRun - 1) / tilesPerRun;
  std::vector<std::exception_ptr> failures(runCount);
  std::uint64_t tilesWithData = 0;
#pragma omp parallel for schedule(dynamic, 1) reduction(+ : tilesWithData)
  for (std::uint64_t run = 0; run < runCount; ++run) {
    const std::uint64_t begin = run * tilesPerRun;
    try {
      tilesWithData += matcher.fill({begin, std::min(begin + tilesPerRun, tileCount)}, cells);
    } catch (...) {
      failures[run] = std::current_exception();
    }
  }
  rethrowFirst(failures);
  return tilesWithData;
}

/// One cell per tile with its output fragment and an empty set.
StrongPtr<TileCells> makeTileCells(const TilingLayout& layout,
                                   const Fiber::FragmentedUniformGrid3D& view) {
  auto cells = TileCells::uninitialised(layout.nx * layout.ny * layout.nz);
  auto cell = cells->begin();
  for (std::uint64_t k = 0; k < layout.nz; ++k) {
    for (std::uint64_t j = 0; j < layout.ny; ++j) {
      for (std::uint64_t i = 0; i < layout.nx; ++i) (cell++)->second = view.fragmentAt({{i, j, k}});
    }
  }
  return cells;
}

/// The entries of one run of fragments; adds their points to `pointTotal`.
void fillEntries(const std::vector<FragmentHandle>& ids, const StrongPtr<Fiber::Field>& positions,
                 const IndexRange& run, std::vector<FragmentEntry>& entries,
                 std::uint64_t& pointTotal) {
  for (std::uint64_t f = run.begin; f < run.end; ++f) {
    entries[f] = fragmentBox(ids[f], positions, pointTotal);
  }
}

/// Boxes that are not known yet are computed first, by several threads at once, and remembered;
/// then the entries only ask. Errors: what a thread could not allocate is raised again here.
std::vector<FragmentEntry> fragmentEntries(const std::vector<FragmentHandle>& fragmentIDs,
                                           const StrongPtr<Fiber::Field>& positions,
                                           std::uint64_t& pointTotal) {
  StrongPtr<BoundingBox> cloudBox;
  Fiber::expandBoundingBox(positions, cloudBox);
  constexpr std::uint64_t kRun = 4096;
  const std::uint64_t count = fragmentIDs.size();
  const std::uint64_t runs = (count + kRun - 1) / kRun;
  std::vector<FragmentEntry> entries(count);
  std::vector<std::exception_ptr> failures(runs);
  std::uint64_t points = 0;
#pragma omp parallel for schedule(dynamic, 1) reduction(+ : points) if (runs > 1)
  for (std::uint64_t run = 0; run < runs; ++run) {
    try {
      const IndexRange part{run * kRun, std::min((run + 1) * kRun, count)};
      fillEntries(fragmentIDs, positions, part, entries, points);
    } catch (...) {
      failures[run] = std::current_exception();
    }
  }
  rethrowFirst(failures);
  pointTotal += points;
  return entries;
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
  const std::uint64_t pointCount = Fiber::pointCountOf(*creator);
  pointTotal += pointCount;
  if (pointCount == 0) return {};
  StrongPtr<BoundingBox> box;
  Fiber::ExpandBBox(box, *creator, Fiber::DataCreationMode::KnownOrCreate);
  creator->finish();
  return {id, box};
}

FragmentMapping mapFragmentBoxes(const TilingLayout& layout,
                                 const Fiber::FragmentedUniformGrid3D& view,
                                 double normalizedOverlap,
                                 const std::vector<FragmentHandle>& fragmentIDs,
                                 const StrongPtr<Fiber::Field>& positions) {
  FragmentMapping mapping;
  mapping.tileCells = makeTileCells(layout, view);
  const auto fragments = fragmentEntries(fragmentIDs, positions, mapping.inputPointTotal);

  const auto start = std::chrono::system_clock::now();
  const TileMatcher matcher(layout, normalizedOverlap, fragments);
  mapping.tilesWithData =
      static_cast<std::uint32_t>(matchTilesToFragments(matcher, *mapping.tileCells));
  MemCore::Console() << "\nNeeded time for bbox mapping: " << secondsSince(start) << "[s]."
                     << " Estimated fragments with data for the out-bundle: "
                     << mapping.tilesWithData
                     << ". Total number of fragments: " << matcher.tileCount() << "\n";
  return mapping;
}

}  // namespace LidarLib
