// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/FragmentID.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace Fiber {

using MemCore::StrongPtr;
using MemCore::WeakPtr;

namespace {

constexpr unsigned kPageSize = 32;

}  // namespace

struct FragmentIDCollection::Page {
  FragmentID places[kPageSize];

  FragmentID& place(unsigned number) { return places[number % kPageSize]; }
};

FragmentID::FragmentID(const std::string& name, unsigned number,
                       const WeakPtr<FragmentIDCollection>& collection)
    : origin_(std::make_shared<const FragmentOrigin>(FragmentOrigin{collection, nullptr})),
      name_(std::make_unique<const std::string>(name)),
      number_(number) {}

FragmentHandle FragmentIDCollection::findFragmentID(const std::string& name) const {
  {
    const std::shared_lock lock(mutex_);
    if (names_) return findNameLocked(name);
  }
  const std::unique_lock lock(mutex_);
  indexNamesLocked();
  return findNameLocked(name);
}

FragmentHandle FragmentIDCollection::findFragmentID(unsigned number) const {
  const std::shared_lock lock(mutex_);
  return findLocked(number);
}

FragmentHandle FragmentIDCollection::makeFragmentID(const std::string& name) {
  const std::unique_lock lock(mutex_);
  indexNamesLocked();
  if (auto known = findNameLocked(name)) return known;
  if (nextNumber_ > std::numeric_limits<unsigned>::max()) return nullptr;
  return insertLocked(name, static_cast<unsigned>(nextNumber_));
}

FragmentHandle FragmentIDCollection::makeFragmentID(const std::string& name, unsigned number) {
  const std::unique_lock lock(mutex_);
  if (auto known = findLocked(number)) return known;
  return insertLocked(name, number);
}

std::vector<FragmentHandle> FragmentIDCollection::makeFragmentIDs(
    std::span<const unsigned> numbers, const StrongPtr<FragmentNames>& names) {
  std::vector<FragmentHandle> made;
  made.reserve(numbers.size());
  const std::unique_lock lock(mutex_);
  const PageHandle* page = nullptr;
  unsigned pageNumber = 0;
  for (const unsigned number : numbers) {
    // Neighbours mostly share a page, which then need not be looked for.
    if (page == nullptr || number / kPageSize != pageNumber) {
      pageNumber = number / kPageSize;
      page = &pageLocked(pageNumber);
    }
    made.push_back(makeLocked(*page, number, names));
  }
  return made;
}

/// The page of a number (not of a fragment), made when absent.
const FragmentIDCollection::PageHandle& FragmentIDCollection::pageLocked(unsigned pageNumber) {
  const auto place = pages_.lower_bound(pageNumber);
  if (place != pages_.end() && place->first == pageNumber) return place->second;
  return pages_.emplace_hint(place, pageNumber, std::make_shared<Page>())->second;
}

FragmentHandle FragmentIDCollection::findLocked(unsigned number) const {
  const auto page = pages_.find(number / kPageSize);
  if (page == pages_.end()) return nullptr;
  FragmentID& place = page->second->place(number);
  if (!place.origin_) return nullptr;
  return FragmentHandle(std::shared_ptr<FragmentID>(page->second, &place));
}

/// Requires: no fragment has the number.
FragmentHandle FragmentIDCollection::insertLocked(const std::string& name, unsigned number) {
  if (names_) names_->try_emplace(name, number);
  return placeLocked(pageLocked(number / kPageSize), number,
                     std::make_unique<const std::string>(name), nullptr);
}

FragmentHandle FragmentIDCollection::makeLocked(const PageHandle& page, unsigned number,
                                                const StrongPtr<FragmentNames>& names) {
  FragmentID& place = page->place(number);
  if (place.origin_) return FragmentHandle(std::shared_ptr<FragmentID>(page, &place));
  if (names_) names_->try_emplace(names->nameOf(number), number);
  return placeLocked(page, number, nullptr, names);
}

FragmentHandle FragmentIDCollection::placeLocked(const PageHandle& page, unsigned number,
                                                 std::unique_ptr<const std::string> name,
                                                 const StrongPtr<FragmentNames>& names) {
  FragmentID& place = page->place(number);
  place.origin_ = originLocked(names);
  place.name_ = std::move(name);
  place.number_ = number;
  ++size_;
  nextNumber_ = std::max(nextNumber_, std::uint64_t{number} + 1);
  return FragmentHandle(std::shared_ptr<FragmentID>(page, &place));
}

/// Many fragments in a row have the same one.
const std::shared_ptr<const FragmentOrigin>& FragmentIDCollection::originLocked(
    const StrongPtr<FragmentNames>& names) {
  if (!origin_ || !(origin_->names == names)) {
    origin_ = std::make_shared<const FragmentOrigin>(
        FragmentOrigin{WeakPtr<FragmentIDCollection>(weak_from_this()), names});
  }
  return origin_;
}

void FragmentIDCollection::indexNamesLocked() const {
  if (names_) return;
  // There as a whole or not at all: who runs out of memory here must not leave a part of it.
  std::unordered_map<std::string, unsigned> names;
  names.reserve(size_);
  for (const auto& [number, page] : pages_) {
    for (const FragmentID& place : page->places) {
      if (place.origin_) names.try_emplace(place.name(), place.number());
    }
  }
  names_ = std::move(names);
}

FragmentHandle FragmentIDCollection::findNameLocked(const std::string& name) const {
  const auto found = names_->find(name);
  return found == names_->end() ? nullptr : findLocked(found->second);
}

std::vector<FragmentHandle> FragmentIDCollection::all() const {
  const std::shared_lock lock(mutex_);
  std::vector<FragmentHandle> fragments;
  fragments.reserve(size_);
  for (const auto& [number, page] : pages_) {
    for (FragmentID& place : page->places) {
      if (place.origin_) fragments.emplace_back(std::shared_ptr<FragmentID>(page, &place));
    }
  }
  return fragments;
}

std::size_t FragmentIDCollection::size() const {
  const std::shared_lock lock(mutex_);
  return size_;
}

}  // namespace Fiber
