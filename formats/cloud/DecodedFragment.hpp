// SPDX-License-Identifier: Apache-2.0
//
// DecodedFragment: the columns of one fragment that come out of one decoding, and so the unit that
// the cache keeps or drops. DecodedFragmentSource makes it on demand: once for all creators of the
// fragment's columns, however many threads ask. ColumnCreator is such a creator.
//
// Columns are held by handles of their own: who holds one keeps that one alive, not the others.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "datamodel/fiber/CreativeArrayBase.hpp"

namespace Formats {

/// Invariant: never changes once made. Threads: reads may run at once.
class DecodedFragment final : public MemCore::Cacheable {
 public:
  explicit DecodedFragment(std::vector<MemCore::StrongPtr<Fiber::MemBase>> columns,
                           Fiber::GridPointsHandle gridPoints = nullptr)
      : columns_(std::move(columns)), gridPoints_(std::move(gridPoints)) {}

  /// Empty for positions that are there as whole numbers.
  const MemCore::StrongPtr<Fiber::MemBase>& column(std::size_t index) const {
    return columns_[index];
  }
  /// All of them, for another form of the fragment.
  const std::vector<MemCore::StrongPtr<Fiber::MemBase>>& columns() const { return columns_; }
  /// Positions as whole numbers; empty: they were decoded as points, or the fragment has none.
  const Fiber::GridPointsHandle& gridPoints() const { return gridPoints_; }
  /// Sum of the columns.
  std::uint64_t byteCount() const override;

 private:
  std::vector<MemCore::StrongPtr<Fiber::MemBase>> columns_;
  Fiber::GridPointsHandle gridPoints_;
};

using DecodedHandle = MemCore::StrongPtr<DecodedFragment>;

/// Makes one decoded fragment again and again, whenever the cache has dropped it.
/// Threads: every public operation may be called at once from any thread.
class DecodedFragmentSource : public MemCore::Creature,
                              public std::enable_shared_from_this<DecodedFragmentSource> {
 public:
  /// The fragment: in memory already, or decoded now, by one thread while others wait.
  /// Errors: those of decode(). May throw std::bad_alloc.
  MemCore::Outcome<DecodedHandle> decoded();
  /// The fragment when it is in memory already; otherwise empty.
  DecodedHandle decodedIfPresent() const;
  /// Tells the cache that a column of the fragment was used.
  void noteUse() const;

 protected:
  /// Decodes, or says why it cannot. Called by one thread at a time per source.
  virtual MemCore::Outcome<DecodedHandle> decode() = 0;
  /// Takes over a fragment that was decoded on the way to another one, or that is another form of
  /// the present one, which it replaces.
  void adopt(const DecodedHandle& fragment);

 private:
  std::mutex decodeMutex_;         ///< held while the fragment is decoded
  mutable std::mutex stateMutex_;  ///< guards everything below
  MemCore::WeakPtr<DecodedFragment> fragment_;
};

/// The creator of one column of a decoded fragment. Its data are not cached by themselves: the
/// cache holds the whole decoded fragment.
class ColumnCreator : public Fiber::CreativeArrayBase {
 public:
  ColumnCreator(Fiber::ArrayFacts facts, MemCore::StrongPtr<DecodedFragmentSource> source,
                std::size_t column);

 protected:
  MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> create() override;
  void noteUse(const Fiber::MemBase& data) override;

 private:
  MemCore::StrongPtr<DecodedFragmentSource> source_;
  std::size_t column_;
};

/// The creator of a column of zeros, which a file without the field supplies. Requires: type and
/// size are known.
class ZeroCreator final : public Fiber::CreativeArrayBase {
 public:
  ZeroCreator(const MemCore::StrongPtr<Fiber::FiberTypeBase>& type, const Fiber::DynamicSize& size)
      : CreativeArrayBase({type, size, nullptr, Fiber::ValueRange{0.0, 0.0}}) {}
  bool copyPart(const Fiber::PointPart& part, std::span<std::byte> out) override;

 protected:
  MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> create() override;
};

}  // namespace Formats
