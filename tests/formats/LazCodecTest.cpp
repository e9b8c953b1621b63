// SPDX-License-Identifier: Apache-2.0

#include "formats/laz/LazCodec.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>

#include "formats/las/ByteStream.hpp"
#include "tests/formats/LasTestFiles.hpp"
#include "tests/support/Seed.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::testSeed;
using testing::HasSubstr;

/// Bytes of a LASzip record in front of its items; an item is its kind, size and version.
constexpr std::size_t kItemsAt = 34;
constexpr std::size_t kItemBytes = 6;
constexpr std::size_t kItemVersionAt = 4;

LazCodec codecFor(std::uint8_t format, std::uint16_t extraBytes = 0) {
  auto codec = LazCodec::forFormat(format, extraBytes);
  EXPECT_TRUE(codec.ok()) << codec.error();
  return *codec;
}

/// The same compression with another version of all items.
LazCodec withItemVersion(const LazCodec& codec, std::uint16_t version) {
  std::vector<std::byte> record = codec.record();
  for (std::size_t at = kItemsAt; at + kItemBytes <= record.size(); at += kItemBytes) {
    storeValue(record.data() + at + kItemVersionAt, version);
  }
  auto changed = LazCodec::fromRecord(record);
  EXPECT_TRUE(changed.ok()) << changed.error();
  return *changed;
}

/// The encoder of the first item version takes the wrong context for the upper byte of blue, which
/// a right decoder cannot follow; nobody writes that version any more.
void clearUpperBlue(std::uint8_t format, std::size_t recordBytes, std::vector<std::byte>& records) {
  const auto layout = PointLayout::make(format, static_cast<std::uint16_t>(recordBytes), {});
  const PointField* blue = layout->find("Blue");
  if (blue == nullptr || format >= 6) return;
  for (std::size_t at = blue->byteOffset + 1U; at < records.size(); at += recordBytes) {
    records[at] = std::byte{0};
  }
}

void expectRoundTrip(const LazCodec& codec, const std::vector<std::byte>& records) {
  const auto chunk = codec.compress(records);
  ASSERT_TRUE(chunk.ok()) << chunk.error();
  std::vector<std::byte> decoded(records.size());
  const auto done = codec.decompress(*chunk, 0, decoded);
  ASSERT_TRUE(done.ok()) << done.error();
  EXPECT_TRUE(decoded == records);
}

class LazCodecOfFormat : public testing::TestWithParam<int> {
 protected:
  std::uint8_t format() const { return static_cast<std::uint8_t>(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(All, LazCodecOfFormat, testing::Range(0, 11));

TEST_P(LazCodecOfFormat, DecodesWhatWasEncoded) {
  const std::uint64_t seed = testSeed();
  for (const std::uint16_t extraBytes : std::initializer_list<std::uint16_t>{0, 1, 7}) {
    const LazCodec codec = codecFor(format(), extraBytes);
    EXPECT_EQ(codec.recordBytes(), standardRecordBytes(format()) + extraBytes);
    for (const std::size_t count : {1U, 2U, 5000U}) {
      expectRoundTrip(codec, surveyRecords(format(), extraBytes, count, seed + count));
    }
  }
}

TEST_P(LazCodecOfFormat, DecodesTheOtherItemVersion) {
  const std::uint16_t other = format() >= 6 ? 4 : 1;
  const LazCodec codec = withItemVersion(codecFor(format(), 3), other);
  std::vector<std::byte> records = surveyRecords(format(), 3, 5000, testSeed());
  clearUpperBlue(format(), codec.recordBytes(), records);
  expectRoundTrip(codec, records);
}

TEST_P(LazCodecOfFormat, LeavesOutTheFirstRecords) {
  const LazCodec codec = codecFor(format());
  const std::vector<std::byte> records = surveyRecords(format(), 0, 300, testSeed());
  const auto chunk = codec.compress(records);
  ASSERT_TRUE(chunk.ok());
  std::vector<std::byte> decoded(20 * codec.recordBytes());
  ASSERT_TRUE(codec.decompress(*chunk, 117, decoded).ok());
  EXPECT_TRUE(std::equal(decoded.begin(), decoded.end(),
                         records.begin() + static_cast<std::ptrdiff_t>(117 * codec.recordBytes())));
}

// Cutting a chunk anywhere gives a text; the last bytes of the coder may not matter.
TEST_P(LazCodecOfFormat, RefusesChunkCutOff) {
  const LazCodec codec = codecFor(format(), 2);
  const std::vector<std::byte> records = surveyRecords(format(), 2, 40, testSeed());
  const auto chunk = codec.compress(records);
  ASSERT_TRUE(chunk.ok());
  std::vector<std::byte> decoded(records.size());
  for (std::size_t length = 0; length + 8 < chunk->size(); ++length) {
    const auto done = codec.decompress(std::span(*chunk).first(length), 0, decoded);
    EXPECT_FALSE(done.ok()) << length;
  }
}

// All bits set makes the coder choose its last symbol for ever: among others, a time stamp that
// switches its sequence without end.
TEST_P(LazCodecOfFormat, EndsOnBytesThatNeverEndASymbol) {
  const LazCodec codec = codecFor(format());
  const bool isLayered = format() >= 6;
  constexpr std::uint32_t kLayerBytes = 100000;
  ByteWriter chunk;
  chunk.putBytes(std::vector<std::byte>(codec.recordBytes()));
  const std::size_t layers = std::array{0U, 0U, 0U, 0U, 0U, 0U, 9U, 10U, 11U, 10U, 12U}[format()];
  if (isLayered) chunk.put(std::uint32_t{1000});
  for (std::size_t layer = 0; layer < layers; ++layer) chunk.put(kLayerBytes);
  chunk.putBytes(
      std::vector<std::byte>(kLayerBytes * std::max<std::size_t>(layers, 1), std::byte{0xFF}));
  std::vector<std::byte> decoded(1000 * codec.recordBytes());
  const auto done = codec.decompress(chunk.finish(), 0, decoded);
  const bool hasTimes = format() != 0 && format() != 2;
  EXPECT_TRUE(!done.ok() || !isLayered || !hasTimes);
}

TEST_P(LazCodecOfFormat, SurvivesAnyBytes) {
  std::mt19937_64 random(testSeed());
  const LazCodec codec = codecFor(format(), 2);
  const std::vector<std::byte> records = surveyRecords(format(), 2, 200, random());
  const auto chunk = codec.compress(records);
  ASSERT_TRUE(chunk.ok());
  std::vector<std::byte> decoded(records.size());
  std::size_t refused = 0;
  for (int round = 0; round < 300; ++round) {
    std::vector<std::byte> damaged = *chunk;
    for (int change = 0; change < 4; ++change) {
      damaged[random() % damaged.size()] = static_cast<std::byte>(random());
    }
    if (!codec.decompress(damaged, 0, decoded).ok()) ++refused;
  }
  EXPECT_LE(refused, 300U);
}

// The second packet of each pair differs from the first in one sign alone.
TEST(LazCodec, KeepsTheSignOfEveryZeroInWaveformPackets) {
  constexpr std::size_t kNumbers = 4;
  for (const std::uint8_t format : {std::uint8_t{9}, std::uint8_t{10}}) {
    const LazCodec codec = codecFor(format);
    for (std::size_t number = 0; number < kNumbers; ++number) {
      std::vector<std::byte> records(2 * codec.recordBytes());
      storeValue(records.data() + records.size() - (number + 1) * sizeof(float), -0.0F);
      expectRoundTrip(codec, records);
      expectRoundTrip(withItemVersion(codec, 4), records);
    }
  }
}

// The records with which a random test first met a lost sign.
TEST(LazCodec, KeepsTheSignOfZeroThatARandomTestMet) {
  for (const std::uint8_t format : {std::uint8_t{9}, std::uint8_t{10}}) {
    expectRoundTrip(codecFor(format, 1), surveyRecords(format, 1, 2, 1716906722));
  }
}

TEST(LazCodec, RefusesLayersLargerThanTheChunk) {
  const LazCodec codec = codecFor(6);
  const std::vector<std::byte> records = surveyRecords(6, 0, 100, 1);
  auto chunk = codec.compress(records);
  ASSERT_TRUE(chunk.ok());
  storeValue(chunk->data() + codec.recordBytes() + 4, std::uint32_t{0xFFFFFFF0});
  std::vector<std::byte> decoded(records.size());
  const auto done = codec.decompress(*chunk, 0, decoded);
  ASSERT_FALSE(done.ok());
  EXPECT_THAT(done.error(), HasSubstr("compressed layers cut off"));
}

TEST(LazCodec, RefusesMorePointsThanTheChunkHolds) {
  const LazCodec codec = codecFor(7);
  const auto chunk = codec.compress(surveyRecords(7, 0, 100, 1));
  ASSERT_TRUE(chunk.ok());
  std::vector<std::byte> decoded(101 * codec.recordBytes());
  const auto done = codec.decompress(*chunk, 0, decoded);
  ASSERT_FALSE(done.ok());
  EXPECT_THAT(done.error(), HasSubstr("found 100, expected 101"));
}

TEST(LazCodec, RefusesPartOfARecord) {
  const LazCodec codec = codecFor(1);
  EXPECT_FALSE(codec.compress(std::vector<std::byte>(27)).ok());
  EXPECT_FALSE(codec.compress({}).ok());
  std::vector<std::byte> decoded(27);
  EXPECT_FALSE(codec.decompress(std::vector<std::byte>(100), 0, decoded).ok());
}

TEST(LazCodec, RefusesRecordItCannotDecode) {
  const std::vector<std::byte> good = codecFor(3, 2).record();
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_FALSE(LazCodec::fromRecord(std::span(good).first(length)).ok()) << length;
  }
  struct Damage {
    std::size_t at;
    std::uint16_t value;
    const char* text;
  };
  for (const Damage& damage :
       {Damage{0, 0, "scheme"}, Damage{0, 3, "not in scheme"}, Damage{32, 0, "number of items"},
        Damage{32, 900, "number of items"}, Damage{kItemsAt, 77, "77"}, Damage{kItemsAt, 7, "size"},
        Damage{kItemsAt + 2, 21, "size"}, Damage{kItemsAt + 4, 3, "version"},
        Damage{kItemsAt + 3 * kItemBytes + 2, 0, "size"},
        Damage{kItemsAt + 3 * kItemBytes + 2, 60000, "size"}}) {
    std::vector<std::byte> record = good;
    storeValue(record.data() + damage.at, damage.value);
    const auto codec = LazCodec::fromRecord(record);
    ASSERT_FALSE(codec.ok()) << damage.at;
    EXPECT_THAT(codec.error(), HasSubstr(damage.text));
  }
}

TEST(LazCodec, ReadsTheChunkTableItWrote) {
  const std::vector<LazChunk> chunks{{50000, 4000000000}, {1, 20}, {70000, 3}, {0, 0}, {5, 99}};
  for (const std::uint32_t chunkPoints : {50000U, LAZ_VARIABLE_CHUNKS}) {
    const auto codec = LazCodec::forFormat(6, 0, chunkPoints);
    ASSERT_TRUE(codec.ok());
    const auto table = codec->writeChunkTable(chunks);
    ASSERT_TRUE(table.ok()) << table.error();
    const auto read = codec->readChunkTable(*table, chunks.size());
    ASSERT_TRUE(read.ok()) << read.error();
    for (std::size_t index = 0; index < chunks.size(); ++index) {
      EXPECT_EQ((*read)[index].byte_count, chunks[index].byte_count);
      EXPECT_EQ((*read)[index].point_count,
                codec->hasVariableChunks() ? chunks[index].point_count : 0);
    }
    EXPECT_FALSE(codec->readChunkTable(*table, chunks.size() + 1).ok());
    EXPECT_FALSE(codec->readChunkTable(std::span(*table).first(10), chunks.size()).ok());
  }
}

TEST(LazCodec, DecodesInManyThreadsAtOnce) {
  const LazCodec codec = codecFor(8);
  const std::vector<std::byte> records = surveyRecords(8, 0, 2000, 5);
  const auto chunk = codec.compress(records);
  ASSERT_TRUE(chunk.ok());
  std::array<bool, 4> isRight{};
  std::vector<std::thread> threads;
  for (bool& right : isRight) {
    threads.emplace_back([&] {
      std::vector<std::byte> decoded(records.size());
      right = codec.decompress(*chunk, 0, decoded).ok() && decoded == records;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(isRight, testing::Each(true));
}

}  // namespace
}  // namespace Formats
