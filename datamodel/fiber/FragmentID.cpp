// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/FragmentID.hpp"

namespace Fiber {

FragmentHandle FragmentIDCollection::findFragmentID(const std::string& name) const {
  const std::shared_lock lock(mutex_);
  const auto found = byName_.find(name);
  return found == byName_.end() ? nullptr : found->second;
}

FragmentHandle FragmentIDCollection::findFragmentID(unsigned number) const {
  const std::shared_lock lock(mutex_);
  const auto found = byNumber_.find(number);
  return found == byNumber_.end() ? nullptr : found->second;
}

FragmentHandle FragmentIDCollection::makeFragmentID(const std::string& name) {
  if (auto known = findFragmentID(name)) return known;
  const std::unique_lock lock(mutex_);
  const unsigned next = byNumber_.empty() ? 0 : byNumber_.rbegin()->first + 1;
  return insertLocked(name, next);
}

FragmentHandle FragmentIDCollection::makeFragmentID(const std::string& name, unsigned number) {
  if (auto known = findFragmentID(number)) return known;
  const std::unique_lock lock(mutex_);
  return insertLocked(name, number);
}

FragmentHandle FragmentIDCollection::insertLocked(const std::string& name, unsigned number) {
  // Another thread may have made it between the caller's look-up and its lock.
  const auto found = byName_.find(name);
  if (found != byName_.end()) return found->second;
  auto made = MemCore::makeStrong<FragmentID>(
      name, number, MemCore::WeakPtr<FragmentIDCollection>(weak_from_this()));
  byNumber_[number] = made;
  byName_[name] = made;
  return made;
}

std::vector<FragmentHandle> FragmentIDCollection::all() const {
  const std::shared_lock lock(mutex_);
  std::vector<FragmentHandle> fragments;
  fragments.reserve(byNumber_.size());
  for (const auto& [number, fragment] : byNumber_) fragments.push_back(fragment);
  return fragments;
}

std::size_t FragmentIDCollection::size() const {
  const std::shared_lock lock(mutex_);
  return byNumber_.size();
}

}  // namespace Fiber
