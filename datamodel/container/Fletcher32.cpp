// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Fletcher32.hpp"

#include <algorithm>

namespace Fiber::Container {
namespace {

std::uint32_t fold(std::uint32_t sum) { return (sum & 0xFFFFU) + (sum >> 16U); }

std::uint32_t word(std::byte high, std::byte low) {
  return (std::to_integer<std::uint32_t>(high) << 8U) | std::to_integer<std::uint32_t>(low);
}

}  // namespace

std::uint32_t fletcher32(std::span<const std::byte> bytes) {
  // As many words as can be summed up before the second sum leaves 32 bits.
  constexpr std::size_t kWordsPerFold = 360;
  std::uint32_t sum1 = 0;
  std::uint32_t sum2 = 0;
  const std::byte* at = bytes.data();
  for (std::size_t words = bytes.size() / 2; words > 0;) {
    const std::size_t block = std::min(words, kWordsPerFold);
    for (std::size_t i = 0; i < block; ++i, at += 2) {
      sum1 += word(at[0], at[1]);
      sum2 += sum1;
    }
    words -= block;
    sum1 = fold(sum1);
    sum2 = fold(sum2);
  }
  if (bytes.size() % 2 != 0) {
    sum1 += word(*at, std::byte{0});
    sum2 += sum1;
    sum1 = fold(sum1);
    sum2 = fold(sum2);
  }
  return (fold(sum2) << 16U) | fold(sum1);
}

}  // namespace Fiber::Container
