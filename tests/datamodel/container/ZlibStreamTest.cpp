// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ZlibStream.hpp"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>

namespace Fiber::Container {
namespace {

using Bytes = std::vector<std::byte>;

/// Bytes of which `variety` different values occur: 1 is a constant, 256 is noise.
Bytes sampleBytes(std::size_t size, unsigned variety, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  Bytes bytes(size);
  for (std::byte& b : bytes) b = static_cast<std::byte>(random() % variety);
  return bytes;
}

Bytes compressed(ZlibCompressor& compressor, const Bytes& plain) {
  const auto stream = compressor.compress(plain);
  if (!stream.ok()) {
    ADD_FAILURE() << stream.error();
    return {};
  }
  return Bytes(stream->begin(), stream->end());
}

TEST(ZlibStream, OrdinaryZlibReadsEveryStream) {
  ZlibCompressor compressor;
  for (const std::size_t size : {0U, 1U, 100U, 65536U, 262144U, 1000003U}) {
    for (const unsigned variety : {1U, 3U, 40U, 256U}) {
      const Bytes plain = sampleBytes(size, variety, size + variety);
      const Bytes stream = compressed(compressor, plain);
      Bytes back(size + 1);
      uLongf backSize = back.size();
      ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(back.data()), &backSize,
                           reinterpret_cast<const Bytef*>(stream.data()), stream.size()),
                Z_OK)
          << size << " " << variety;
      back.resize(backSize);
      EXPECT_EQ(back, plain);
    }
  }
}

TEST(ZlibStream, ExpandsItsOwnAndOrdinaryStreams) {
  ZlibCompressor compressor;
  ZlibExpander expander;
  const Bytes plain = sampleBytes(300000, 17, 5);
  Bytes back(plain.size());
  ASSERT_TRUE(expander.expand(compressed(compressor, plain), back).ok());
  EXPECT_EQ(back, plain);

  Bytes ordinary(compressBound(plain.size()));
  uLongf size = ordinary.size();
  ASSERT_EQ(compress2(reinterpret_cast<Bytef*>(ordinary.data()), &size,
                      reinterpret_cast<const Bytef*>(plain.data()), plain.size(), 9),
            Z_OK);
  ordinary.resize(size);
  back.assign(plain.size(), std::byte{0});
  ASSERT_TRUE(expander.expand(ordinary, back).ok());
  EXPECT_EQ(back, plain);
}

TEST(ZlibStream, SameInputGivesSameBytesWhateverCameBefore) {
  ZlibCompressor used;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    const Bytes plain = sampleBytes(1000 + seed * 7919, 2 + static_cast<unsigned>(seed) * 6, seed);
    ZlibCompressor fresh;
    EXPECT_EQ(compressed(used, plain), compressed(fresh, plain)) << "seed " << seed;
  }
}

/// A library's state that lies elsewhere in memory may not choose other matches.
TEST(ZlibStream, SameInputGivesSameBytesWhereverTheCompressorLies) {
  // Runs of ones and zeros of falling length: there is more than one good choice of matches.
  Bytes plain;
  for (const std::size_t run : {4U, 4U, 3U, 3U, 3U, 3U, 3U, 3U, 3U, 3U, 2U, 2U, 2U, 2U, 1U, 1U}) {
    const std::byte value =
        plain.empty() || plain.back() == std::byte{0} ? std::byte{1} : std::byte{0};
    plain.insert(plain.end(), run, value);
  }
  std::vector<ZlibCompressor> compressors(400);
  const Bytes expected = compressed(compressors.front(), plain);
  for (ZlibCompressor& compressor : compressors) {
    ASSERT_EQ(compressed(compressor, plain), expected);
  }
}

TEST(ZlibStream, WrongLengthsAreTexts) {
  ZlibCompressor compressor;
  ZlibExpander expander;
  const Bytes stream = compressed(compressor, sampleBytes(1000, 9, 1));
  Bytes tooSmall(999);
  EXPECT_EQ(expander.expand(stream, tooSmall).error(),
            "inflate: the stream holds too many bytes, expected 999");
  Bytes tooLarge(1001);
  EXPECT_EQ(expander.expand(stream, tooLarge).error(),
            "inflate: the stream holds too few bytes, found 1000, expected 1001");
}

TEST(ZlibStream, DamagedStreamsNeverOverrunAndTruncatedOnesAreRefused) {
  ZlibCompressor compressor;
  ZlibExpander expander;
  const Bytes plain = sampleBytes(4000, 9, 2);
  const Bytes good = compressed(compressor, plain);
  std::mt19937_64 random(3);
  int refused = 0;
  constexpr int kRounds = 2000;
  for (int round = 0; round < kRounds; ++round) {
    Bytes bad = good;
    bad[random() % bad.size()] ^= static_cast<std::byte>(1U << (random() % 8));
    Bytes back(plain.size());
    refused += expander.expand(bad, back).ok() ? 0 : 1;
  }
  // Adler-32 misses a few; the chunk's own checksum is there for those.
  EXPECT_GT(refused, kRounds * 99 / 100);
  for (std::size_t length = 0; length < good.size(); length += 7) {
    Bytes back(plain.size());
    EXPECT_FALSE(expander.expand(std::span(good).first(length), back).ok()) << length;
  }
}

}  // namespace
}  // namespace Fiber::Container
