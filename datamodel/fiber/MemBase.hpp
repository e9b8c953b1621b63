// SPDX-License-Identifier: Apache-2.0
//
// MemBase: a typed array in memory, seen without its type. MemArray<N, T> is the same array seen
// with rank and type; UniformCartesianArray holds the positions of a raster as origin and spacing.

#pragma once

#include <array>
#include <cassert>
#include <functional>
#include <new>
#include <span>
#include <typeinfo>
#include <utility>

#include "datamodel/fiber/DynamicSize.hpp"
#include "datamodel/fiber/FiberType.hpp"
#include "datamodel/memcore/Cache.hpp"
#include "datamodel/memcore/Chunk.hpp"
#include "datamodel/memcore/Intercube.hpp"

namespace Fiber {

/// Element type, extents and the elements themselves. Threads: reads may run at once.
class FIBER_API MemBase : public MemCore::Cacheable, public MemCore::Intercube {
 public:
  using CreatorFunction = std::function<MemCore::StrongPtr<MemBase>(const DynamicSize&)>;

  MemBase(const DynamicSize& size, MemCore::StrongPtr<MemCore::ChunkBase> elements)
      : size_(size), elements_(std::move(elements)) {}

  const DynamicSize& size() const { return size_; }
  /// The elements, fastest dimension first; empty for arrays that are computed, not stored.
  const MemCore::StrongPtr<MemCore::ChunkBase>& elements() const { return elements_; }
  /// The element type; empty when it is not registered.
  MemCore::StrongPtr<FiberTypeBase> type() const;
  std::uint64_t byteCount() const override { return elements_ ? elements_->byteCount() : 0; }

  /// Allocates an array of an element type and extents, all elements zero; empty when the type is
  /// empty, no creator is registered for it at that rank (1 to 4), or `elementType` differs from
  /// the type's own. May throw std::bad_alloc.
  static MemCore::StrongPtr<MemBase> create(const MemCore::StrongPtr<FiberTypeBase>& type,
                                            const DynamicSize& size,
                                            const std::type_info& elementType);
  /// The same with elements of unspecified value, for callers that write every one of them; empty
  /// for types that are not known from the start, too.
  static MemCore::StrongPtr<MemBase> createUnfilled(const MemCore::StrongPtr<FiberTypeBase>& type,
                                                    const DynamicSize& size,
                                                    const std::type_info& elementType);
  /// Registers how arrays of one element type and rank are made; the first one wins. Threads: any.
  static void registerCreator(const std::type_info& elementType, std::size_t rank,
                              const CreatorFunction& creator);

 private:
  DynamicSize size_;
  MemCore::StrongPtr<MemCore::ChunkBase> elements_;
};

/// An array of rank N with elements of type T.
template <std::size_t N, class T>
class MemArray final : public MemBase {
 public:
  /// All elements T{} (zero for numbers). May throw std::bad_alloc, as for absurd extents.
  explicit MemArray(const std::array<std::uint64_t, N>& extents)
      : MemArray(extents, MemCore::makeStrong<MemCore::Chunk<T>>(elementCount(extents))) {}
  /// All elements of unspecified value. May throw std::bad_alloc.
  static MemCore::StrongPtr<MemArray> unfilled(const std::array<std::uint64_t, N>& extents) {
    return MemCore::makeStrong<MemArray>(extents,
                                         MemCore::Chunk<T>::uninitialised(elementCount(extents)));
  }
  /// Over elements that exist. Requires: the chunk has as many elements as the extents say.
  MemArray(const std::array<std::uint64_t, N>& extents,
           MemCore::StrongPtr<MemCore::Chunk<T>> elements)
      : MemBase(DynamicSize(std::span<const std::uint64_t>(extents)), elements),
        chunk_(std::move(elements)) {
    assert(size().elementCount() == chunk_->size());
  }

  std::uint64_t count() const { return chunk_->size(); }
  T& operator[](std::uint64_t i) { return (*chunk_)[i]; }
  const T& operator[](std::uint64_t i) const { return (*chunk_)[i]; }
  std::span<T> span() { return chunk_->span(); }
  std::span<const T> span() const { return std::as_const(*chunk_).span(); }
  const MemCore::StrongPtr<MemCore::Chunk<T>>& chunk() const { return chunk_; }

 private:
  static std::size_t elementCount(const std::array<std::uint64_t, N>& extents) {
    std::uint64_t count = 1;
    for (const std::uint64_t extent : extents) {
      if (__builtin_mul_overflow(count, extent, &count)) throw std::bad_array_new_length();
    }
    return static_cast<std::size_t>(count);
  }

  MemCore::StrongPtr<MemCore::Chunk<T>> chunk_;
};

/// A rank-1 array over a chunk.
template <class T>
MemCore::StrongPtr<MemArray<1, T>> makeArray(const MemCore::StrongPtr<MemCore::Chunk<T>>& chunk) {
  return MemCore::makeStrong<MemArray<1, T>>(std::array<std::uint64_t, 1>{chunk->size()}, chunk);
}

/// Positions of a raster: a regular lattice of extents nx, ny, nz that is computed, not stored.
class FIBER_API UniformCartesianArray final : public MemBase {
 public:
  UniformCartesianArray(const std::array<std::uint64_t, 3>& extents,
                        const Eagle::PhysicalSpace::point& origin,
                        const Eagle::FixedArray<double, 3>& spacing)
      : MemBase(DynamicSize{extents[0], extents[1], extents[2]}, nullptr),
        origin_(origin),
        spacing_(spacing) {}
  const Eagle::PhysicalSpace::point& origin() const { return origin_; }
  const Eagle::FixedArray<double, 3>& spacing() const { return spacing_; }

 private:
  Eagle::PhysicalSpace::point origin_;
  Eagle::FixedArray<double, 3> spacing_;
};

/// Index list into one fragment's elements.
using IndexList = MemCore::Chunk<unsigned int>;

/// What createIndirection copies: output element (outputOffset + t(j) * stride) receives input
/// element (inputOffset + s(j)) for every j of [first, first + count), where t and s are the index
/// lists, or j itself where a list is null.
struct IndirectionRange {
  std::uint64_t first = 0;
  std::uint64_t count = 0;
  std::uint64_t outputOffset = 0;
  std::uint64_t inputOffset = 0;
  std::uint64_t stride = 1;
};

/// Copies the elements named by index lists from one chunk into another, whatever their type.
/// Returns false, and copies nothing, when a chunk is absent, both are the same one, the element
/// sizes differ, elements are no plain bytes, or an index lies outside either chunk.
FIBER_API bool CreateIndirection(const MemCore::StrongPtr<MemCore::ChunkBase>& output,
                                 const MemCore::StrongPtr<MemCore::ChunkBase>& input,
                                 const IndexList* outputIndices, const IndexList* inputIndices,
                                 const IndirectionRange& range);

}  // namespace Fiber
