// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/ChunkArrayBytes.hpp"

#include <gtest/gtest.h>

#include <random>

namespace Fiber::Container {
namespace {

constexpr std::uint64_t kStart = 1000;
constexpr std::uint64_t kChunkBytes = 65536;

std::vector<ChunkPlace> someChunks(std::size_t count) {
  std::mt19937_64 random(count);
  std::vector<ChunkPlace> chunks(count);
  for (ChunkPlace& chunk : chunks) {
    chunk = {random(), static_cast<std::uint32_t>(random() % kChunkBytes),
             static_cast<std::uint32_t>(random() % 2)};
  }
  return chunks;
}

/// An array in memory, as it lies in a file from kStart on.
struct StoredArray {
  explicit StoredArray(const std::vector<ChunkPlace>& chunks) {
    ByteSink sink;
    address = encodeChunkArray(sink, kStart, chunks, kChunkBytes);
    bytes = sink.take();
  }
  std::vector<std::byte> read(std::uint64_t from, std::uint64_t count) const {
    if (from < kStart || from - kStart > bytes.size() || count > bytes.size() - (from - kStart)) {
      return {};
    }
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(from - kStart);
    return {first, first + static_cast<std::ptrdiff_t>(count)};
  }
  auto decode(std::uint64_t count) const {
    return decodeChunkArray(
        [this](std::uint64_t from, std::uint64_t byteCount) { return read(from, byteCount); },
        address, count, kChunkBytes);
  }

  std::uint64_t address = 0;
  std::vector<std::byte> bytes;
};

// Beyond 1024 chunks the array has pages, beyond 8 pages a second byte of their bitmap.
TEST(ChunkArrayBytes, EveryNumberOfChunksReturns) {
  for (const std::size_t count :
       {2U, 3U, 1023U, 1024U, 1025U, 2048U, 2049U, 8192U, 8193U, 20000U}) {
    const auto chunks = someChunks(count);
    const auto back = StoredArray(chunks).decode(count);
    ASSERT_TRUE(back.has_value()) << count;
    EXPECT_EQ(*back, chunks) << count;
  }
}

TEST(ChunkArrayBytes, AnotherNumberOfChunksIsRefused) {
  const StoredArray stored(someChunks(1500));
  EXPECT_FALSE(stored.decode(1499).has_value());
  EXPECT_FALSE(stored.decode(1501).has_value());
  EXPECT_FALSE(stored.decode(3).has_value());
}

TEST(ChunkArrayBytes, EveryFlippedBitIsNoticed) {
  for (const std::size_t count : {2U, 1030U}) {
    StoredArray stored(someChunks(count));
    std::mt19937_64 random(7);
    for (int round = 0; round < 500; ++round) {
      const std::size_t at = random() % stored.bytes.size();
      const auto bit = static_cast<std::byte>(1U << (random() % 8));
      stored.bytes[at] ^= bit;
      EXPECT_FALSE(stored.decode(count).has_value()) << "byte " << at << " of " << count;
      stored.bytes[at] ^= bit;
    }
  }
}

}  // namespace
}  // namespace Fiber::Container
