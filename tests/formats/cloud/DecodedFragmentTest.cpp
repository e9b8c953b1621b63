// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/DecodedFragment.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/formats/cloud/CloudTestFiles.hpp"

namespace Formats {

namespace {

using MemCore::Chunk;
using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;
using MemCore::StrongPtr;

constexpr std::uint64_t kRows = 1000;
constexpr std::uint64_t kUnlimited = std::uint64_t{1} << 30;

/// Two columns of equal numbers: 1 and 2.
class CountingSource final : public DecodedFragmentSource {
 public:
  std::atomic<int> decodings = 0;
  std::atomic<bool> fails = false;

 protected:
  Outcome<DecodedHandle> decode() override {
    ++decodings;
    if (fails) return Failure{"source: broken"};
    return makeStrong<DecodedFragment>(std::vector<StrongPtr<Fiber::MemBase>>{
        Fiber::makeArray(makeStrong<Chunk<std::uint32_t>>(kRows, 1U)),
        Fiber::makeArray(makeStrong<Chunk<std::uint64_t>>(kRows, 2U))});
  }
};

StrongPtr<ColumnCreator> creatorOf(const StrongPtr<CountingSource>& source, std::size_t column) {
  return makeStrong<ColumnCreator>(
      Fiber::ArrayFacts{nullptr, Fiber::DynamicSize{kRows}, nullptr, std::nullopt}, source, column);
}

}  // namespace

TEST(DecodedFragment, ColumnsOfOneFragmentShareOneDecoding) {
  const CacheBudget budget(kUnlimited);
  const auto source = makeStrong<CountingSource>();
  const auto first = creatorOf(source, 0)->data();
  const auto second = creatorOf(source, 1)->data();
  EXPECT_EQ(source->decodings, 1);
  EXPECT_EQ(first->elements()->elementSize(), sizeof(std::uint32_t));
  EXPECT_EQ(second->elements()->elementSize(), sizeof(std::uint64_t));
}

TEST(DecodedFragment, CacheHoldsTheFragmentOnceAndNotItsColumnsAgain) {
  const CacheBudget budget(kUnlimited);
  const auto source = makeStrong<CountingSource>();
  const auto creators = {creatorOf(source, 0), creatorOf(source, 1)};
  for (const auto& creator : creators) ASSERT_TRUE(bool(creator->data()));
  EXPECT_EQ(MemCore::Cache::MemCache()->statistics().bytes, kRows * 12);
  EXPECT_EQ(source->decodedIfPresent()->byteCount(), kRows * 12);
}

TEST(DecodedFragment, ColumnInUseOutlivesItsFragment) {
  const CacheBudget budget(kUnlimited);
  const auto source = makeStrong<CountingSource>();
  const auto creator = creatorOf(source, 0);
  const auto column = creator->data();
  MemCore::Cache::MemCache()->clear();
  EXPECT_FALSE(bool(source->decodedIfPresent()));
  EXPECT_EQ(creator->data(), column);
  EXPECT_EQ(source->decodings, 1);
}

TEST(DecodedFragment, DroppedFragmentIsDecodedAgain) {
  const CacheBudget budget(kUnlimited);
  const auto source = makeStrong<CountingSource>();
  const auto creator = creatorOf(source, 0);
  ASSERT_TRUE(bool(creator->data()));
  MemCore::Cache::MemCache()->clear();
  EXPECT_FALSE(bool(creator->dataIfPresent()));
  EXPECT_TRUE(bool(creator->data()));
  EXPECT_EQ(source->decodings, 2);
}

TEST(DecodedFragment, UseOfAColumnKeepsTheFragmentInTheCache) {
  const CacheBudget budget(2 * kRows * 12);
  const auto used = makeStrong<CountingSource>();
  const auto creator = creatorOf(used, 0);
  ASSERT_TRUE(bool(creator->data()));
  const auto idle = makeStrong<CountingSource>();
  ASSERT_TRUE(bool(creatorOf(idle, 0)->data()));
  ASSERT_TRUE(bool(creator->data()));  // the older one is used again
  ASSERT_TRUE(bool(creatorOf(makeStrong<CountingSource>(), 0)->data()));
  EXPECT_TRUE(bool(used->decodedIfPresent()));
  EXPECT_FALSE(bool(idle->decodedIfPresent()));
}

TEST(DecodedFragment, ThreadsThatAskAtOnceShareOneDecoding) {
  const CacheBudget budget(kUnlimited);
  const auto source = makeStrong<CountingSource>();
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 4; ++t) {
    threads.emplace_back([&source, t] { EXPECT_TRUE(bool(creatorOf(source, t % 2)->data())); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(source->decodings, 1);
}

TEST(DecodedFragment, FailureIsTheCreatorsAndTheNextAttemptMaySucceed) {
  const CacheBudget budget(kUnlimited);
  const auto source = makeStrong<CountingSource>();
  const auto creator = creatorOf(source, 0);
  source->fails = true;
  EXPECT_FALSE(bool(creator->data()));
  EXPECT_EQ(creator->failure(), "source: broken");
  source->fails = false;
  EXPECT_TRUE(bool(creator->data()));
}

TEST(DecodedFragment, ZeroCreatorKnowsEverythingWithoutData) {
  const auto type = Fiber::FiberTypeBase::find("uint16");
  const auto creator = makeStrong<ZeroCreator>(type, Fiber::DynamicSize{3, 2});
  EXPECT_EQ(Fiber::pointCountOf(*creator), 6U);
  EXPECT_EQ(Fiber::rangeOf(*creator), (Fiber::ValueRange{0, 0}));
  EXPECT_FALSE(bool(creator->dataIfPresent()));
  const auto data = MemCore::handleCast<Fiber::MemArray<2, std::uint16_t>>(creator->data());
  ASSERT_TRUE(bool(data));
  for (const std::uint16_t value : data->span()) EXPECT_EQ(value, 0);
}

}  // namespace Formats
