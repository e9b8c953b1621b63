// SPDX-License-Identifier: Apache-2.0
//
// Cache: keeps data that can be made again alive up to a budget of bytes, least recently used out
// first. What is in use stays alive through its own handles; eviction drops only the cache's.

#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <unordered_map>

#include "datamodel/memcore/StrongPtr.hpp"

namespace MemCore {

class Cacheable;

/// Base of what makes cacheable data on demand.
class FIBER_API Creature {
 public:
  virtual ~Creature() = default;
  /// Off: data made later are not handed to the cache and live only as long as they are held.
  void enableCaching(bool on) { cachingEnabled_ = on; }  ///< Threads: any
  bool cachingEnabled() const { return cachingEnabled_; }

 private:
  std::atomic<bool> cachingEnabled_ = true;
};

/// What the cache has seen since it was made.
struct CacheStatistics {
  std::uint64_t hits = 0;    ///< uses of data that were there
  std::uint64_t misses = 0;  ///< data that had to be made, kept or not
  std::uint64_t bytes = 0;   ///< held now
  std::uint64_t peakBytes = 0;
  std::uint64_t evictions = 0;
};

/// Threads: every operation may be called at once from any thread.
class FIBER_API Cache {
 public:
  /// The process's in-memory cache.
  static StrongPtr<Cache> MemCache();

  explicit Cache(std::uint64_t budgetBytes) : budgetBytes_(budgetBytes) {}
  Cache(const Cache&) = delete;
  Cache& operator=(const Cache&) = delete;

  void setBudget(std::uint64_t bytes);
  std::uint64_t budget() const;
  /// Takes a handle on freshly made data and drops the least recently used beyond the budget. Data
  /// larger than the whole budget are not kept. An empty handle does nothing.
  void insert(const StrongPtr<Cacheable>& item);
  /// Notes a use: the item becomes the most recent one, if the cache holds it.
  void markAsUsed(const Cacheable& item);
  /// Forgets one item, or everything.
  void remove(const Cacheable& item);
  void clear();
  CacheStatistics statistics() const;

 private:
  struct Entry {
    StrongPtr<Cacheable> item;
    std::uint64_t bytes = 0;
  };
  using EntryList = std::list<Entry>;

  void evictBeyondBudget(EntryList& dropped);

  mutable std::mutex mutex_;
  std::uint64_t budgetBytes_;
  EntryList entries_;  ///< most recently used first
  std::unordered_map<const Cacheable*, EntryList::iterator> places_;
  CacheStatistics statistics_;
};

/// Base of data that the cache can hold.
class FIBER_API Cacheable {
 public:
  virtual ~Cacheable() = default;
  /// Bytes of memory that the data occupy.
  virtual std::uint64_t byteCount() const = 0;
  /// Who made the data and can make them again; empty for data that came from outside.
  void setCreator(const WeakPtr<Creature>& creator) { creator_ = creator; }
  StrongPtr<Creature> creator() const { return creator_.lock(); }
  /// Tells the process's cache that the data were used just now.
  void markAsUsed() const;

 private:
  WeakPtr<Creature> creator_;
};

}  // namespace MemCore
