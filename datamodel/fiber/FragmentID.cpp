// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/FragmentID.hpp"

#include <algorithm>
#include <limits>

namespace Fiber {

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
  return fragments_.find(number);
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
  if (auto known = fragments_.find(number)) return known;
  return insertLocked(name, number);
}

FragmentHandle FragmentIDCollection::insertLocked(const std::string& name, unsigned number) {
  auto made = MemCore::makeStrong<FragmentID>(
      name, number, MemCore::WeakPtr<FragmentIDCollection>(weak_from_this()));
  fragments_.set(number, made);
  nextNumber_ = std::max(nextNumber_, std::uint64_t{number} + 1);
  if (names_) names_->try_emplace(made->name(), made);
  return made;
}

void FragmentIDCollection::indexNamesLocked() const {
  if (names_) return;
  names_.emplace();
  names_->reserve(fragments_.size());
  fragments_.walk([this](const FragmentHandle& fragment) {
    names_->try_emplace(fragment->name(), fragment);
    return true;
  });
}

FragmentHandle FragmentIDCollection::findNameLocked(const std::string& name) const {
  const auto found = names_->find(name);
  return found == names_->end() ? nullptr : found->second;
}

std::vector<FragmentHandle> FragmentIDCollection::all() const {
  const std::shared_lock lock(mutex_);
  std::vector<FragmentHandle> fragments;
  fragments.reserve(fragments_.size());
  fragments_.walk([&](const FragmentHandle& fragment) {
    fragments.push_back(fragment);
    return true;
  });
  return fragments;
}

std::size_t FragmentIDCollection::size() const {
  const std::shared_lock lock(mutex_);
  return fragments_.size();
}

}  // namespace Fiber
