// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/HuffmanBlock.hpp"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "tests/support/Seed.hpp"

namespace Fiber::Container {
namespace {

using Bytes = std::vector<std::byte>;

isal_hufftables tablesOf(std::span<const std::byte> typical) {
  isal_huff_histogram histogram{};
  countLiterals(typical, histogram);
  isal_hufftables tables{};
  EXPECT_EQ(isal_create_hufftables(&tables, &histogram), 0);
  return tables;
}

/// Hardly anything but zeros, so that the codes of all other bytes are as long as codes can be.
isal_hufftables tablesWithLongCodes() {
  Bytes typical(1 << 20);
  for (std::size_t kind = 1; kind < 18; ++kind) {
    std::fill_n(typical.begin(), (1U << 20U) >> kind, static_cast<std::byte>(kind));
  }
  return tablesOf(typical);
}

/// What ordinary zlib makes of a block with a last, empty one behind it.
Bytes inflated(std::span<const std::byte> block, std::size_t plainSize) {
  Bytes stream(block.begin(), block.end());
  for (const unsigned b : {1U, 0U, 0U, 0xFFU, 0xFFU}) stream.push_back(static_cast<std::byte>(b));
  Bytes plain(plainSize + 1);
  z_stream state{};
  EXPECT_EQ(inflateInit2(&state, -15), Z_OK);
  state.next_in = reinterpret_cast<Bytef*>(stream.data());
  state.avail_in = static_cast<uInt>(stream.size());
  state.next_out = reinterpret_cast<Bytef*>(plain.data());
  state.avail_out = static_cast<uInt>(plain.size());
  EXPECT_EQ(inflate(&state, Z_FINISH), Z_STREAM_END);
  EXPECT_EQ(state.avail_in, 0U);
  plain.resize(state.total_out);
  inflateEnd(&state);
  return plain;
}

Bytes allKinds(std::size_t size, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  Bytes bytes(size);
  for (std::byte& b : bytes) b = static_cast<std::byte>(random());
  return bytes;
}

TEST(HuffmanBlock, LiteralsOfAnyNumberComeBack) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const isal_hufftables longCodes = tablesWithLongCodes();
  for (const std::size_t size : {0U, 1U, 2U, 3U, 4U, 191U, 192U, 193U, 194U, 1000U, 62500U}) {
    const Bytes plain = allKinds(size, seed + size);
    const isal_hufftables own = tablesOf(plain);
    for (const isal_hufftables* tables : {&longCodes, &own}) {
      Bytes out(2 * size + 1000);
      const std::size_t written = writeLiterals(plain, *tables, out);
      ASSERT_NE(written, 0U) << size;
      EXPECT_EQ(inflated(std::span(out).first(written), size), plain) << size;
    }
  }
}

TEST(HuffmanBlock, SomeCodesAreAsLongAsTheyCanBe) {
  const isal_hufftables tables = tablesWithLongCodes();
  EXPECT_GE(*std::max_element(tables.lit_table_sizes, tables.lit_table_sizes + 256), 13);
}

// Whatever room there is: nothing is written beyond it, and what is said to be written is whole.
TEST(HuffmanBlock, NothingIsWrittenBeyondTheRoom) {
  const isal_hufftables longCodes = tablesWithLongCodes();
  const Bytes plain = allKinds(700, 3);
  const isal_hufftables own = tablesOf(plain);
  for (const isal_hufftables* tables : {&longCodes, &own}) {
    bool fits = false;
    for (std::size_t room = 0; room < 2000; ++room) {
      constexpr std::byte kGuard{0xA7};
      Bytes out(room + 64, kGuard);
      const std::size_t written = writeLiterals(plain, *tables, std::span(out).first(room));
      ASSERT_TRUE(std::all_of(out.begin() + static_cast<std::ptrdiff_t>(room), out.end(),
                              [](std::byte b) { return b == kGuard; }))
          << room;
      if (written == 0) continue;
      ASSERT_LE(written, room);
      EXPECT_EQ(inflated(std::span(out).first(written), plain.size()), plain);
      // The first room that will do: no more than what the last bytes could take at most.
      EXPECT_TRUE(fits || room < written + 2 * 192 + 64) << room;
      fits = true;
    }
    EXPECT_TRUE(fits);
  }
}

TEST(HuffmanBlock, CountsEachByteAndOneEnd) {
  const Bytes plain = allKinds(10007, 9);
  isal_huff_histogram histogram{};
  countLiterals(plain, histogram);
  for (unsigned kind = 0; kind < 256; ++kind) {
    EXPECT_EQ(histogram.lit_len_histogram[kind],
              static_cast<std::uint64_t>(
                  std::count(plain.begin(), plain.end(), static_cast<std::byte>(kind))));
  }
  EXPECT_EQ(histogram.lit_len_histogram[256], 1U);
  EXPECT_EQ(std::accumulate(std::begin(histogram.lit_len_histogram),
                            std::end(histogram.lit_len_histogram), std::uint64_t{0}),
            10008U);
}

}  // namespace
}  // namespace Fiber::Container
