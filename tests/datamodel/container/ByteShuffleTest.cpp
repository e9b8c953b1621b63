// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ByteShuffle.hpp"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace Fiber::Container {
namespace {

using Bytes = std::vector<std::byte>;

Bytes randomBytes(std::size_t size, std::mt19937_64& random) {
  Bytes bytes(size);
  for (std::byte& b : bytes) b = static_cast<std::byte>(random());
  return bytes;
}

/// The definition: plane after plane, left-over bytes behind.
Bytes plainShuffle(const Bytes& in, std::size_t elementSize) {
  const std::size_t count = in.size() / elementSize;
  Bytes out = in;
  for (std::size_t b = 0; b < elementSize; ++b) {
    for (std::size_t i = 0; i < count; ++i) out[b * count + i] = in[i * elementSize + b];
  }
  return out;
}

TEST(ByteShuffle, AgreesWithTheDefinitionForEverySizeAndLength) {
  std::mt19937_64 random(20240601);
  for (const std::size_t elementSize : {1U, 2U, 3U, 4U, 8U, 24U}) {
    for (const std::size_t length : {0U, 1U, 7U, 8U, 63U, 64U, 65U, 127U, 1000U, 4099U}) {
      const Bytes in = randomBytes(length, random);
      Bytes out(length);
      shuffleBytes(in, elementSize, out);
      EXPECT_EQ(out, plainShuffle(in, elementSize)) << elementSize << " " << length;
    }
  }
}

TEST(ByteShuffle, UnshuffleRestoresEverySizeAndLength) {
  std::mt19937_64 random(20240602);
  for (const std::size_t elementSize : {1U, 2U, 3U, 4U, 8U, 24U}) {
    for (const std::size_t length : {0U, 1U, 15U, 16U, 17U, 129U, 1023U, 5003U}) {
      const Bytes in = randomBytes(length, random);
      Bytes shuffled(length);
      Bytes back(length);
      shuffleBytes(in, elementSize, shuffled);
      unshuffleBytes(shuffled, elementSize, back);
      EXPECT_EQ(back, in) << elementSize << " " << length;
    }
  }
}

TEST(ByteShuffle, WorksOnUnalignedMemory) {
  std::mt19937_64 random(20240603);
  const Bytes in = randomBytes(8 * 100 + 3, random);
  const std::span<const std::byte> shifted = std::span(in).subspan(3);
  Bytes shuffled(shifted.size() + 1);
  Bytes back(shifted.size() + 5);
  shuffleBytes(shifted, 8, std::span(shuffled).subspan(1));
  unshuffleBytes(std::span(shuffled).subspan(1), 8, std::span(back).subspan(5));
  EXPECT_TRUE(std::equal(shifted.begin(), shifted.end(), back.begin() + 5));
}

}  // namespace
}  // namespace Fiber::Container
