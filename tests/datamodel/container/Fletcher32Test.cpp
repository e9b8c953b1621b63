// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Fletcher32.hpp"

#include <gtest/gtest.h>

#include <random>
#include <string_view>
#include <vector>

namespace Fiber::Container {
namespace {

std::uint32_t sumOf(std::string_view text) { return fletcher32(std::as_bytes(std::span(text))); }

TEST(Fletcher32, SmallCasesByHand) {
  EXPECT_EQ(sumOf(""), 0U);
  EXPECT_EQ(sumOf(std::string_view("\x01\x02", 2)), 0x01020102U);
  // An odd byte is the high half of a word: 0x0102, then 0x0300.
  EXPECT_EQ(sumOf(std::string_view("\x01\x02\x03", 3)), 0x05040402U);
  EXPECT_EQ(sumOf(std::string_view("\x01\x02\x03\x04", 4)), 0x05080406U);
}

TEST(Fletcher32, EverySingleFlippedBitChangesTheSum) {
  std::mt19937_64 random(4);
  for (const std::size_t size : {1U, 2U, 3U, 720U, 721U, 1500U}) {
    std::vector<std::byte> bytes(size);
    for (std::byte& b : bytes) b = static_cast<std::byte>(random() % 3 == 0 ? 0xFF : random());
    const std::uint32_t good = fletcher32(bytes);
    for (std::size_t bit = 0; bit < 8 * size; ++bit) {
      bytes[bit / 8] ^= static_cast<std::byte>(1U << (bit % 8));
      EXPECT_NE(fletcher32(bytes), good) << size << " " << bit;
      bytes[bit / 8] ^= static_cast<std::byte>(1U << (bit % 8));
    }
  }
}

}  // namespace
}  // namespace Fiber::Container
