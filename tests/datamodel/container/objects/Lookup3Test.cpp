// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/Lookup3.hpp"

#include <gtest/gtest.h>

#include <string_view>

namespace Fiber::Container {
namespace {

std::uint32_t hashOf(std::string_view text) { return lookup3(std::as_bytes(std::span(text))); }

// The values that the author of the hash gives for its driver.
TEST(Lookup3, KnownValues) {
  EXPECT_EQ(hashOf(""), 0xDEADBEEFU);
  EXPECT_EQ(hashOf("Four score and seven years ago"), 0x17770551U);
}

TEST(Lookup3, EveryLengthAndByteCounts) {
  std::string text(40, 'a');
  std::uint32_t last = hashOf(std::string_view(text).substr(0, 0));
  for (std::size_t length = 1; length <= text.size(); ++length) {
    const std::uint32_t hash = hashOf(std::string_view(text).substr(0, length));
    EXPECT_NE(hash, last) << length;
    last = hash;
  }
  for (char& c : text) {
    c = 'b';
    EXPECT_NE(hashOf(text), last);
    c = 'a';
  }
}

}  // namespace
}  // namespace Fiber::Container
