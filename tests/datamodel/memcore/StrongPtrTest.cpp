// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/StrongPtr.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <unordered_set>
#include <vector>

namespace MemCore {
namespace {

struct Animal {
  virtual ~Animal() = default;
};
struct Dog : Animal {
  int age = 3;
};
struct Cat : Animal {};

/// Counts how many of its kind are alive.
struct Counted {
  explicit Counted(int& alive) : alive_(&alive) { ++*alive_; }
  ~Counted() { --*alive_; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
  int* alive_;
};

struct Node : std::enable_shared_from_this<Node> {};

TEST(StrongPtr, EmptyHandleMeansAbsent) {
  const StrongPtr<Dog> none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), nullptr);
  EXPECT_TRUE(none == nullptr);
  EXPECT_EQ(StrongPtr<Dog>(nullptr), none);
}

TEST(StrongPtr, LastHandleDestroysTheObject) {
  int alive = 0;
  StrongPtr<Counted> first(new Counted(alive));
  StrongPtr<Counted> second = first;
  first.reset();
  EXPECT_EQ(alive, 1);
  second.reset();
  EXPECT_EQ(alive, 0);
}

TEST(StrongPtr, FollowingAnEmptyHandleIsRaised) {
  const StrongPtr<Dog> none;
  EXPECT_THROW((void)none->age, InconsistentDynPtr);
  EXPECT_THROW((void)*none, InconsistentDynPtr);
}

TEST(StrongPtr, EqualityAndHashAreThoseOfTheObject) {
  const auto one = makeStrong<Dog>();
  const auto other = makeStrong<Dog>();
  const auto same = one;
  EXPECT_EQ(one, same);
  EXPECT_FALSE(one == other);
  const std::unordered_set<StrongPtr<Dog>> set{one, same, other};
  EXPECT_EQ(set.size(), 2U);
}

TEST(StrongPtr, HandleOnDerivedBecomesHandleOnBase) {
  const auto dog = makeStrong<Dog>();
  const StrongPtr<Animal> animal = dog;
  EXPECT_EQ(animal.get(), dog.get());
}

TEST(HandleCast, FindsTheDynamicType) {
  const StrongPtr<Animal> animal = makeStrong<Dog>();
  ASSERT_TRUE(handleCast<Dog>(animal));
  EXPECT_EQ(handleCast<Dog>(animal)->age, 3);
  EXPECT_FALSE(handleCast<Cat>(animal));
  EXPECT_FALSE(handleCast<Dog>(StrongPtr<Animal>()));
}

TEST(WeakPtr, LockIsEmptyOnceTheObjectIsGone) {
  auto dog = makeStrong<Dog>();
  const WeakPtr<Animal> weak = dog;
  EXPECT_FALSE(weak.expired());
  EXPECT_EQ(weak.lock().get(), dog.get());
  dog.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_FALSE(weak.lock());
  EXPECT_FALSE(WeakPtr<Dog>().lock());
}

TEST(SelfHandle, SharesTheCountsOfExistingHandles) {
  auto node = makeStrong<Node>();
  const StrongPtr<Node> self = selfHandle(*node);
  EXPECT_EQ(self, node);
  const WeakPtr<Node> weak = node;
  node.reset();
  EXPECT_FALSE(weak.expired());
}

TEST(SelfHandle, ObjectThatNoHandleHoldsIsRaised) {
  Node onTheStack;
  EXPECT_THROW((void)selfHandle(onTheStack), SelfConstruction);
}

TEST(StrongPtr, CountsAreExactUnderThreads) {
  int alive = 0;
  auto shared = StrongPtr<Counted>(new Counted(alive));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([shared] {
      for (int i = 0; i < 10000; ++i) {
        const StrongPtr<Counted> copy = shared;
        ASSERT_TRUE(copy);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  threads.clear();
  EXPECT_EQ(shared.shared().use_count(), 1);
  shared.reset();
  EXPECT_EQ(alive, 0);
}

}  // namespace
}  // namespace MemCore
