// SPDX-License-Identifier: Apache-2.0
//
// Bytes that are zero from the start without being touched: the system hands out large blocks that
// way, so that what is read or written next is the first to pass over them.

#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace Fiber::Container {

/// Requires of its vector: it gets its size when it is made, and keeps it.
template <class T>
class ZeroedAllocator {
 public:
  using value_type = T;

  ZeroedAllocator() = default;
  template <class U>
  ZeroedAllocator(const ZeroedAllocator<U>&) {}  // NOLINT(google-explicit-constructor): rebinding

  T* allocate(std::size_t count) {
    void* block = std::calloc(count, sizeof(T));
    if (block == nullptr) throw std::bad_alloc();
    return static_cast<T*>(block);
  }
  void deallocate(T* block, std::size_t /*count*/) { std::free(block); }

  /// Elements without a value of their own are zero already.
  template <class U>
  void construct(U* /*element*/) {}
  template <class U, class... Args>
  void construct(U* element, Args&&... args) {
    ::new (static_cast<void*>(element)) U(std::forward<Args>(args)...);
  }

  friend bool operator==(const ZeroedAllocator&, const ZeroedAllocator&) { return true; }
};

using ZeroedBytes = std::vector<std::byte, ZeroedAllocator<std::byte>>;

}  // namespace Fiber::Container
