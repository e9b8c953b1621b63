// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Cache.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace MemCore {
namespace {

/// Data of a given size that the cache may hold.
class Block : public Cacheable {
 public:
  explicit Block(std::uint64_t bytes) : bytes_(bytes) {}
  std::uint64_t byteCount() const override { return bytes_; }

 private:
  std::uint64_t bytes_;
};

/// Puts a block into the cache and keeps only a weak handle, as creators do.
WeakPtr<Block> insertBlock(Cache& cache, std::uint64_t bytes) {
  const auto block = makeStrong<Block>(bytes);
  cache.insert(block);
  return block;
}

TEST(Cache, KeepsDataThatNobodyElseHolds) {
  Cache cache(100);
  const auto block = insertBlock(cache, 60);
  EXPECT_FALSE(block.expired());
  EXPECT_EQ(cache.statistics().bytes, 60U);
}

TEST(Cache, DropsTheLeastRecentlyUsedBeyondTheBudget) {
  Cache cache(100);
  const auto first = insertBlock(cache, 40);
  const auto second = insertBlock(cache, 40);
  cache.markAsUsed(*first.lock());
  const auto third = insertBlock(cache, 40);
  EXPECT_FALSE(first.expired());
  EXPECT_TRUE(second.expired());
  EXPECT_FALSE(third.expired());
  EXPECT_EQ(cache.statistics().evictions, 1U);
}

TEST(Cache, EvictionLeavesWhatIsInUseAlive) {
  Cache cache(100);
  const auto held = makeStrong<Block>(80);
  cache.insert(held);
  const auto next = insertBlock(cache, 80);
  EXPECT_FALSE(next.expired());
  EXPECT_EQ(held->byteCount(), 80U);
  EXPECT_EQ(held.shared().use_count(), 1);
}

TEST(Cache, DataLargerThanTheBudgetAreNotKept) {
  Cache cache(100);
  const auto small = insertBlock(cache, 50);
  EXPECT_TRUE(insertBlock(cache, 101).expired());
  EXPECT_FALSE(small.expired());
}

TEST(Cache, SmallerBudgetTakesEffectAtOnce) {
  Cache cache(100);
  const auto first = insertBlock(cache, 50);
  const auto second = insertBlock(cache, 50);
  cache.setBudget(60);
  EXPECT_EQ(cache.budget(), 60U);
  EXPECT_TRUE(first.expired());
  EXPECT_FALSE(second.expired());
}

TEST(Cache, CountsHitsMissesBytesAndPeak) {
  Cache cache(100);
  const auto first = insertBlock(cache, 70);
  const auto second = insertBlock(cache, 20);
  cache.markAsUsed(*second.lock());
  cache.remove(*first.lock());
  const CacheStatistics seen = cache.statistics();
  EXPECT_EQ(seen.hits, 1U);
  EXPECT_EQ(seen.misses, 2U);
  EXPECT_EQ(seen.bytes, 20U);
  EXPECT_EQ(seen.peakBytes, 90U);
  EXPECT_EQ(seen.evictions, 0U);
}

TEST(Cache, InsertedTwiceCountsItsBytesOnce) {
  Cache cache(100);
  const auto block = makeStrong<Block>(30);
  cache.insert(block);
  cache.insert(block);
  EXPECT_EQ(cache.statistics().bytes, 30U);
}

TEST(Cache, ClearForgetsEverything) {
  Cache cache(100);
  const auto block = insertBlock(cache, 30);
  cache.clear();
  EXPECT_TRUE(block.expired());
  EXPECT_EQ(cache.statistics().bytes, 0U);
  EXPECT_EQ(cache.statistics().peakBytes, 30U);
}

TEST(Cache, UnknownItemsAndEmptyHandlesDoNothing) {
  Cache cache(100);
  const Block stranger(10);
  cache.remove(stranger);
  cache.insert(nullptr);
  EXPECT_EQ(cache.statistics().bytes, 0U);
  EXPECT_EQ(cache.statistics().misses, 0U);
}

TEST(Cache, ProcessHasOneWithABudgetFromTheMachine) {
  EXPECT_EQ(Cache::MemCache(), Cache::MemCache());
  EXPECT_GT(Cache::MemCache()->budget(), 0U);
}

TEST(Cache, StaysWithinItsBudgetUnderThreads) {
  Cache cache(1000);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&cache] {
      for (std::uint64_t i = 0; i < 2000; ++i) {
        const auto block = makeStrong<Block>(1 + i % 97);
        cache.insert(block);
        cache.markAsUsed(*block);
        if (i % 5 == 0) cache.remove(*block);
        ASSERT_LE(cache.statistics().bytes, 1000U);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(cache.statistics().hits, 8000U);
  EXPECT_EQ(cache.statistics().misses, 8000U);
  EXPECT_LE(cache.statistics().peakBytes, 1000U);
  cache.clear();
  EXPECT_EQ(cache.statistics().bytes, 0U);
}

TEST(Cacheable, RemembersItsCreatorForAsLongAsItLives) {
  auto creator = makeStrong<Creature>();
  Block block(1);
  EXPECT_FALSE(block.creator());
  block.setCreator(creator);
  EXPECT_EQ(block.creator(), creator);
  creator.reset();
  EXPECT_FALSE(block.creator());
}

TEST(Creature, CachingIsOnUntilSwitchedOff) {
  Creature creature;
  EXPECT_TRUE(creature.cachingEnabled());
  creature.enableCaching(false);
  EXPECT_FALSE(creature.cachingEnabled());
}

}  // namespace
}  // namespace MemCore
