// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ChunkCodec.hpp"

#include <gtest/gtest.h>

#include <random>

namespace Fiber::Container {
namespace {

using Bytes = std::vector<std::byte>;

/// Every combination of the three filters.
std::vector<ChunkFilter> allFilters() {
  std::vector<ChunkFilter> filters;
  for (unsigned bits = 0; bits < 8; ++bits) {
    filters.push_back({(bits & 1U) != 0, (bits & 2U) != 0, (bits & 4U) != 0});
  }
  return filters;
}

/// A slowly rising sequence of 32-bit numbers, or noise.
Bytes numbers(std::size_t count, bool noise, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<std::uint32_t> values(count);
  std::uint32_t value = 1000000;
  for (std::uint32_t& v : values) {
    value += static_cast<std::uint32_t>(random() % 30);
    v = noise ? static_cast<std::uint32_t>(random()) : value;
  }
  const auto bytes = std::as_bytes(std::span(values));
  return Bytes(bytes.begin(), bytes.end());
}

TEST(ChunkCodec, RoundTripsEveryFilterAndElementSize) {
  ChunkEncoder encoder;
  ChunkDecoder decoder;
  for (const bool noise : {false, true}) {
    for (const ChunkFilter filter : allFilters()) {
      for (const std::size_t elementSize : {1U, 2U, 4U, 8U, 24U}) {
        const Bytes plain = numbers(5003, noise, elementSize);
        const auto chunk = encoder.encode(plain, elementSize, filter);
        ASSERT_TRUE(chunk.ok()) << chunk.error();
        Bytes back(plain.size());
        const auto done = decoder.decode({chunk->bytes, 0}, elementSize, filter, back);
        ASSERT_TRUE(done.ok()) << done.error();
        EXPECT_EQ(back, plain);
      }
    }
  }
}

TEST(ChunkCodec, ChunkOverwrittenWithZerosIsNoticedWhateverItHeld) {
  ChunkEncoder encoder;
  ChunkDecoder decoder;
  for (const std::size_t count : {1U, 5U, 4096U}) {
    const Bytes noise = numbers(count, true, 7);
    const auto chunk = encoder.encode(noise, 4, {true, true, true});
    ASSERT_TRUE(chunk.ok());
    Bytes back(noise.size());
    ASSERT_TRUE(decoder.decode({chunk->bytes, 0}, 4, {true, true, true}, back).ok());
    EXPECT_EQ(back, noise);
    const Bytes zeros(chunk->bytes.size());
    EXPECT_FALSE(decoder.decode({zeros, 0}, 4, {true, true, true}, back).ok()) << count;
  }
}

TEST(ChunkCodec, FiltersThatAnotherWriterSkippedAreNotUndone) {
  ChunkDecoder decoder;
  const Bytes noise = numbers(4096, true, 7);
  Bytes back(noise.size());
  ASSERT_TRUE(decoder.decode({noise, 3U}, 4, {true, true}, back).ok());
  EXPECT_EQ(back, noise);
}

TEST(ChunkCodec, ShuffleHelpsSlowlyChangingNumbers) {
  ChunkEncoder encoder;
  const Bytes rising = numbers(65536, false, 8);
  const auto with = encoder.encode(rising, 4, {true, true});
  const auto without = encoder.encode(rising, 4, {false, true});
  ASSERT_TRUE(with.ok() && without.ok());
  EXPECT_LT(with->bytes.size() * 3, rising.size());
  EXPECT_LT(with->bytes.size(), without->bytes.size());
}

TEST(ChunkCodec, ChecksumNoticesEverySingleFlippedBit) {
  ChunkEncoder encoder;
  ChunkDecoder decoder;
  const Bytes plain = numbers(500, false, 9);
  const ChunkFilter filter{true, true, true};
  auto chunk = encoder.encode(plain, 4, filter);
  ASSERT_TRUE(chunk.ok());
  Bytes back(plain.size());
  for (std::size_t bit = 0; bit < 8 * chunk->bytes.size(); ++bit) {
    const std::byte mask = static_cast<std::byte>(1U << (bit % 8));
    chunk->bytes[bit / 8] ^= mask;
    EXPECT_FALSE(decoder.decode({chunk->bytes, 0}, 4, filter, back).ok()) << bit;
    chunk->bytes[bit / 8] ^= mask;
  }
}

TEST(ChunkCodec, WrongLengthOfAStoredChunkIsAText) {
  ChunkDecoder decoder;
  const Bytes stored(100);
  Bytes out(101);
  EXPECT_EQ(decoder.decode({stored, 0}, 4, {false, false}, out).error(),
            "chunk: wrong length, found 100 bytes, expected 101");
  EXPECT_EQ(decoder.decode({stored, 3}, 4, {true, true}, out).error(),
            "chunk: wrong length, found 100 bytes, expected 101");
  EXPECT_FALSE(decoder.decode({stored, 0}, 4, {true, true}, out).ok());
  EXPECT_EQ(decoder.decode({std::span(stored).first(3), 0}, 4, {false, false, true}, out).error(),
            "chunk: no room for its checksum, found 3 bytes");
}

}  // namespace
}  // namespace Fiber::Container
