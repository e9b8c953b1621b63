// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ZlibStream.hpp"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <random>

#include "tests/support/Seed.hpp"

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

Bytes compressed(ZlibCompressor& compressor, const Bytes& plain,
                 std::size_t sectionBytes = 1000000) {
  const auto stream = compressor.compress(plain, sectionBytes);
  if (!stream.ok()) {
    ADD_FAILURE() << stream.error();
    return {};
  }
  return Bytes(stream->begin(), stream->end());
}

/// Whether zlib itself makes `plain` of a stream.
testing::AssertionResult ordinaryZlibReads(std::span<const std::byte> stream, const Bytes& plain) {
  Bytes back(plain.size() + 1);
  uLongf backSize = back.size();
  const int status = uncompress(reinterpret_cast<Bytef*>(back.data()), &backSize,
                                reinterpret_cast<const Bytef*>(stream.data()), stream.size());
  if (status != Z_OK) return testing::AssertionFailure() << "status " << status;
  back.resize(backSize);
  if (back != plain) return testing::AssertionFailure() << "other bytes";
  return testing::AssertionSuccess();
}

TEST(ZlibStream, OrdinaryZlibReadsEveryStream) {
  ZlibCompressor compressor;
  for (const std::size_t size : {0U, 1U, 100U, 65536U, 262144U, 1000003U}) {
    for (const unsigned variety : {1U, 3U, 40U, 256U}) {
      const Bytes plain = sampleBytes(size, variety, size + variety);
      EXPECT_TRUE(ordinaryZlibReads(compressed(compressor, plain), plain))
          << size << " " << variety;
    }
  }
}

/// What the planes of shuffled numbers may look like.
Bytes sectionBytes(std::size_t size, std::mt19937_64& random) {
  switch (random() % 4) {
    case 0:
      return sampleBytes(size, 1, 0);
    case 1:
      return sampleBytes(size, 256, random());
    case 2:
      return sampleBytes(size, 2 + static_cast<unsigned>(random() % 30), random());
    default:
      break;
  }
  Bytes runs;
  while (runs.size() < size) runs.insert(runs.end(), 1 + random() % 9000, std::byte(random()));
  runs.resize(size);
  return runs;
}

/// Some sections of a length, the last of which may be shorter.
Bytes manySections(std::size_t length, std::mt19937_64& random) {
  Bytes plain;
  for (std::uint64_t sections = 1 + random() % 8; sections > 0; --sections) {
    const Bytes section = sectionBytes(length, random);
    plain.insert(plain.end(), section.begin(), section.end());
  }
  plain.resize(plain.size() - random() % length);
  return plain;
}

TEST(ZlibStream, OrdinaryZlibReadsSectionsOfAllKinds) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  std::mt19937_64 random(seed);
  ZlibCompressor compressor;
  for (int round = 0; round < 200; ++round) {
    const std::size_t length = 1 + random() % 70000;
    const Bytes plain = manySections(length, random);
    const auto stream = compressor.compress(plain, length);
    ASSERT_TRUE(stream.ok()) << stream.error();
    ASSERT_TRUE(ordinaryZlibReads(*stream, plain)) << "seed " << seed << ", round " << round;
  }
}

TEST(ZlibStream, StreamsWithCodesOfTheOneBeforeAreOrdinaryAndAlwaysTheSame) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  std::mt19937_64 random(seed);
  ZlibCompressor used;
  for (int round = 0; round < 50; ++round) {
    ZlibCompressor fresh;
    std::size_t length = 1 + random() % 70000;
    StreamCodes codes = StreamCodes::kOwn;
    for (int stream = 0; stream < 4; ++stream) {
      const Bytes plain = manySections(length, random);
      const auto one = used.compress(plain, length, codes);
      const auto other = fresh.compress(plain, length, codes);
      ASSERT_TRUE(one.ok() && other.ok());
      ASSERT_TRUE(ordinaryZlibReads(*one, plain)) << "seed " << seed << ", round " << round;
      ASSERT_TRUE(std::ranges::equal(*one, *other)) << "seed " << seed << ", round " << round;
      codes = StreamCodes::kLikeBefore;
      if (random() % 4 == 0) length = 1 + random() % 70000;
    }
  }
}

/// Half of the bytes are of one kind, a quarter of the next, and so on; none tells the next one.
Bytes skewedBytes(std::size_t size, unsigned kinds, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  Bytes bytes(size);
  for (std::byte& b : bytes) {
    unsigned kind = 0;
    while (kind + 1 < kinds && random() % 2 == 0) ++kind;
    b = static_cast<std::byte>(kind * 37);
  }
  return bytes;
}

// Codes for each byte alone are taken then, which come close to what the frequencies allow.
TEST(ZlibStream, BytesThatDoNotRepeatEachOtherTakeWhatTheirFrequenciesSay) {
  constexpr std::size_t kSection = 62500;
  constexpr double kBitsPerByte = 2.0;  // one half takes one bit, a quarter two, ...
  ZlibCompressor compressor;
  for (const std::size_t length : {std::size_t{4096}, kSection, kSection + 1, kSection + 2}) {
    const Bytes plain = skewedBytes(4 * length, 20, length);
    const auto stream = compressor.compress(plain, length);
    ASSERT_TRUE(stream.ok()) << stream.error();
    EXPECT_TRUE(ordinaryZlibReads(*stream, plain)) << length;
    // Codes take some room themselves.
    const double codes = 4 * 200.0;
    EXPECT_LT(static_cast<double>(stream->size()),
              1.03 * kBitsPerByte / 8 * static_cast<double>(plain.size()) + codes);
  }
}

/// Few kinds of bytes wherever a sample is likely to look, all kinds elsewhere: codes made from the
/// sample are long for those, up to 15 bits.
TEST(ZlibStream, BytesThatASampleHasNotSeenCostNoMoreThanThemselves) {
  constexpr std::size_t kSection = 65536;
  Bytes plain = sampleBytes(4 * kSection, 256, 11);
  const Bytes likely = skewedBytes(2048, 20, 12);
  for (std::size_t at = 0; at < plain.size(); at += 16384) {
    std::copy(likely.begin(), likely.end(), plain.begin() + static_cast<std::ptrdiff_t>(at));
  }
  ZlibCompressor compressor;
  const auto stream = compressor.compress(plain, kSection);
  ASSERT_TRUE(stream.ok()) << stream.error();
  EXPECT_LT(stream->size(), plain.size() + plain.size() / 1000);
  EXPECT_TRUE(ordinaryZlibReads(*stream, plain));
}

TEST(ZlibStream, NoiseBesideAConstantCostsNoMoreThanTheNoise) {
  constexpr std::size_t kSection = 65536;
  Bytes plain = sampleBytes(kSection, 256, 1);
  plain.resize(4 * kSection);
  ZlibCompressor compressor;
  const auto stream = compressor.compress(plain, kSection);
  ASSERT_TRUE(stream.ok()) << stream.error();
  EXPECT_LT(stream->size(), kSection + kSection / 20);
}

/// Constant wherever a sample is likely to look, noise elsewhere.
TEST(ZlibStream, MisleadingSectionsCostNoMoreThanTheirBytes) {
  constexpr std::size_t kSection = 131072;
  Bytes plain = sampleBytes(8 * kSection, 256, 7);
  for (std::size_t at = 0; at < plain.size(); at += 16384) {
    std::fill_n(plain.begin() + static_cast<std::ptrdiff_t>(at), 2048, std::byte{1});
  }
  ZlibCompressor compressor;
  for (const std::size_t section : {kSection, 4 * kSection, plain.size()}) {
    const auto stream = compressor.compress(plain, section);
    ASSERT_TRUE(stream.ok()) << stream.error();
    EXPECT_LT(stream->size(), plain.size() + plain.size() / 1000);
    EXPECT_TRUE(ordinaryZlibReads(*stream, plain)) << section;
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
    const std::size_t section = plain.size() / (1 + seed % 5);
    EXPECT_EQ(compressed(used, plain, section), compressed(fresh, plain, section))
        << "seed " << seed;
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
