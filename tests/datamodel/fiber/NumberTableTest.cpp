// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/NumberTable.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <vector>

#include "datamodel/memcore/StrongPtr.hpp"
#include "tests/support/Seed.hpp"

namespace Fiber {
namespace {

using Number = MemCore::StrongPtr<unsigned>;
using Table = NumberTable<Number>;

std::vector<unsigned> walked(const Table& table) {
  std::vector<unsigned> numbers;
  table.walk([&](const Number& number) {
    numbers.push_back(*number);
    return true;
  });
  return numbers;
}

TEST(NumberTable, EmptyTableFindsNothing) {
  const Table table;
  EXPECT_FALSE(table.find(0));
  EXPECT_EQ(table.size(), 0U);
  EXPECT_TRUE(walked(table).empty());
}

TEST(NumberTable, HoldsTheLargestNumber) {
  Table table;
  const unsigned largest = std::numeric_limits<unsigned>::max();
  table.set(largest, MemCore::makeStrong<unsigned>(largest));
  EXPECT_EQ(*table.find(largest), largest);
  EXPECT_FALSE(table.find(largest - 1));
}

TEST(NumberTable, WalkEndsWhenTheVisitorSaysSo) {
  Table table;
  for (const unsigned n : {70U, 3U, 40U}) table.set(n, MemCore::makeStrong<unsigned>(n));
  unsigned seen = 0;
  table.walk([&](const Number& number) {
    seen = *number;
    return *number != 40U;
  });
  EXPECT_EQ(seen, 40U);
}

TEST(NumberTable, BehavesAsAnOrderedMap) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  Table table;
  std::map<unsigned, unsigned> plain;
  for (int step = 0; step < 5000; ++step) {
    const auto number = static_cast<unsigned>(random() % 500 * (random() % 3 + 1));
    if (random() % 3 == 0) {
      table.set(number, nullptr);
      plain.erase(number);
    } else {
      table.set(number, MemCore::makeStrong<unsigned>(number));
      plain[number] = number;
    }
    ASSERT_EQ(table.size(), plain.size());
  }
  std::vector<unsigned> expected;
  for (const auto& [number, value] : plain) expected.push_back(number);
  EXPECT_EQ(walked(table), expected);
  Table::Finder finder(table);
  for (int step = 0; step < 5000; ++step) {
    const auto number = static_cast<unsigned>(random() % 1600);
    ASSERT_EQ(finder.find(number), table.find(number)) << number;
  }
}

}  // namespace
}  // namespace Fiber
