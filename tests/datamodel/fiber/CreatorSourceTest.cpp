// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "datamodel/fiber/Field.hpp"

namespace Fiber {
namespace {

using MemCore::makeStrong;

/// Creators of one number each for the fragments of even number.
class EvenSource final : public CreatorSource {
 public:
  CreatorHandle make(unsigned fragmentNumber) const override {
    ++asked;
    if (fragmentNumber % 2 != 0) return nullptr;
    const auto value = makeStrong<MemCore::Chunk<double>>(1, double(fragmentNumber));
    return makeStrong<MemoryCreator>(makeArray<double>(value));
  }
  mutable std::atomic<int> asked = 0;
};

class CreatorSourceTest : public ::testing::Test {
 protected:
  CreatorSourceTest() {
    for (const char* name : {"zero", "one", "two", "three"}) {
      fragments.push_back(field->makeFragmentID(name));
    }
    field->setCreatorSource(source);
  }

  MemCore::StrongPtr<EvenSource> source = makeStrong<EvenSource>();
  MemCore::StrongPtr<Field> field = makeStrong<Field>(nullptr);
  std::vector<FragmentHandle> fragments;
};

TEST_F(CreatorSourceTest, IsAskedWhenACreatorIsFirstWanted) {
  EXPECT_EQ(source->asked, 0);
  const CreatorHandle creator = field->getCreator(fragments[2]);
  ASSERT_TRUE(creator);
  EXPECT_EQ(field->getCreator(fragments[2]), creator) << "the same one ever after";
  EXPECT_EQ(source->asked, 1);
  EXPECT_FALSE(field->getCreator(fragments[1]));
}

TEST_F(CreatorSourceTest, FirstCreatorIsThatOfTheLowestNumber) {
  field->setCreator(fragments[0], nullptr);
  EXPECT_EQ(field->getFirstCreator(), field->getCreator(fragments[2]));
}

TEST_F(CreatorSourceTest, StoredAndRemovedCreatorsCountBeforeIt) {
  const CreatorHandle own =
      makeStrong<MemoryCreator>(makeArray<double>(makeStrong<MemCore::Chunk<double>>(1, 5.0)));
  field->setCreator(fragments[2], own);
  EXPECT_EQ(field->getCreator(fragments[2]), own);
  field->setCreator(fragments[2], nullptr);
  EXPECT_FALSE(field->getCreator(fragments[2])) << "removed, although the source has one";
  field->setCreator(fragments[2], own);
  EXPECT_EQ(field->getCreator(fragments[2]), own);
  EXPECT_EQ(source->asked, 0);
}

TEST_F(CreatorSourceTest, ManyCreatorsAreThoseOfTheSingleFragments) {
  field->setCreator(fragments[1], field->getCreator(fragments[2]));
  field->setCreator(fragments[0], nullptr);
  const std::vector<unsigned> numbers{2, 0, 1, 3, 1000, 2};
  const auto creators = field->getCreators(numbers);
  ASSERT_EQ(creators.size(), numbers.size());
  EXPECT_EQ(creators[0], field->getCreator(fragments[2]));
  EXPECT_FALSE(creators[1]) << "removed";
  EXPECT_EQ(creators[2], creators[0]) << "stored";
  EXPECT_FALSE(creators[3]);
  EXPECT_TRUE(creators[4]) << "the source has it";
  EXPECT_EQ(creators[5], creators[0]);
}

TEST_F(CreatorSourceTest, AllThreadsGetTheSameCreator) {
  for (int round = 0; round < 50; ++round) {
    const auto fresh = makeStrong<Field>(field->getFragmentIDCollection());
    fresh->setCreatorSource(source);
    std::vector<CreatorHandle> got(8);
    std::vector<std::thread> threads;
    for (CreatorHandle& one : got) {
      threads.emplace_back([&] { one = fresh->getCreator(fragments[2]); });
    }
    for (std::thread& thread : threads) thread.join();
    for (const CreatorHandle& one : got) EXPECT_EQ(one, got.front());
    ASSERT_TRUE(got.front());
  }
}

}  // namespace
}  // namespace Fiber
