// SPDX-License-Identifier: Apache-2.0
//
// PointBlockBoxes: the boxes of blocks of consecutive points of one position array. Consecutive
// points lie close together in real clouds, so most blocks are wholly outside or wholly inside a
// tile, and selection needs to look at the points of the others alone. The table is computed once
// per array, hangs on the array and goes with it.

#pragma once

#include <mutex>
#include <span>
#include <vector>

#include "assembly/BoxTestKernel.hpp"
#include "datamodel/fiber/MemBase.hpp"

namespace LidarLib {

/// How the points of a block lie to a tile.
enum class BlockRelation { Outside, Inside, Mixed };

/// Outside and Inside are certain, Mixed is not: such a block may still hold no point of the tile,
/// or nothing else.
BlockRelation relationOf(const PointBox& box, const TileBounds& bounds);

class PointBlockBoxes final : public MemCore::InterfaceBase {
 public:
  static constexpr std::size_t kBlockPoints = 512;

  /// Number of blocks of an array of so many points; the last one may be shorter.
  static std::size_t blockCount(std::size_t pointCount) {
    return (pointCount + kBlockPoints - 1) / kBlockPoints;
  }

  /// Attaches a table to an array that has none. Nothing is computed yet.
  static void attachTo(Fiber::MemBase& points);

  /// The boxes of the array that the table hangs on, one per block. Threads: any; the first caller
  /// computes them, others wait.
  std::span<const PointBox> boxes(std::span<const Eagle::PhysicalSpace::point> points);

 private:
  std::mutex mutex_;  ///< held while the boxes are computed
  bool isComputed_ = false;
  std::vector<PointBox> boxes_;  ///< Invariant: unchanged once computed
};

}  // namespace LidarLib
