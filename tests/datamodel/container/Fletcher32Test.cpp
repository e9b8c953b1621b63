// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Fletcher32.hpp"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string_view>
#include <vector>

#include "tests/support/Seed.hpp"

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

/// Word by word, folded before the second sum can leave 32 bits.
std::uint32_t plainSum(std::span<const std::byte> bytes) {
  constexpr std::size_t kWordsPerFold = 360;
  const auto fold = [](std::uint32_t sum) { return (sum & 0xFFFFU) + (sum >> 16U); };
  std::uint32_t sum1 = 0;
  std::uint32_t sum2 = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    sum1 += std::to_integer<std::uint32_t>(bytes[i]) << 8U;
    if (i + 1 < bytes.size()) sum1 += std::to_integer<std::uint32_t>(bytes[i + 1]);
    sum2 += sum1;
    if ((i / 2 + 1) % kWordsPerFold != 0) continue;
    sum1 = fold(sum1);
    sum2 = fold(sum2);
  }
  return fold(fold(sum2)) << 16U | fold(fold(sum1));
}

TEST(Fletcher32, EqualsThePlainSum) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  std::mt19937_64 random(seed);
  for (int round = 0; round < 2000; ++round) {
    // Zeros, all bits (whose sums are multiples of the modulus), rare bits, noise.
    const std::array<unsigned, 4> rarity{0, 1, 50, 0};
    const std::size_t kind = random() % rarity.size();
    std::vector<std::byte> bytes(random() % (round % 10 == 0 ? 20000 : 100));
    for (std::byte& b : bytes) {
      if (kind == 3) b = static_cast<std::byte>(random());
      if (rarity[kind] != 0 && random() % rarity[kind] == 0) b = std::byte{0xFF};
    }
    ASSERT_EQ(fletcher32(bytes), plainSum(bytes)) << "seed " << seed << ", " << bytes.size();
  }
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
