// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Cache.hpp"

#include <algorithm>

#include "datamodel/memcore/Allocator.hpp"

namespace MemCore {

StrongPtr<Cache> Cache::MemCache() {
  static const auto theCache = makeStrong<Cache>(machineMemory() / 2);
  return theCache;
}

// Dropped handles are released after the lock: freeing large data must not hold up other threads.
void Cache::setBudget(std::uint64_t bytes) {
  EntryList dropped;
  const std::lock_guard lock(mutex_);
  budgetBytes_ = bytes;
  evictBeyondBudget(dropped);
}

std::uint64_t Cache::budget() const {
  const std::lock_guard lock(mutex_);
  return budgetBytes_;
}

void Cache::insert(const StrongPtr<Cacheable>& item) {
  if (!item) return;
  EntryList dropped;
  const std::uint64_t bytes = item->byteCount();
  const std::lock_guard lock(mutex_);
  ++statistics_.misses;
  if (bytes > budgetBytes_ || places_.count(item.get()) != 0) return;
  entries_.push_front({item, bytes});
  places_[item.get()] = entries_.begin();
  statistics_.bytes += bytes;
  evictBeyondBudget(dropped);
  statistics_.peakBytes = std::max(statistics_.peakBytes, statistics_.bytes);
}

void Cache::markAsUsed(const Cacheable& item) {
  const std::lock_guard lock(mutex_);
  ++statistics_.hits;
  const auto place = places_.find(&item);
  if (place != places_.end()) entries_.splice(entries_.begin(), entries_, place->second);
}

void Cache::remove(const Cacheable& item) {
  EntryList dropped;
  const std::lock_guard lock(mutex_);
  const auto place = places_.find(&item);
  if (place == places_.end()) return;
  statistics_.bytes -= place->second->bytes;
  dropped.splice(dropped.begin(), entries_, place->second);
  places_.erase(place);
}

void Cache::clear() {
  EntryList dropped;
  const std::lock_guard lock(mutex_);
  dropped.swap(entries_);
  places_.clear();
  statistics_.bytes = 0;
}

CacheStatistics Cache::statistics() const {
  const std::lock_guard lock(mutex_);
  return statistics_;
}

void Cache::evictBeyondBudget(EntryList& dropped) {
  while (statistics_.bytes > budgetBytes_ && !entries_.empty()) {
    const auto last = std::prev(entries_.end());
    statistics_.bytes -= last->bytes;
    places_.erase(last->item.get());
    dropped.splice(dropped.begin(), entries_, last);
    ++statistics_.evictions;
  }
}

void Cacheable::markAsUsed() const { Cache::MemCache()->markAsUsed(*this); }

}  // namespace MemCore
