// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/CreativeArrayBase.hpp"

#include <gtest/gtest.h>

#include <barrier>
#include <chrono>
#include <new>
#include <set>
#include <thread>
#include <vector>

#include "tests/datamodel/fiber/TestCreator.hpp"

namespace Fiber {
namespace {

using MemCore::Cache;
using MemCore::StrongPtr;

TEST(CreativeArrayBase, MakesItsDataOnFirstUseOnly) {
  const auto creator = makerOf<double>({1, 2, 3});
  EXPECT_FALSE(creator->dataIfPresent());
  EXPECT_EQ(creator->timesMade(), 0);
  const auto data = creator->data();
  ASSERT_TRUE(data);
  EXPECT_EQ(creator->data(), data);
  EXPECT_EQ(creator->dataIfPresent(), data);
  EXPECT_EQ(creator->timesMade(), 1);
  EXPECT_EQ(data->creator(), creator);
}

TEST(MemoryCreator, DataArePresentBeforeAnybodyAsksForThem) {
  const auto data = arrayOf<double>({1, 2, 3});
  const auto creator = MemCore::makeStrong<MemoryCreator>(data);
  EXPECT_EQ(creator->dataIfPresent(), data);
}

TEST(CreativeArrayBase, ThreadsThatAskAtTheSameMomentShareOneCreation) {
  constexpr int kThreads = 16;
  const auto creator = MemCore::makeStrong<TestCreator>([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return MadeData(arrayOf<double>({1, 2, 3}));
  });
  std::barrier start(kThreads);
  std::vector<StrongPtr<MemBase>> received(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      received[static_cast<std::size_t>(t)] = creator->data();
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(creator->timesMade(), 1);
  for (const auto& data : received) EXPECT_EQ(data, received.front());
}

TEST(CreativeArrayBase, EvictedDataAreMadeAgain) {
  const auto creator = makerOf<double>({1, 2, 3});
  ASSERT_TRUE(creator->data());
  ASSERT_TRUE(creator->dataIfPresent()) << "the cache keeps them";
  Cache::MemCache()->clear();
  EXPECT_FALSE(creator->dataIfPresent());
  ASSERT_TRUE(creator->data());
  EXPECT_EQ(creator->timesMade(), 2);
}

TEST(CreativeArrayBase, EvictionLeavesDataInUseAlone) {
  const auto creator = makerOf<double>({1, 2, 3});
  const auto held = creator->data();
  Cache::MemCache()->clear();
  EXPECT_EQ(creator->data(), held);
  EXPECT_EQ(creator->timesMade(), 1);
}

TEST(CreativeArrayBase, WithoutCachingDataLiveAsLongAsTheyAreHeld) {
  const auto creator = makerOf<double>({1, 2, 3});
  creator->enableCaching(false);
  const auto misses = Cache::MemCache()->statistics().misses;
  ASSERT_TRUE(creator->data());
  EXPECT_FALSE(creator->dataIfPresent());
  EXPECT_EQ(Cache::MemCache()->statistics().misses, misses);
}

TEST(CreativeArrayBase, UseIsToldToTheCache) {
  const auto creator = makerOf<double>({1, 2, 3});
  const auto held = creator->data();
  const auto before = Cache::MemCache()->statistics().hits;
  ASSERT_TRUE(creator->data());
  EXPECT_EQ(Cache::MemCache()->statistics().hits, before + 1);
}

TEST(CreativeArrayBase, FailureYieldsNoDataAndItsText) {
  const auto creator = MemCore::makeStrong<TestCreator>(
      [] { return MadeData(MemCore::Failure{"scan.las: truncated, found 3, expected 4"}); });
  EXPECT_EQ(creator->failure(), "");
  EXPECT_FALSE(creator->data());
  EXPECT_EQ(creator->failure(), "scan.las: truncated, found 3, expected 4");
  EXPECT_FALSE(getSize(*creator));
}

TEST(CreativeArrayBase, FailureTextStaysWhenALaterAttemptSucceeds) {
  bool broken = true;
  const auto creator = MemCore::makeStrong<TestCreator>([&] {
    return broken ? MadeData(MemCore::Failure{"scan.las: busy"}) : MadeData(arrayOf<double>({1}));
  });
  EXPECT_FALSE(creator->data());
  broken = false;
  EXPECT_TRUE(creator->data());
  EXPECT_EQ(creator->failure(), "scan.las: busy");
}

TEST(CreativeArrayBase, MissingMemoryBecomesAFailureText) {
  const auto creator =
      MemCore::makeStrong<TestCreator>([]() -> MadeData { throw std::bad_alloc(); });
  EXPECT_FALSE(creator->data());
  EXPECT_NE(creator->failure().find("memory"), std::string::npos);
}

TEST(CreativeArrayBase, SourceWithoutDataIsAFailure) {
  const auto creator =
      MemCore::makeStrong<TestCreator>([] { return MadeData(StrongPtr<MemBase>()); });
  EXPECT_FALSE(creator->data());
  EXPECT_NE(creator->failure(), "");
}

TEST(CreativeArrayBase, FinishOfTheBaseChangesNothing) {
  const auto creator = creatorOf<double>({1, 2});
  creator->finish();
  EXPECT_EQ(pointCountOf(*creator), 2U);
}

TEST(MemoryCreator, KeepsItsDataWithoutTheCache) {
  const auto creator = creatorOf<double>({1, 2});
  Cache::MemCache()->clear();
  const auto before = Cache::MemCache()->statistics();
  ASSERT_TRUE(creator->data());
  EXPECT_EQ(creator->data(), creator->data());
  EXPECT_EQ(Cache::MemCache()->statistics().hits, before.hits);
  EXPECT_EQ(Cache::MemCache()->statistics().bytes, 0U);
}

TEST(SetCellSizeAttribute, RecordsOneDouble) {
  const auto creator = creatorOf<double>({1, 2});
  LidarLib::setCellSizeAttribute(*creator, -1.0);
  const auto size = MemCore::chunkCast<double>(creator->attributes().getAttribute("CellSize"));
  ASSERT_TRUE(size);
  ASSERT_EQ(size->size(), 1U);
  EXPECT_EQ((*size)[0], -1.0);
}

}  // namespace
}  // namespace Fiber
