// SPDX-License-Identifier: Apache-2.0
//
// NumberTable: handles by number, walked in ascending order. Fragments and their creators are kept
// this way: the numbers of a tiling are dense where there is data, and there may be millions.
// Handles lie in short pages, so that a tile costs little more than its handle, and a lone number
// of any size costs one page.

#pragma once

#include <array>
#include <cstddef>
#include <map>

namespace Fiber {

/// Handle is a StrongPtr; an empty one stands for absent.
template <class Handle>
class NumberTable {
  static constexpr unsigned kPageSize = 32;
  using Page = std::array<Handle, kPageSize>;
  using Pages = std::map<unsigned, Page>;

 public:
  /// The handle at a number; empty when there is none.
  Handle find(unsigned number) const {
    const auto page = pages_.find(number / kPageSize);
    return page == pages_.end() ? Handle() : page->second[number % kPageSize];
  }

  /// Sets or replaces the handle at a number; an empty one removes it.
  void set(unsigned number, Handle handle) {
    Handle& slot = pages_[number / kPageSize][number % kPageSize];
    size_ += (handle ? 1U : 0U);
    size_ -= (slot ? 1U : 0U);
    slot = std::move(handle);
  }

  /// Finds handle after handle; neighbours share a page, which then is not looked for again.
  /// Requires: the table stays and does not change meanwhile.
  class Finder {
   public:
    explicit Finder(const NumberTable& table) : pages_(table.pages_), page_(pages_.end()) {}
    Handle find(unsigned number) {
      if (page_ == pages_.end() || page_->first != number / kPageSize) {
        page_ = pages_.find(number / kPageSize);
      }
      return page_ == pages_.end() ? Handle() : page_->second[number % kPageSize];
    }

   private:
    const Pages& pages_;
    typename Pages::const_iterator page_;
  };

  std::size_t size() const { return size_; }

  /// Calls visit(handle) for every handle in ascending order of number, until it returns false.
  template <class Visitor>
  void walk(Visitor visit) const {
    for (const auto& [number, page] : pages_) {
      for (const Handle& handle : page) {
        if (handle && !visit(handle)) return;
      }
    }
  }

 private:
  Pages pages_;
  std::size_t size_ = 0;
};

}  // namespace Fiber
