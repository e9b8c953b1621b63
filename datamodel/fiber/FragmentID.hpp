// SPDX-License-Identifier: Apache-2.0
//
// FragmentID names one fragment; FragmentIDCollection is the set of fragments that the fields of
// one representation share, so that fragment k of every field describes the same points.
//
// A tiling has millions of them, so they are small: fragments with neighbouring numbers lie side by
// side in a page, which their handles keep alive, and names that follow from the number (those of
// tiles, or of the rows of a table) are not kept but told when somebody asks.

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "datamodel/memcore/StrongPtr.hpp"

namespace Fiber {

class FragmentIDCollection;

/// Tells the names of fragments by number. Threads: any.
class FIBER_API FragmentNames {
 public:
  virtual ~FragmentNames() = default;
  /// The same text every time. Requires: a number that fragments were made under with these names.
  virtual std::string nameOf(unsigned number) const = 0;
};

/// What the fragments of one collection have in common.
struct FragmentOrigin {
  MemCore::WeakPtr<FragmentIDCollection> collection;
  MemCore::StrongPtr<FragmentNames> names;  ///< of those fragments that keep no name
};

/// Invariant: name and number never change.
class FIBER_API FragmentID {
 public:
  FragmentID(const std::string& name, unsigned number,
             const MemCore::WeakPtr<FragmentIDCollection>& collection);

  std::string name() const { return name_ ? *name_ : origin_->names->nameOf(number_); }
  unsigned number() const { return number_; }  ///< unique within its collection
  MemCore::StrongPtr<FragmentIDCollection> collection() const { return origin_->collection.lock(); }

 private:
  friend class FragmentIDCollection;
  FragmentID() = default;  ///< a free place of a page

  std::shared_ptr<const FragmentOrigin> origin_;  ///< empty: a free place
  std::unique_ptr<const std::string> name_;       ///< empty: the origin's names tell it
  unsigned number_ = 0;
};

using FragmentHandle = MemCore::StrongPtr<FragmentID>;

/// Threads: every operation may be called at once from any thread.
/// Looking up by number is the cheap way. The index of names is made when a name is first asked
/// for: the many fragments of a tiling are addressed by number alone.
class FIBER_API FragmentIDCollection : public std::enable_shared_from_this<FragmentIDCollection> {
 public:
  /// The fragment of that name or number; empty when there is none.
  FragmentHandle findFragmentID(const std::string& name) const;
  FragmentHandle findFragmentID(unsigned number) const;
  /// Finds the fragment of that name or makes it with the lowest number above all others. Empty
  /// when 32 bits hold no such number.
  FragmentHandle makeFragmentID(const std::string& name);
  /// Finds the fragment of that number or makes it under the name. Requires: no fragment of another
  /// number has the name.
  FragmentHandle makeFragmentID(const std::string& name, unsigned number);
  /// Finds or makes the fragments of many numbers at once, under the names told for them. Returns
  /// them in the order of the numbers. Requires: as for one.
  std::vector<FragmentHandle> makeFragmentIDs(std::span<const unsigned> numbers,
                                              const MemCore::StrongPtr<FragmentNames>& names);
  /// All fragments in ascending order of number.
  std::vector<FragmentHandle> all() const;
  std::size_t size() const;

 private:
  struct Page;
  using PageHandle = std::shared_ptr<Page>;

  const PageHandle& pageLocked(unsigned pageNumber);
  FragmentHandle findLocked(unsigned number) const;
  FragmentHandle insertLocked(const std::string& name, unsigned number);
  FragmentHandle makeLocked(const PageHandle& page, unsigned number,
                            const MemCore::StrongPtr<FragmentNames>& names);
  FragmentHandle placeLocked(const PageHandle& page, unsigned number,
                             std::unique_ptr<const std::string> name,
                             const MemCore::StrongPtr<FragmentNames>& names);
  const std::shared_ptr<const FragmentOrigin>& originLocked(
      const MemCore::StrongPtr<FragmentNames>& names);
  void indexNamesLocked() const;
  FragmentHandle findNameLocked(const std::string& name) const;

  mutable std::shared_mutex mutex_;
  std::map<unsigned, PageHandle> pages_;
  std::size_t size_ = 0;
  std::uint64_t nextNumber_ = 0;                  ///< above every number in use
  std::shared_ptr<const FragmentOrigin> origin_;  ///< of the fragment made last
  /// Numbers by name; absent until a name is asked for.
  mutable std::optional<std::unordered_map<std::string, unsigned>> names_;
};

}  // namespace Fiber

/// Sets of fragments hash by number, so that they are walked in the same order in every run;
/// equality stays that of the object.
template <>
struct std::hash<MemCore::StrongPtr<Fiber::FragmentID>> {
  std::size_t operator()(const MemCore::StrongPtr<Fiber::FragmentID>& id) const noexcept {
    return id ? id->number() : ~std::size_t{0};
  }
};
