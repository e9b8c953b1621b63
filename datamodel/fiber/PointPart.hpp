// SPDX-License-Identifier: Apache-2.0
//
// PointPart: some points of one fragment, gathered from a source that need not make the fragment's
// whole arrays for them. A tile takes a few points of each of many fragments; where the source has
// records on a disk, reading just those costs less than making every array again and again.
//
// PointPartReader hands out parts: the creator of a fragment's positions makes one (see
// CreativeArrayBase::partReader), and the creators of the fragment's fields then fill in their
// values at the part's points (CreativeArrayBase::copyPart).

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "datamodel/eagle/BoundingBox.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "datamodel/memcore/StrongPtr.hpp"

namespace Fiber {

/// Smallest and largest coordinates of a run of points, NaN left out. An axis without any number
/// has min = +infinity and max = -infinity.
struct PointBox {
  Eagle::PhysicalSpace::point min;
  Eagle::PhysicalSpace::point max;
  bool hasNaN = false;  ///< some coordinate of the run is NaN
};

/// Points per run whose box is known.
inline constexpr std::size_t kBlockPoints = 512;

/// Number of blocks of so many points; the last one may be shorter.
inline std::size_t blockCount(std::size_t pointCount) {
  return (pointCount + kBlockPoints - 1) / kBlockPoints;
}

/// Some points of one fragment. Threads: reads may run at once.
class FIBER_API PointPart {
 public:
  /// Requires: `points` outlives the part.
  explicit PointPart(std::span<const unsigned int> points) : points_(points) {}
  virtual ~PointPart() = default;
  PointPart(const PointPart&) = delete;
  PointPart& operator=(const PointPart&) = delete;

  /// Their indices in the fragment, ascending, none twice.
  std::span<const unsigned int> points() const { return points_; }

 private:
  std::span<const unsigned int> points_;
};

/// Reads parts of one fragment for one user, and may hold what it reads for as long as it lives.
/// Threads: one at a time; several readers of the same fragment may be at work at once.
class FIBER_API PointPartReader {
 public:
  PointPartReader() = default;
  virtual ~PointPartReader() = default;
  PointPartReader(const PointPartReader&) = delete;
  PointPartReader& operator=(const PointPartReader&) = delete;

  virtual std::uint64_t pointCount() const = 0;
  /// What a gathered point takes in memory.
  virtual std::uint64_t bytesPerPoint() const = 0;
  /// The boxes of blocks of kBlockPoints consecutive points, which live as long as the fragment's
  /// creators do. Errors: those of the source.
  virtual MemCore::Outcome<std::span<const PointBox>> blockBoxes() = 0;
  /// Fills `out` with the positions from point `first` on. Requires: they lie in the fragment.
  /// Errors: those of the source; `out` is then partly filled.
  virtual MemCore::Outcome<void> readPositions(std::uint64_t first,
                                               std::span<Eagle::PhysicalSpace::point> out) = 0;
  /// Gathers points. Requires: `points` lie in the fragment, ascend, and outlive the part.
  /// Errors: those of the source. May throw std::bad_alloc.
  virtual MemCore::Outcome<MemCore::StrongPtr<PointPart>> gather(
      std::span<const unsigned int> points) = 0;
};

}  // namespace Fiber
