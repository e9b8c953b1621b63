// SPDX-License-Identifier: Apache-2.0

#include "assembly/PointSelection.hpp"

#include <omp.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <numeric>
#include <vector>

#include "assembly/PointBlockBoxes.hpp"

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

void appendWholeBlock(IndexList& list, const CandidateBlock& block) {
  std::uint32_t* added = list.grow(block.count);
  std::iota(added, added + block.count, static_cast<std::uint32_t>(block.first));
}

/// Adds the points of a block that lie inside the tile.
void appendMixedBlock(IndexList& list, PointSpan pointsOfBlock, const CandidateBlock& block,
                      const TileBounds& bounds) {
  const std::size_t before = list.size();
  std::uint32_t* added = list.grow(block.count + kCollectSlack);
  const std::size_t selected =
      collectInside(pointsOfBlock, bounds, static_cast<std::uint32_t>(block.first), added);
  list.truncate(before + selected);
}

/// A list with room for the candidates.
StrongPtr<IndexList> listFor(const std::vector<CandidateBlock>& candidates) {
  auto list = makeStrong<IndexList>();
  if (candidates.empty()) return list;
  list->reserve(candidates.size() * Fiber::kBlockPoints + kCollectSlack);
  return list;
}

using Candidates = std::span<const CandidateBlock>;

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

/// Reads the positions of a run of mixed blocks and adds those inside the tile.
Outcome<void> appendMixedRun(IndexList& list, Fiber::PointPartReader& reader, Candidates run,
                             const TileBounds& bounds) {
  const std::size_t first = run.front().first;
  std::vector<PhysicalSpace::point> points(run.back().first + run.back().count - first);
  if (auto read = reader.readPositions(first, points); !read) return read;
  for (const CandidateBlock& block : run) {
    appendMixedBlock(list, PointSpan(points).subspan(block.first - first, block.count), block,
                     bounds);
  }
  return {};
}

/// Selects by way of a reader, which is asked for the positions of mixed blocks alone.
Outcome<StrongPtr<IndexList>> selectByParts(Fiber::PointPartReader& reader,
                                            const TileBounds& bounds) {
  const auto boxes = reader.blockBoxes();
  if (!boxes) return boxes.failure();
  // Indices have 32 bits; what lies beyond them cannot be named.
  const auto candidates =
      candidateBlocks(static_cast<std::uint32_t>(reader.pointCount()), *boxes, bounds);
  auto list = listFor(candidates);
  for (Candidates rest = candidates; !rest.empty();) {
    const std::size_t mixed = mixedRun(rest);
    if (mixed == 0) {
      appendWholeBlock(*list, rest.front());
    } else {
      const auto added = appendMixedRun(*list, reader, rest.first(mixed), bounds);
      if (!added) return added.failure();
    }
    rest = rest.subspan(std::max<std::size_t>(mixed, 1));
  }
  return list;
}

/// What the selection of every fragment of one tile shares.
struct TileQuery {
  const Fiber::Field& positions;
  const BoundingBox& box;
  const Fiber::MultiIndex<3>& index;
};

/// The index list of one fragment; empty when it has no usable positions.
StrongPtr<IndexList> selectFromFragment(const TileQuery& query,
                                        const Fiber::FragmentHandle& fragment) {
  const Fiber::CreatorHandle creator = query.positions.getCreator(fragment);
  if (!creator) return nullptr;
  if (const auto reader = creator->partReader()) {
    const auto selected = selectByParts(*reader, {query.box, query.index});
    if (selected) return *selected;
    creator->rememberFailure(selected.error());
    return nullptr;
  }
  const auto points = MemCore::handleCast<PositionArray>(creator->data());
  if (!points) return nullptr;
  PointBlockBoxes::attachTo(*points);
  return selectPointsInBox(*points, query.box, query.index);
}

/// Several threads share the fragments; each list has one writer. An exception (out of memory)
/// leaves on the calling thread.
void selectInParallel(const TileQuery& query, const std::vector<Fiber::FragmentHandle>& fragments,
                      std::span<StrongPtr<IndexList>> lists) {
  std::exception_ptr failure;
  std::mutex failureMutex;
#pragma omp parallel for schedule(dynamic, 1)
  for (std::size_t k = 0; k < fragments.size(); ++k) {
    try {
      lists[k] = selectFromFragment(query, fragments[k]);
    } catch (...) {
      const std::lock_guard lock(failureMutex);
      failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
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

  auto list = listFor(candidates);
  for (const CandidateBlock& block : candidates) {
    if (block.isInside) {
      appendWholeBlock(*list, block);
    } else {
      appendMixedBlock(*list, reachable.subspan(block.first, block.count), block, bounds);
    }
  }
  return list;
}

TileSelection selectPointsInTile(const FragmentSet& fragments,
                                 const StrongPtr<Fiber::Field>& positions,
                                 const StrongPtr<BoundingBox>& box,
                                 const Fiber::MultiIndex<3>& index) {
  TileSelection selection;
  selection.indexLists = makeStrong<MemCore::Chunk<StrongPtr<IndexList>>>(fragments.size());
  if (!positions || !box) return selection;

  const std::span<StrongPtr<IndexList>> lists = selection.indexLists->span();
  const TileQuery query{*positions, *box, index};
  if (fragments.size() < 2 || omp_in_parallel() != 0) {
    std::size_t k = 0;
    for (const Fiber::FragmentHandle& fragment : fragments) {
      lists[k++] = selectFromFragment(query, fragment);
    }
  } else {
    selectInParallel(query, {fragments.begin(), fragments.end()}, lists);
  }
  for (const auto& list : lists) {
    if (list) selection.pointCount += static_cast<std::uint32_t>(list->size());
  }
  return selection;
}

}  // namespace LidarLib
