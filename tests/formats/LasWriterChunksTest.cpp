// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "formats/las/LasFile.hpp"
#include "formats/las/LasWriter.hpp"
#include "tests/formats/LasTestFiles.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::TempDir;
using testing::HasSubstr;

constexpr std::size_t kChunk = LasWriter::chunkPoints();

std::unique_ptr<LasWriter> created(const std::string& path, std::uint8_t pointFormat,
                                   bool isCompressed) {
  LasWriterOptions options;
  options.header.pointFormat = pointFormat;
  options.header.isCompressed = isCompressed;
  auto writer = LasWriter::create(path, std::move(options));
  EXPECT_TRUE(writer.ok()) << writer.error();
  return writer ? std::move(*writer) : nullptr;
}

std::vector<std::size_t> runLengths(const LasFile& file) {
  std::vector<std::size_t> lengths;
  for (const PointRun& run : file.runs()) lengths.push_back(run.pointCount);
  return lengths;
}

/// The lengths of the chunks of a compressed file of so many points, given `atOnce` at a time.
std::vector<std::size_t> chunksOf(std::uint8_t pointFormat, std::size_t pointCount,
                                  std::size_t atOnce) {
  const TempDir folder;
  const auto writer = created(folder / "x.laz", pointFormat, true);
  const std::vector<std::byte> records = surveyRecords(pointFormat, 0, pointCount, 3);
  const std::size_t step = atOnce * writer->layout().recordBytes();
  for (std::size_t at = 0; at < records.size(); at += step) {
    const auto part = std::span(records).subspan(at, std::min(step, records.size() - at));
    EXPECT_TRUE(writer->writeRecords(part).ok());
  }
  EXPECT_EQ(writer->pointCount(), pointCount);
  EXPECT_TRUE(writer->finish().ok());
  EXPECT_EQ(writer->pointCount(), pointCount);
  const auto file = LasFile::open(folder / "x.laz");
  EXPECT_TRUE(file.ok()) << file.error();
  EXPECT_TRUE(readAllRecords(**file) == records);
  return runLengths(**file);
}

TEST(LasWriterChunks, AreFullButForTheLast) {
  using Lengths = std::vector<std::size_t>;
  for (const std::uint8_t format : {std::uint8_t{1}, std::uint8_t{6}}) {
    EXPECT_EQ(chunksOf(format, 0, 1), Lengths{});
    EXPECT_EQ(chunksOf(format, 1, 1), Lengths{1});
    EXPECT_EQ(chunksOf(format, kChunk, kChunk), Lengths{kChunk});
    EXPECT_EQ(chunksOf(format, 2 * kChunk, 7001), (Lengths{kChunk, kChunk}));
    EXPECT_EQ(chunksOf(format, 2 * kChunk + 1, 3 * kChunk), (Lengths{kChunk, kChunk, 1}));
  }
}

/// Encodes in two threads, writes in order.
void writeInTwoThreads(LasWriter& writer, const std::vector<std::byte>& records) {
  const std::size_t chunkBytes = kChunk * writer.layout().recordBytes();
  const std::size_t chunkCount = (records.size() + chunkBytes - 1) / chunkBytes;
  const auto recordsOf = [&](std::size_t chunk) {
    const std::size_t at = chunk * chunkBytes;
    return std::span(records).subspan(at, std::min(chunkBytes, records.size() - at));
  };
  std::vector<EncodedChunk> encoded(chunkCount);
  const auto encodeEvery = [&](std::size_t first) {
    for (std::size_t chunk = first; chunk < chunkCount; chunk += 2) {
      auto done = writer.encodeChunk(recordsOf(chunk));
      EXPECT_TRUE(done.ok());
      if (done) encoded[chunk] = std::move(*done);
    }
  };
  std::thread other([&] { encodeEvery(1); });
  encodeEvery(0);
  other.join();
  for (std::size_t chunk = 0; chunk < chunkCount; ++chunk) {
    ASSERT_TRUE(writer.writeChunk(recordsOf(chunk), encoded[chunk]).ok());
  }
}

TEST(LasWriterChunks, EncodedByThreadsGiveTheSameFile) {
  const std::vector<std::byte> records = surveyRecords(7, 0, 3 * kChunk + 17, 4);
  for (const bool isCompressed : {false, true}) {
    const TempDir folder;
    const auto plain = created(folder / "plain", 7, isCompressed);
    ASSERT_TRUE(plain->writeRecords(records).ok());
    ASSERT_TRUE(plain->finish().ok());
    const auto threaded = created(folder / "threaded", 7, isCompressed);
    writeInTwoThreads(*threaded, records);
    ASSERT_TRUE(threaded->finish().ok());
    EXPECT_TRUE(readFile(folder / "plain") == readFile(folder / "threaded")) << isCompressed;
  }
}

TEST(LasWriterChunks, NoneFollowsAShortOne) {
  const TempDir folder;
  const auto writer = created(folder / "x.laz", 6, true);
  const std::vector<std::byte> records = surveyRecords(6, 0, 10, 1);
  const auto encoded = writer->encodeChunk(records);
  ASSERT_TRUE(encoded.ok());
  ASSERT_TRUE(writer->writeChunk(records, *encoded).ok());
  EXPECT_EQ(writer->writeChunk(records, *encoded).error(),
            folder / "x.laz" +
                ": chunk behind a short one, found chunk 1 of 10 points, expected all but the last "
                "to have 50000");
  EXPECT_FALSE(writer->finish().ok());
}

TEST(LasWriterChunks, NoneFollowsSingleRecords) {
  const TempDir folder;
  const auto writer = created(folder / "x.laz", 6, true);
  const std::vector<std::byte> records = surveyRecords(6, 0, 10, 1);
  ASSERT_TRUE(writer->writeRecords(records).ok());
  const auto encoded = writer->encodeChunk(records);
  ASSERT_TRUE(encoded.ok());
  EXPECT_THAT(writer->writeChunk(records, *encoded).error(),
              HasSubstr("chunk behind single records, found 10 of them"));
}

TEST(LasWriterChunks, RefuseWhatIsNoChunk) {
  const TempDir folder;
  const auto writer = created(folder / "x.laz", 6, true);
  const std::vector<std::byte> records = surveyRecords(6, 0, kChunk + 1, 1);
  EXPECT_THAT(writer->encodeChunk(records).error(), HasSubstr("found 50001 points"));
  EXPECT_THAT(writer->encodeChunk(std::span(records).first(31)).error(),
              HasSubstr("points cut off, found 31 bytes, expected a multiple of 30"));
  const auto nothing = writer->encodeChunk({});
  ASSERT_TRUE(nothing.ok());
  EXPECT_TRUE(writer->writeChunk({}, *nothing).ok());
  EXPECT_TRUE(writer->finish().ok());
}

TEST(LasWriterChunks, PlainFileTakesOnlyTheRecordsThatWereEncoded) {
  const TempDir folder;
  const auto writer = created(folder / "x.las", 6, false);
  const std::vector<std::byte> records = surveyRecords(6, 0, 10, 1);
  const auto encoded = writer->encodeChunk(records);
  ASSERT_TRUE(encoded.ok());
  EXPECT_THAT(writer->writeChunk(std::span(records).first(60), *encoded).error(),
              HasSubstr("other records than those encoded, found 60 bytes, expected 300"));
}

}  // namespace
}  // namespace Formats
