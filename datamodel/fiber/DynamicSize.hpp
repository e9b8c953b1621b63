// SPDX-License-Identifier: Apache-2.0
//
// DynamicSize: the rank and the extents of an array known at run time. MultiIndex: a position in
// a regular arrangement.

#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

namespace Fiber {

/// Up to four extents, the fastest dimension first: a waveform fragment has (samples, points).
class DynamicSize {
 public:
  static constexpr std::size_t kMaxRank = 4;

  DynamicSize() = default;
  DynamicSize(std::initializer_list<std::uint64_t> extents)
      : DynamicSize(std::span<const std::uint64_t>(extents.begin(), extents.size())) {}
  /// Requires: at most kMaxRank extents.
  explicit DynamicSize(std::span<const std::uint64_t> extents) : rank_(extents.size()) {
    assert(rank_ <= kMaxRank);
    std::copy(extents.begin(), extents.end(), extents_.begin());
  }

  std::size_t rank() const { return rank_; }
  std::uint64_t operator[](std::size_t dimension) const { return extents_[dimension]; }
  std::span<const std::uint64_t> extents() const { return {extents_.data(), rank_}; }

  /// Product of the extents; 1 when there is no dimension.
  std::uint64_t elementCount() const {
    std::uint64_t count = 1;
    for (const std::uint64_t extent : extents()) count *= extent;
    return count;
  }
  friend bool operator==(const DynamicSize&, const DynamicSize&) = default;

 private:
  std::size_t rank_ = 0;
  std::array<std::uint64_t, kMaxRank> extents_{};
};

/// N unsigned indices: for N = 3 the position (i, j, k) of a tile along x, y, z.
template <std::size_t N>
struct MultiIndex {
  std::array<std::uint64_t, N> components{};

  std::uint64_t& operator[](std::size_t axis) { return components[axis]; }
  const std::uint64_t& operator[](std::size_t axis) const { return components[axis]; }
  friend bool operator==(const MultiIndex&, const MultiIndex&) = default;
};

}  // namespace Fiber
