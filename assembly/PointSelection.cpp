// SPDX-License-Identifier: Apache-2.0

#include "assembly/PointSelection.hpp"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <numeric>
#include <vector>

#include "assembly/PointBlockBoxes.hpp"
#include "datamodel/memcore/ParallelFor.hpp"

namespace LidarLib {

using Eagle::BoundingBox;
using Eagle::PhysicalSpace;
using Fiber::IndexList;
using MemCore::makeStrong;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

using PointSpan = std::span<const PhysicalSpace::point>;

/// One block of a fragment's points that is not wholly outside the tile.
struct CandidateBlock {
  std::size_t first = 0;  ///< index of its first point
  std::size_t count = 0;
  bool isInside = false;
};

/// The candidate blocks of so many points, in ascending order. Without a table every block is one.
std::vector<CandidateBlock> candidateBlocks(std::size_t pointCount, std::span<const PointBox> boxes,
                                            const TileBounds& bounds) {
  constexpr std::size_t kBlock = Fiber::kBlockPoints;
  const std::size_t blocks = Fiber::blockCount(pointCount);
  std::vector<CandidateBlock> candidates;
  for (std::size_t b = 0; b < blocks; ++b) {
    const auto relation = b < boxes.size() ? relationOf(boxes[b], bounds) : BlockRelation::Mixed;
    if (relation == BlockRelation::Outside) continue;
    const std::size_t first = b * kBlock;
    candidates.push_back(
        {first, std::min(kBlock, pointCount - first), relation == BlockRelation::Inside});
  }
  return candidates;
}

using Candidates = std::span<const CandidateBlock>;

/// The points of a fragment's candidate blocks that belong to the tile: marked first, listed in the
/// end, when it is known how much room their list takes. A mark is a bit, an index 32: the bits of
/// many blocks stay in the processor's cache.
class SelectedPoints {
 public:
  /// The candidates must outlive this.
  SelectedPoints(Candidates candidates, const TileBounds& bounds)
      : candidates_(candidates), bounds_(bounds), marks_(candidates.size() * kWords) {}

  /// Takes the points of candidate k, a mixed one.
  void mark(std::size_t k, PointSpan pointsOfBlock) {
    count_ += markInside(pointsOfBlock, bounds_, marksOf(k));
  }
  /// Takes all points of candidate k.
  void markAll(std::size_t k) { count_ += candidates_[k].count; }

  /// The list, once every candidate has been taken.
  StrongPtr<IndexList> list() {
    auto list = makeStrong<IndexList>();
    if (count_ == 0) return list;
    std::uint32_t* next = list->grow(count_ + kExpandSlack);
    for (std::size_t k = 0; k < candidates_.size(); ++k) next += listBlock(k, next);
    list->truncate(count_);
    return list;
  }

 private:
  static constexpr std::size_t kWords = markWords(Fiber::kBlockPoints);

  std::span<std::uint64_t> marksOf(std::size_t k) {
    return std::span(marks_).subspan(k * kWords, markWords(candidates_[k].count));
  }

  std::size_t listBlock(std::size_t k, std::uint32_t* indices) {
    const CandidateBlock& block = candidates_[k];
    const auto first = static_cast<std::uint32_t>(block.first);
    if (!block.isInside) return expandMarks(marksOf(k), first, indices);
    std::iota(indices, indices + block.count, first);
    return block.count;
  }

  Candidates candidates_;
  const TileBounds& bounds_;
  std::vector<std::uint64_t> marks_;  ///< kWords per candidate
  std::size_t count_ = 0;
};

/// How many candidates from the front on are mixed and without a gap, up to what is read at once.
std::size_t mixedRun(Candidates candidates) {
  constexpr std::size_t kMostBlocks = 8;
  std::size_t length = 0;
  for (const CandidateBlock& block : candidates.first(std::min(kMostBlocks, candidates.size()))) {
    if (block.isInside || block.first != candidates.front().first + length * Fiber::kBlockPoints) {
      break;
    }
    ++length;
  }
  return length;
}

/// The selected points of one fragment, and what was gathered of them.
struct FragmentSelection {
  StrongPtr<IndexList> points;  ///< empty: the fragment has no usable positions
  StrongPtr<Fiber::PointPart> part;
};

/// How much of one tile may be gathered while it is selected: enough for small tiles, where blocks
/// are read for a few points each, little beside a large one.
class GatherAllowance {
 public:
  bool take(std::uint64_t bytes) {
    return taken_.fetch_add(bytes, std::memory_order_relaxed) + bytes <= kMostBytes;
  }

 private:
  static constexpr std::uint64_t kMostBytes = std::uint64_t{2} << 20U;
  std::atomic<std::uint64_t> taken_ = 0;
};

/// Gathers selected points whose records the reader has just read. Points that cannot be gathered
/// will be missed later, and said to be, by whoever needs them.
StrongPtr<Fiber::PointPart> gatherAtOnce(Fiber::PointPartReader& reader, const IndexList& points,
                                         GatherAllowance& allowance) {
  if (points.empty() || !allowance.take(points.size() * reader.bytesPerPoint())) return nullptr;
  const auto part = reader.gather(points.span());
  return part ? *part : nullptr;
}

/// Selects by way of a reader, which is asked for the positions of mixed blocks alone.
Outcome<FragmentSelection> selectByParts(Fiber::PointPartReader& reader, const TileBounds& bounds,
                                         GatherAllowance& allowance) {
  const auto boxes = reader.blockBoxes();
  if (!boxes) return boxes.failure();
  // Indices have 32 bits; what lies beyond them cannot be named.
  const auto candidates =
      candidateBlocks(static_cast<std::uint32_t>(reader.pointCount()), *boxes, bounds);
  SelectedPoints selected(candidates, bounds);
  std::vector<PhysicalSpace::point> points;  // of the mixed blocks last read
  for (std::size_t k = 0; k < candidates.size();) {
    const std::size_t mixed = mixedRun(Candidates(candidates).subspan(k));
    if (mixed == 0) {
      selected.markAll(k++);
      continue;
    }
    const std::size_t first = candidates[k].first;
    const CandidateBlock& last = candidates[k + mixed - 1];
    points.resize(last.first + last.count - first);
    if (auto read = reader.readPositions(first, points); !read) return read.failure();
    for (const std::size_t end = k + mixed; k < end; ++k) {
      const CandidateBlock& block = candidates[k];
      selected.mark(k, PointSpan(points).subspan(block.first - first, block.count));
    }
  }
  FragmentSelection found{selected.list(), nullptr};
  if (!points.empty()) found.part = gatherAtOnce(reader, *found.points, allowance);
  return found;
}

/// What the selection of every fragment of one tile shares.
struct TileQuery {
  const Fiber::Field& positions;
  const BoundingBox& box;
  const Fiber::MultiIndex<3>& index;
  GatherAllowance& allowance;
};

FragmentSelection selectFromFragment(const TileQuery& query,
                                     const Fiber::FragmentHandle& fragment) {
  const Fiber::CreatorHandle creator = query.positions.getCreator(fragment);
  if (!creator) return {};
  if (const auto reader = creator->partReader()) {
    auto selected = selectByParts(*reader, {query.box, query.index}, query.allowance);
    if (selected) return std::move(*selected);
    creator->rememberFailure(selected.error());
    return {};
  }
  const auto points = MemCore::handleCast<PositionArray>(creator->data());
  if (!points) return {};
  PointBlockBoxes::attachTo(*points);
  return {selectPointsInBox(*points, query.box, query.index), nullptr};
}

/// Several threads share the fragments; each entry has one writer. An exception (out of memory)
/// leaves on the calling thread.
void selectInParallel(const TileQuery& query, const std::vector<Fiber::FragmentHandle>& fragments,
                      std::span<FragmentSelection> found) {
  MemCore::parallelFor(fragments.size(),
                       [&](std::size_t k) { found[k] = selectFromFragment(query, fragments[k]); });
}

}  // namespace

StrongPtr<IndexList> selectPointsInBox(const PositionArray& points, const BoundingBox& box,
                                       const Fiber::MultiIndex<3>& index) {
  const TileBounds bounds(box, index);
  // Indices have 32 bits; what lies beyond them cannot be named.
  const PointSpan reachable = points.span().first(static_cast<std::uint32_t>(points.count()));
  const auto table = points.findInterface<PointBlockBoxes>();
  const auto boxes = table ? table->boxes(points.span()) : std::span<const PointBox>();
  const auto candidates = candidateBlocks(reachable.size(), boxes, bounds);

  SelectedPoints selected(candidates, bounds);
  for (std::size_t k = 0; k < candidates.size(); ++k) {
    const CandidateBlock& block = candidates[k];
    if (block.isInside) {
      selected.markAll(k);
    } else {
      selected.mark(k, reachable.subspan(block.first, block.count));
    }
  }
  return selected.list();
}

TileSelection selectPointsInTile(const FragmentSet& fragments,
                                 const StrongPtr<Fiber::Field>& positions,
                                 const StrongPtr<BoundingBox>& box,
                                 const Fiber::MultiIndex<3>& index) {
  TileSelection selection;
  selection.indexLists = makeStrong<MemCore::Chunk<StrongPtr<IndexList>>>(fragments.size());
  if (!positions || !box) return selection;

  GatherAllowance allowance;
  const TileQuery query{*positions, *box, index, allowance};
  std::vector<FragmentSelection> found(fragments.size());
  if (fragments.size() < 2 || omp_in_parallel() != 0) {
    std::size_t k = 0;
    for (const Fiber::FragmentHandle& fragment : fragments) {
      found[k++] = selectFromFragment(query, fragment);
    }
  } else {
    selectInParallel(query, {fragments.begin(), fragments.end()}, found);
  }
  auto list = selection.indexLists->begin();
  for (FragmentSelection& one : found) {
    if (one.points) selection.pointCount += static_cast<std::uint32_t>(one.points->size());
    *list++ = std::move(one.points);
    selection.parts.push_back(std::move(one.part));
  }
  return selection;
}

}  // namespace LidarLib
