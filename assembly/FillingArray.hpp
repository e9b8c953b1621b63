// SPDX-License-Identifier: Apache-2.0
//
// An array that is made for a tile and filled from front to back. It begins without zeros, which
// only what is never filled has to become, and finds the range of its values piece by piece, while
// they are still in the processor's cache.

#pragma once

#include <optional>
#include <span>

#include "datamodel/fiber/NumberRange.hpp"

namespace LidarLib {

/// Invariant: `range` is that of the elements filled so far. Copies share the array: a copy notes
/// what may yet turn out wrong, and replaces the original when all went well.
class FillingArray {
 public:
  /// A new array; absent for element types that are not known from the start, and for arrays whose
  /// elements have no 32-bit index each.
  static std::optional<FillingArray> make(const MemCore::StrongPtr<Fiber::FiberTypeBase>& type,
                                          const Fiber::DynamicSize& size);

  const MemCore::StrongPtr<Fiber::MemBase>& array() const { return array_; }
  /// How many elements to fill at once: they stay in the cache until they have been noted.
  std::uint64_t pieceElements() const { return kPieceBytes / elementBytes_; }

  /// Tells that the next elements have been filled. Requires: there are that many.
  void noteFilled(std::uint64_t count);
  /// Fills what has not been filled with zeros.
  void fillRest();
  /// The range of the filled values; absent where they have none.
  const std::optional<Fiber::ValueRange>& range() const { return range_; }

 private:
  static constexpr std::uint64_t kPieceBytes = 65536;

  explicit FillingArray(MemCore::StrongPtr<Fiber::MemBase> array);

  MemCore::StrongPtr<Fiber::MemBase> array_;
  std::optional<Fiber::ScalarKind> kind_;  ///< absent: the values have no range
  std::span<std::byte> unfilled_;
  std::size_t elementBytes_ = 0;
  std::optional<Fiber::ValueRange> range_;
};

}  // namespace LidarLib
