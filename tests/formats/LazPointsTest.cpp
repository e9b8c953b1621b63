// SPDX-License-Identifier: Apache-2.0

#include "formats/laz/LazPoints.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "formats/las/ByteStream.hpp"
#include "formats/las/LasFile.hpp"
#include "formats/laz/LazCodec.hpp"
#include "tests/formats/LasTestFiles.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::TempDir;
using testing::HasSubstr;

/// A LAZ file put together in memory, so that each of its parts can lie.
struct MadeUpFile {
  std::uint8_t pointFormat = 3;
  std::vector<std::size_t> chunkPoints{100, 100, 100, 30};
  std::uint32_t claimedChunkPoints = 100;
  std::vector<LazChunk> claimedChunks;  ///< Empty = the true table.
  std::uint64_t claimedPoints = 0;      ///< 0 = the true number.
  std::int64_t claimedTable = 0;        ///< 0 = the true place.
  bool hasTableAtEnd = false;           ///< The place of the table stands at the end of the file.

  std::vector<std::byte> records() const {
    std::size_t count = 0;
    for (const std::size_t points : chunkPoints) count += points;
    return surveyRecords(pointFormat, 0, count, 3);
  }

  std::vector<std::byte> bytes() const;
};

std::vector<std::byte> MadeUpFile::bytes() const {
  const LazCodec codec = *LazCodec::forFormat(pointFormat, 0, claimedChunkPoints);
  const std::vector<std::byte> all = records();
  LasHeader header;
  header.pointFormat = pointFormat;
  header.recordBytes = standardRecordBytes(pointFormat);
  header.isCompressed = true;
  header.variableRecordCount = 1;
  header.pointCount = claimedPoints != 0 ? claimedPoints : all.size() / header.recordBytes;
  header.pointDataOffset =
      static_cast<std::uint32_t>(kLas14HeaderBytes + kVlrHeaderBytes + codec.record().size());
  ByteWriter writer;
  writer.putBytes(serialiseLasHeader(header));
  writer.put(std::uint16_t{0});
  writer.putText(kLaszipUserId, 16);
  writer.put(kLaszipRecordId);
  writer.put(static_cast<std::uint16_t>(codec.record().size()));
  writer.putText("", 32);
  writer.putBytes(codec.record());

  std::vector<LazChunk> chunks;
  ByteWriter data;
  std::span<const std::byte> rest = all;
  for (const std::size_t points : chunkPoints) {
    const auto chunk = codec.compress(rest.first(points * header.recordBytes));
    rest = rest.subspan(points * header.recordBytes);
    chunks.push_back({points, chunk->size()});
    data.putBytes(*chunk);
  }
  const auto table = static_cast<std::int64_t>(writer.size() + sizeof(std::int64_t) + data.size());
  const std::int64_t told = claimedTable != 0 ? claimedTable : table;
  writer.put(hasTableAtEnd ? std::int64_t{-1} : told);
  writer.putBytes(data.finish());
  writer.putBytes(*codec.writeChunkTable(claimedChunks.empty() ? chunks : claimedChunks));
  if (hasTableAtEnd) writer.put(told);
  return writer.finish();
}

std::shared_ptr<LasFile> opened(const TempDir& folder, const MadeUpFile& made) {
  const std::string path = folder / "x.laz";
  writeFile(path, made.bytes());
  const auto file = LasFile::open(path);
  EXPECT_TRUE(file.ok()) << file.error();
  return file ? *file : nullptr;
}

std::string errorOf(const MadeUpFile& made) {
  const TempDir folder;
  const std::string path = folder / "x.laz";
  writeFile(path, made.bytes());
  const auto file = LasFile::open(path);
  EXPECT_FALSE(file.ok());
  return file ? std::string() : file.error();
}

class LazPointsOfFormat : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(All, LazPointsOfFormat, testing::Range(0, 11));

TEST_P(LazPointsOfFormat, ReadsChunksOfFixedLength) {
  const TempDir folder;
  MadeUpFile made;
  made.pointFormat = static_cast<std::uint8_t>(GetParam());
  const auto file = opened(folder, made);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->storage(), PointStorage::Chunked);
  EXPECT_EQ(file->runs().size(), 4U);
  EXPECT_EQ(file->runs().back().pointCount, 30U);
  EXPECT_TRUE(readAllRecords(*file) == made.records());
}

TEST_P(LazPointsOfFormat, ReadsChunksOfVaryingLength) {
  const TempDir folder;
  MadeUpFile made;
  made.pointFormat = static_cast<std::uint8_t>(GetParam());
  made.chunkPoints = {1, 700, 3, 50};
  made.claimedChunkPoints = LAZ_VARIABLE_CHUNKS;
  const auto file = opened(folder, made);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->runs()[1].pointCount, 700U);
  EXPECT_TRUE(readAllRecords(*file) == made.records());
}

TEST(LazPoints, DecodesOnlyTheChunksOfTheRange) {
  const TempDir folder;
  const auto file = opened(folder, MadeUpFile());
  ASSERT_NE(file, nullptr);
  std::vector<std::byte> records(150 * file->recordBytes());
  ASSERT_TRUE(file->readRecords(100, 100, std::span(records).first(100 * 34)).ok());
  EXPECT_EQ(file->decodedChunks(), 1U);
  ASSERT_TRUE(file->readRecords(99, 150, records).ok());
  EXPECT_EQ(file->decodedChunks(), 4U);
}

TEST(LazPoints, FindsTheTableFromTheEndOfTheFile) {
  const TempDir folder;
  MadeUpFile made;
  made.hasTableAtEnd = true;
  const auto file = opened(folder, made);
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(readAllRecords(*file) == made.records());
}

TEST(LazPoints, RefusesTableThatIsNotThere) {
  for (const std::int64_t place : {std::int64_t{1}, std::int64_t{500}, std::int64_t{1} << 40,
                                   std::numeric_limits<std::int64_t>::max()}) {
    MadeUpFile made;
    made.claimedTable = place;
    EXPECT_THAT(errorOf(made), HasSubstr("chunk table")) << place;
  }
}

TEST(LazPoints, RefusesTableThatLiesAboutBytes) {
  MadeUpFile made;
  made.claimedChunks = {{100, 50}, {100, 4000000000}, {100, 50}, {30, 50}};
  EXPECT_THAT(errorOf(made), HasSubstr("chunk at point 100: reaches into the chunk table"));
  made.claimedChunks = {{100, 33}, {100, 50}, {100, 50}, {30, 50}};
  EXPECT_THAT(errorOf(made), HasSubstr("too short for 100 points, found 33 bytes"));
  made.claimedChunks.resize(3, {100, 50});
  made.claimedChunks[0].byte_count = 50;
  EXPECT_THAT(errorOf(made), HasSubstr("points missing, found 300, expected 330"));
}

TEST(LazPoints, RefusesTableThatLiesAboutPoints) {
  MadeUpFile made;
  made.claimedChunkPoints = LAZ_VARIABLE_CHUNKS;
  made.chunkPoints = {100, 10};
  made.claimedChunks = {{4000000000, 200}, {1, 50}};
  made.claimedPoints = 4000000001;
  EXPECT_THAT(errorOf(made), HasSubstr("too short for 4000000000 points, found 200 bytes"));
}

TEST(LazPoints, RefusesMorePointsThanChunks) {
  MadeUpFile made;
  made.claimedPoints = 401;
  EXPECT_THAT(errorOf(made), HasSubstr("points missing, found 400, expected 401"));
}

TEST(LazPoints, SaysWhichPointsAreDamaged) {
  const TempDir folder;
  MadeUpFile made;
  made.chunkPoints = {100, 100};
  made.claimedPoints = 300;
  made.claimedChunks = {{100, 1400}, {100, 60}, {100, 40}};
  std::vector<std::byte> bytes = made.bytes();
  writeFile(folder / "x.laz", bytes);
  const auto file = LasFile::open(folder / "x.laz");
  ASSERT_TRUE(file.ok()) << file.error();
  std::vector<std::byte> records(300 * (*file)->recordBytes());
  const auto done = (*file)->readRecords(0, 300, records);
  ASSERT_FALSE(done.ok());
  EXPECT_THAT(done.error(), HasSubstr("x.laz: points "));
}

TEST_F(LasData, SequentialStreamGoesOnWhereItStands) {
  const auto file = open("small/point-version-1-point-wise.laz");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->storage(), PointStorage::Sequential);
  EXPECT_EQ(file->runs().size(), 1U);
  const std::vector<std::byte> whole = readAllRecords(*file);
  EXPECT_EQ(file->decodedChunks(), 1U);
  std::vector<std::byte> part(100 * file->recordBytes());
  for (const std::uint64_t first : {200U, 300U, 5000U, 100U}) {
    ASSERT_TRUE(file->readRecords(first, 100, part).ok());
    EXPECT_TRUE(
        std::equal(part.begin(), part.end(),
                   whole.begin() + static_cast<std::ptrdiff_t>(first * file->recordBytes())));
  }
  // One start for the whole, one for going back to 200, one for going back to 100.
  EXPECT_EQ(file->decodedChunks(), 3U);
}

TEST_F(LasData, SequentialStreamRecoversFromDamage) {
  const TempDir folder;
  std::vector<std::byte> bytes = readFile(path("small/point-version-1-point-wise.laz"));
  bytes.resize(bytes.size() / 2);
  writeFile(folder / "x.laz", bytes);
  const auto file = LasFile::open(folder / "x.laz");
  ASSERT_TRUE(file.ok()) << file.error();
  std::vector<std::byte> records((*file)->pointCount() * (*file)->recordBytes());
  const auto done = (*file)->readRecords(0, (*file)->pointCount(), records);
  ASSERT_FALSE(done.ok());
  EXPECT_EQ(done.error(), folder / "x.laz" + ": compressed data ends too early");
  EXPECT_TRUE((*file)->readRecords(10, 10, std::span(records).first(10 * 20)).ok());
}

}  // namespace
}  // namespace Formats
