// SPDX-License-Identifier: Apache-2.0
//
// FragmentID names one fragment; FragmentIDCollection is the set of fragments that the fields of
// one representation share, so that fragment k of every field describes the same points.

#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "datamodel/fiber/NumberTable.hpp"
#include "datamodel/memcore/StrongPtr.hpp"

namespace Fiber {

class FragmentIDCollection;

/// Invariant: name and number never change.
class FIBER_API FragmentID {
 public:
  FragmentID(std::string name, unsigned number, MemCore::WeakPtr<FragmentIDCollection> collection)
      : name_(std::move(name)), number_(number), collection_(std::move(collection)) {}

  const std::string& name() const { return name_; }
  unsigned number() const { return number_; }  ///< unique within its collection
  MemCore::StrongPtr<FragmentIDCollection> collection() const { return collection_.lock(); }

 private:
  std::string name_;
  unsigned number_;
  MemCore::WeakPtr<FragmentIDCollection> collection_;
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
  /// All fragments in ascending order of number.
  std::vector<FragmentHandle> all() const;
  std::size_t size() const;

 private:
  FragmentHandle insertLocked(const std::string& name, unsigned number);

  void indexNamesLocked() const;
  FragmentHandle findNameLocked(const std::string& name) const;

  mutable std::shared_mutex mutex_;
  NumberTable<FragmentHandle> fragments_;
  std::uint64_t nextNumber_ = 0;  ///< above every number in use
  /// The names as the fragments hold them; absent until a name is asked for.
  mutable std::optional<std::unordered_map<std::string_view, FragmentHandle>> names_;
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
