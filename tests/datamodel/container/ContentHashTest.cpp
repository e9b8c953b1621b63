// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ContentHash.hpp"

#include <gtest/gtest.h>

#include <set>

namespace Fiber::Container {
namespace {

std::uint64_t hashOf(std::initializer_list<std::uint64_t> numbers) {
  ContentHash hash;
  for (const std::uint64_t number : numbers) hash.add(number);
  return hash.value();
}

TEST(ContentHash, OrderAndEveryNumberCount) {
  std::set<std::uint64_t> values = {hashOf({}),     hashOf({0}),    hashOf({0, 0}),
                                    hashOf({1, 2}), hashOf({2, 1}), hashOf({1, 2, 0})};
  EXPECT_EQ(values.size(), 6U);
  for (std::uint64_t i = 0; i < 10000; ++i) values.insert(hashOf({i, 3}));
  EXPECT_EQ(values.size(), 10006U);
}

TEST(ContentHash, StaysTheSameForEver) {
  // Files hold these values: a change here would make every linked tile look changed.
  EXPECT_EQ(hashOf({1}), 0x910A2DEC89025CC1U);
  ContentHash text;
  text.add("ab");
  EXPECT_EQ(text.value(), hashOf({2, 'a', 'b'}));
}

}  // namespace
}  // namespace Fiber::Container
