// SPDX-License-Identifier: Apache-2.0
//
// Chunk<T>: a contiguous, growing run of elements held by a handle. Chunks carry everything from
// attribute values to a fragment's points. ChunkBase is the same run seen without its type.

#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "datamodel/memcore/StrongPtr.hpp"

namespace MemCore {

/// A run of elements of a type known only at run time.
class FIBER_API ChunkBase {
 public:
  virtual ~ChunkBase() = default;
  virtual const std::type_info& elementType() const = 0;
  virtual std::size_t elementSize() const = 0;  ///< bytes per element
  virtual std::size_t size() const = 0;         ///< number of elements
  virtual std::byte* bytes() = 0;               ///< first byte of element 0; null when empty
  virtual const std::byte* bytes() const = 0;
  std::size_t byteCount() const { return size() * elementSize(); }
  /// Whether elements may be copied as bytes. Chunks of texts or handles may not.
  virtual bool isPlain() const = 0;

 protected:
  ChunkBase() = default;
  ChunkBase(const ChunkBase&) = default;
  ChunkBase& operator=(const ChunkBase&) = default;
};

/// Leaves new elements uninitialised unless a value is given, so that decoders and gathers do not
/// pay for zeros that they overwrite. 64-byte aligned, by hand: an aligned block of glibc's is cut
/// out of a larger one, so that it never fits where one like it was freed, and takes fresh pages.
template <class T>
class UninitialisedAllocator {
 public:
  using value_type = T;
  UninitialisedAllocator() = default;
  template <class U>
  // NOLINTNEXTLINE(google-explicit-constructor): allocators rebind by conversion
  UninitialisedAllocator(const UninitialisedAllocator<U>&) {}

  T* allocate(std::size_t n) {
    auto* const block = static_cast<std::byte*>(::operator new(n * sizeof(T) + kAlignmentBytes));
    // Behind the block's first byte, which leaves room for the distance.
    const auto ahead = kAlignmentBytes - reinterpret_cast<std::uintptr_t>(block) % kAlignmentBytes;
    block[ahead - 1] = static_cast<std::byte>(ahead);
    return reinterpret_cast<T*>(block + ahead);
  }
  void deallocate(T* p, std::size_t) {
    auto* const first = reinterpret_cast<std::byte*>(p);
    ::operator delete(first - std::to_integer<std::size_t>(first[-1]));
  }
  template <class U>
  void construct([[maybe_unused]] U* p) {
    // Plain types are left out even where they have default values: allocated is made.
    if constexpr (!std::is_trivially_copyable_v<U>) ::new (static_cast<void*>(p)) U;
  }
  template <class U, class... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
  friend bool operator==(const UninitialisedAllocator&, const UninitialisedAllocator&) {
    return true;
  }

 private:
  static constexpr std::size_t kAlignmentBytes = 64;
};

/// A typed run of elements. Whatever allocates throws std::bad_alloc, for absurd counts too.
template <class T>
class Chunk final : public ChunkBase {
 public:
  Chunk() = default;
  /// n elements, all T{} (zero for numbers).
  explicit Chunk(std::size_t n) : elements_(possible(n), T{}) {}
  Chunk(std::size_t n, const T& value) : elements_(possible(n), value) {}
  Chunk(std::initializer_list<T> values) : elements_(values) {}
  explicit Chunk(std::span<const T> values) : elements_(values.begin(), values.end()) {}

  /// n elements of unspecified value, for callers that write every one of them.
  static StrongPtr<Chunk> uninitialised(std::size_t n) {
    auto chunk = makeStrong<Chunk>();
    chunk->elements_.resize(possible(n));
    return chunk;
  }

  const std::type_info& elementType() const override { return typeid(T); }
  std::size_t elementSize() const override { return sizeof(T); }
  std::size_t size() const override { return elements_.size(); }
  std::byte* bytes() override { return reinterpret_cast<std::byte*>(elements_.data()); }
  const std::byte* bytes() const override {
    return reinterpret_cast<const std::byte*>(elements_.data());
  }
  bool isPlain() const override { return std::is_trivially_copyable_v<T>; }

  bool empty() const { return elements_.empty(); }
  T& operator[](std::size_t i) { return elements_[i]; }
  const T& operator[](std::size_t i) const { return elements_[i]; }
  T* data() { return elements_.data(); }
  const T* data() const { return elements_.data(); }
  auto begin() { return elements_.begin(); }
  auto end() { return elements_.end(); }
  auto begin() const { return elements_.begin(); }
  auto end() const { return elements_.end(); }
  std::span<T> span() { return elements_; }
  std::span<const T> span() const { return elements_; }

  void reserve(std::size_t n) { elements_.reserve(possible(n)); }
  void push_back(T value) { elements_.push_back(std::move(value)); }
  void append(std::span<const T> values) {
    elements_.insert(elements_.end(), values.begin(), values.end());
  }
  /// Grows by n elements of unspecified value and returns the first new one.
  T* grow(std::size_t n) {
    elements_.resize(possible(elements_.size() + possible(n)));
    return elements_.data() + (elements_.size() - n);
  }
  /// Keeps the first n elements; does nothing when there are no more than that.
  void truncate(std::size_t n) {
    if (n >= elements_.size()) return;
    elements_.erase(elements_.begin() + static_cast<std::ptrdiff_t>(n), elements_.end());
  }

 private:
  // The vector would answer a count beyond its limit with another exception than memory failures.
  static std::size_t possible(std::size_t n) {
    constexpr std::size_t kMost =
        static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(T);
    if (n > kMost) throw std::bad_array_new_length();
    return n;
  }

  std::vector<T, UninitialisedAllocator<T>> elements_;
};

/// The chunk seen as a run of T; empty when it is absent or of another type.
template <class T>
StrongPtr<Chunk<T>> chunkCast(const StrongPtr<ChunkBase>& chunk) {
  return handleCast<Chunk<T>>(chunk);
}

}  // namespace MemCore
