// SPDX-License-Identifier: Apache-2.0

#include "host/TileBound.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace Host {

namespace {

// The mapping of fragments onto tiles widens tiles by a thousandth of their diagonal; a hundredth
// is on the safe side.
constexpr double kTolerance = 0.01;

/// Tiles first to last, along one axis.
struct IndexRange {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
};

std::uint64_t clampedIndex(double index, std::uint64_t count) {
  if (!(index > 0.0)) return 0;
  return index < static_cast<double>(count) ? static_cast<std::uint64_t>(index) : count - 1;
}

IndexRange rangeAlong(const LidarLib::TilingLayout& layout, const Eagle::BoundingBox& box,
                      std::size_t axis, std::uint64_t count) {
  const auto& length = layout.fragmentLength;
  const double reach = kTolerance * std::hypot(length[0], length[1], length[2]) +
                       std::max(0.0, layout.normalizedOverlap) * length[axis];
  const double low = (box.min()[axis] - reach - layout.origin[axis]) / length[axis];
  const double high = (box.max()[axis] + reach - layout.origin[axis]) / length[axis];
  return {clampedIndex(low, count), clampedIndex(high, count)};
}

/// Sums over ranges of tiles, in one row per (j, k): a range adds at its begin and takes away
/// behind its end, and the running sum of a row gives the tiles' values.
class RangeSums {
 public:
  explicit RangeSums(const LidarLib::TilingLayout& layout)
      : layout_(layout), differences_((layout.nx + 1) * layout.ny * layout.nz, 0) {}

  void add(const Eagle::BoundingBox& box, std::uint64_t points) {
    const IndexRange x = rangeAlong(layout_, box, 0, layout_.nx);
    const IndexRange y = rangeAlong(layout_, box, 1, layout_.ny);
    const IndexRange z = rangeAlong(layout_, box, 2, layout_.nz);
    for (std::uint64_t k = z.first; k <= z.last; ++k) {
      for (std::uint64_t j = y.first; j <= y.last; ++j) {
        const std::uint64_t row = (k * layout_.ny + j) * (layout_.nx + 1);
        differences_[row + x.first] += points;
        differences_[row + x.last + 1] -= points;  // wraps, and back again in the sum
      }
    }
  }

  std::uint64_t highest() const {
    std::uint64_t sum = 0;
    std::uint64_t result = 0;
    for (const std::uint64_t difference : differences_) {
      sum += difference;
      result = std::max(result, sum);
    }
    return result;
  }

 private:
  const LidarLib::TilingLayout& layout_;
  std::vector<std::uint64_t> differences_;
};

}  // namespace

std::uint64_t fullestTileBound(const LidarLib::TilingLayout& layout) {
  RangeSums sums(layout);
  for (const Fiber::FragmentHandle& id : layout.positions->getFragmentIDs()) {
    const Fiber::CreatorHandle creator = layout.positions->getCreator(id);
    MemCore::StrongPtr<Eagle::BoundingBox> box;
    if (creator && Fiber::ExpandBBox(box, *creator, Fiber::DataCreationMode::KnownOrCreate)) {
      sums.add(*box, Fiber::pointCountOf(*creator));
    }
  }
  return sums.highest();
}

}  // namespace Host
