// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/FragmentID.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <thread>
#include <unordered_set>
#include <vector>

#include "tests/support/Seed.hpp"

namespace Fiber {
namespace {

using MemCore::makeStrong;

/// Names of a letter and the number.
class LetterNames final : public FragmentNames {
 public:
  explicit LetterNames(char letter) : letter_(letter) {}
  std::string nameOf(unsigned number) const override { return letter_ + std::to_string(number); }

 private:
  char letter_;
};

TEST(FragmentID, KnowsNameNumberAndCollection) {
  const auto collection = makeStrong<FragmentIDCollection>();
  const FragmentID fragment("tile", 7, collection);
  EXPECT_EQ(fragment.name(), "tile");
  EXPECT_EQ(fragment.number(), 7U);
  EXPECT_EQ(fragment.collection(), collection);
}

TEST(FragmentID, OutlivesItsCollection) {
  auto collection = makeStrong<FragmentIDCollection>();
  const auto fragment = collection->makeFragmentID("a");
  EXPECT_EQ(fragment->collection(), collection);
  collection.reset();
  EXPECT_FALSE(fragment->collection());
  EXPECT_EQ(fragment->name(), "a");
}

TEST(FragmentIDCollection, UnknownNameOrNumberIsAnEmptyHandle) {
  const auto collection = makeStrong<FragmentIDCollection>();
  EXPECT_FALSE(collection->findFragmentID("a"));
  EXPECT_FALSE(collection->findFragmentID(0U));
  EXPECT_EQ(collection->size(), 0U);
  EXPECT_TRUE(collection->all().empty());
}

TEST(FragmentIDCollection, NamesGetAscendingNumbers) {
  const auto collection = makeStrong<FragmentIDCollection>();
  const auto b = collection->makeFragmentID("b");
  const auto a = collection->makeFragmentID("a");
  EXPECT_EQ(b->number(), 0U);
  EXPECT_EQ(a->number(), 1U);
  EXPECT_EQ(collection->makeFragmentID("b"), b);
  EXPECT_EQ(collection->findFragmentID("a"), a);
  EXPECT_EQ(collection->findFragmentID(0U), b);
}

TEST(FragmentIDCollection, NumberOfChoiceIsKeptAndTheNextNameGoesAboveIt) {
  const auto collection = makeStrong<FragmentIDCollection>();
  const auto far = collection->makeFragmentID("far", 1000);
  EXPECT_EQ(collection->makeFragmentID("far", 1000), far);
  EXPECT_EQ(collection->makeFragmentID("next")->number(), 1001U);
  EXPECT_EQ(collection->findFragmentID("far"), far);
}

TEST(FragmentIDCollection, NamesAreFoundWhetherMadeBeforeOrAfterTheFirstLookup) {
  const auto collection = makeStrong<FragmentIDCollection>();
  const auto before = collection->makeFragmentID("before", 5);
  EXPECT_FALSE(collection->findFragmentID("after"));
  const auto after = collection->makeFragmentID("after", 3);
  EXPECT_EQ(collection->findFragmentID("before"), before);
  EXPECT_EQ(collection->findFragmentID("after"), after);
}

TEST(FragmentIDCollection, ListsInOrderOfNumber) {
  const auto collection = makeStrong<FragmentIDCollection>();
  for (const unsigned number : {70U, 3U, 64U, 0U}) {
    collection->makeFragmentID(std::to_string(number), number);
  }
  std::vector<unsigned> numbers;
  for (const auto& fragment : collection->all()) numbers.push_back(fragment->number());
  EXPECT_EQ(numbers, (std::vector<unsigned>{0, 3, 64, 70}));
  EXPECT_EQ(collection->size(), 4U);
}

TEST(FragmentIDCollection, NoNumberLeftIsAnEmptyHandle) {
  const auto collection = makeStrong<FragmentIDCollection>();
  const auto last = collection->makeFragmentID("last", std::numeric_limits<unsigned>::max());
  EXPECT_FALSE(collection->makeFragmentID("one more"));
  EXPECT_EQ(collection->size(), 1U);
  EXPECT_EQ(collection->makeFragmentID("last"), last);
}

TEST(FragmentIDCollection, MadeByTheManyHaveTheNamesToldForThem) {
  const auto collection = makeStrong<FragmentIDCollection>();
  const auto own = collection->makeFragmentID("own", 40);
  const std::vector<unsigned> numbers{3, 40, 4'000'000'000U, 4};
  const auto made = collection->makeFragmentIDs(numbers, makeStrong<LetterNames>('a'));
  ASSERT_EQ(made.size(), 4U);
  EXPECT_EQ(made[0]->name(), "a3");
  EXPECT_EQ(made[1], own) << "which was there already";
  EXPECT_EQ(made[2]->name(), "a4000000000");
  EXPECT_EQ(made[2]->collection(), collection);
  EXPECT_EQ(collection->makeFragmentIDs(numbers, makeStrong<LetterNames>('b')), made);
  EXPECT_EQ(collection->findFragmentID("a4"), made[3]);
  EXPECT_FALSE(collection->findFragmentID("b4"));
  EXPECT_EQ(collection->size(), 4U);
}

TEST(FragmentIDCollection, FragmentAloneKeepsItsName) {
  auto collection = makeStrong<FragmentIDCollection>();
  const std::vector<unsigned> numbers{8};
  const auto made = collection->makeFragmentIDs(numbers, makeStrong<LetterNames>('a')).front();
  collection.reset();
  EXPECT_EQ(made->name(), "a8");
  EXPECT_EQ(made->number(), 8U);
}

TEST(FragmentIDCollection, BehavesAsTwoMaps) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  const auto collection = makeStrong<FragmentIDCollection>();
  const auto told = makeStrong<LetterNames>('t');
  std::map<unsigned, std::string> plain;  // by number
  for (int step = 0; step < 3000; ++step) {
    const auto number = static_cast<unsigned>(random() % 700 * (random() % 2 == 0 ? 1 : 1000));
    if (random() % 2 == 0) {
      collection->makeFragmentID("own " + std::to_string(number), number);
      plain.try_emplace(number, "own " + std::to_string(number));
    } else {
      const std::vector<unsigned> numbers{number, number + 1};
      collection->makeFragmentIDs(numbers, told);
      for (const unsigned n : numbers) plain.try_emplace(n, told->nameOf(n));
    }
    const auto [sought, name] = *plain.lower_bound(number);
    if (step < 1000) continue;
    ASSERT_EQ(collection->findFragmentID(name)->number(), sought);
  }
  std::map<unsigned, std::string> found;
  for (const auto& fragment : collection->all()) found[fragment->number()] = fragment->name();
  EXPECT_EQ(found, plain);
  EXPECT_EQ(collection->size(), plain.size());
}

TEST(FragmentIDCollection, ThreadsThatMakeTheSameFragmentsAgree) {
  const auto collection = makeStrong<FragmentIDCollection>();
  constexpr unsigned kCount = 500;
  std::vector<std::vector<FragmentHandle>> made(4, std::vector<FragmentHandle>(kCount));
  std::vector<std::thread> threads;
  for (auto& mine : made) {
    threads.emplace_back([&] {
      for (unsigned n = 0; n < kCount; ++n) {
        mine[n] = n % 2 == 0 ? collection->makeFragmentID(std::to_string(n), n)
                             : collection->makeFragmentID("odd " + std::to_string(n), n);
        ASSERT_TRUE(collection->findFragmentID(std::to_string(n - n % 2)));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(collection->size(), kCount);
  for (const auto& mine : made) EXPECT_EQ(mine, made.front());
}

TEST(FragmentSet, HashIsTheNumberAndEqualityIsIdentity) {
  const auto one = makeStrong<FragmentIDCollection>();
  const auto other = makeStrong<FragmentIDCollection>();
  const auto a = one->makeFragmentID("a", 4);
  const auto b = other->makeFragmentID("b", 4);
  const std::hash<FragmentHandle> hash;
  EXPECT_EQ(hash(a), hash(b));
  const std::unordered_set<FragmentHandle> set{a, b, a};
  EXPECT_EQ(set.size(), 2U);
}

TEST(FragmentSet, IsWalkedInTheSameOrderEveryTime) {
  // Both live at once, so that no address is the same.
  std::vector<MemCore::StrongPtr<FragmentIDCollection>> collections;
  const auto walk = [&] {
    const auto& collection = collections.emplace_back(makeStrong<FragmentIDCollection>());
    std::unordered_set<FragmentHandle> set;
    for (unsigned n = 0; n < 100; ++n) {
      set.insert(collection->makeFragmentID(std::to_string(n), n * 7 % 100));
    }
    std::vector<unsigned> order;
    for (const auto& fragment : set) order.push_back(fragment->number());
    return order;
  };
  EXPECT_EQ(walk(), walk());
}

}  // namespace
}  // namespace Fiber
