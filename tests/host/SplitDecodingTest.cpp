// SPDX-License-Identifier: Apache-2.0
//
// How often a split of a LAZ file decodes its chunks, when memory holds a tenth of its points.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

#include "datamodel/memcore/Cache.hpp"
#include "formats/cloud/PointCloudReader.hpp"
#include "formats/cloud/RecordSpill.hpp"
#include "formats/las/LasWriter.hpp"
#include "operation/RefragmentAndSplit.hpp"
#include "tests/support/ConsoleCapture.hpp"
#include "tests/support/TempDir.hpp"

namespace Host {

namespace {

namespace fs = std::filesystem;
using LidarLib::TestSupport::ConsoleCapture;
using LidarLib::TestSupport::TempDir;

constexpr std::size_t kLines = 4;
constexpr std::size_t kLinePoints = 50000;  // a chunk
constexpr std::size_t kRecordBytes = 20;    // point format 0
constexpr std::uint64_t kDecodedBytes = kLines * kLinePoints * kRecordBytes;

/// Flight lines along x, each over the whole length of an area of 100 times 100: what an aeroplane
/// that turns back at the end delivers.
std::vector<std::byte> flightLines() {
  std::vector<std::byte> records(kDecodedBytes);
  for (std::size_t i = 0; i < kLines * kLinePoints; ++i) {
    const auto along = static_cast<std::int32_t>(i % kLinePoints / 5);
    const auto line = static_cast<std::int32_t>(i / kLinePoints);
    const std::int32_t across = line * 2000 + static_cast<std::int32_t>(i * 7919 % 4000);
    const std::int32_t place[3] = {line % 2 == 0 ? along : 10000 - along, across,
                                   static_cast<std::int32_t>(i % 97)};
    std::memcpy(&records[i * kRecordBytes], place, sizeof place);
    records[i * kRecordBytes + 12] = static_cast<std::byte>(i % 251);  // intensity
  }
  return records;
}

std::string writeLaz(const std::string& path) {
  Formats::LasWriterOptions options;
  options.header.pointFormat = 0;
  options.header.scale = {0.01, 0.01, 0.01};
  options.header.recordBytes = kRecordBytes;
  options.header.isCompressed = true;
  const auto writer = Formats::LasWriter::create(path, options);
  EXPECT_TRUE(writer.ok()) << writer.error();
  EXPECT_TRUE((*writer)->writeRecords(flightLines()).ok());
  EXPECT_TRUE((*writer)->finish().ok());
  return path;
}

/// A split in a folder of its own.
struct SplitResult {
  std::map<std::string, std::string> tiles;  ///< their bytes by name
  std::uint64_t chunks = 0;
  std::uint64_t decodedChunks = 0;
  bool hasSpill = false;
  std::vector<std::string> notes;
};

std::string contentOf(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

SplitResult split(const std::string& laz, const std::string& spillFolder, std::uint64_t budget) {
  const TempDir folder;
  const ConsoleCapture console;
  const auto cache = MemCore::Cache::MemCache();
  const std::uint64_t before = cache->budget();
  cache->clear();
  cache->setBudget(budget);
  const fs::path former = fs::current_path();
  fs::current_path(folder.path());

  LidarLib::RefragmentAndSplit operation;
  operation.inputBundle = Fiber::BundlePtr(new Fiber::Bundle);
  Formats::CloudOptions options;
  options.spillFolder = spillFolder;
  const auto cloud = Formats::addPointCloud(*operation.inputBundle, {laz}, options);
  EXPECT_TRUE(cloud.ok()) << cloud.error();
  operation.outputDirectory = folder.path().string();
  operation.outputFileName = folder / "out.f5";
  operation.FragmentLength = {{25.0, 25.0, 0.0}};
  EXPECT_TRUE(operation.Run());
  EXPECT_TRUE(operation.messages.empty());

  SplitResult result;
  for (const auto& entry : fs::directory_iterator(folder.path() / "out")) {
    result.tiles[entry.path().filename().string()] = contentOf(entry.path());
  }
  result.chunks = cloud->chunks();
  result.decodedChunks = cloud->decodedChunks();
  result.hasSpill = bool(cloud->spill);
  result.notes = cloud->notes;
  fs::current_path(former);
  cache->clear();
  cache->setBudget(before);
  return result;
}

}  // namespace

TEST(SplitDecoding, EveryChunkIsDecodedOnceWhereMemoryHoldsAllPoints) {
  const TempDir folder;
  const SplitResult ample = split(writeLaz(folder / "in.laz"), folder.path().string(), 1 << 30);
  EXPECT_EQ(ample.tiles.size(), 16U);
  EXPECT_EQ(ample.chunks, kLines);
  EXPECT_EQ(ample.decodedChunks, ample.chunks);
  EXPECT_FALSE(ample.hasSpill);
}

TEST(SplitDecoding, EveryChunkIsDecodedOnceWhereMemoryHoldsATenth) {
  const TempDir folder;
  const std::string laz = writeLaz(folder / "in.laz");
  const SplitResult tight = split(laz, folder.path().string(), kDecodedBytes / 10);
  EXPECT_TRUE(tight.hasSpill);
  EXPECT_EQ(tight.decodedChunks, tight.chunks);
  EXPECT_TRUE(tight.tiles == split(laz, folder.path().string(), 1 << 30).tiles);
}

TEST(SplitDecoding, WithoutASpillTheTilesAreTheSame) {
  const TempDir folder;
  const std::string laz = writeLaz(folder / "in.laz");
  const SplitResult bare = split(laz, "", kDecodedBytes / 10);
  EXPECT_GT(bare.decodedChunks, bare.chunks);
  EXPECT_TRUE(bare.notes.empty());
  EXPECT_TRUE(bare.tiles == split(laz, folder.path().string(), kDecodedBytes / 10).tiles);
}

TEST(SplitDecoding, FolderThatCannotTakeTheSpillIsNotedAndDoneWithout) {
  const TempDir folder;
  const std::string laz = writeLaz(folder / "in.laz");
  const SplitResult bare = split(laz, folder / "absent", kDecodedBytes / 10);
  EXPECT_FALSE(bare.hasSpill);
  ASSERT_EQ(bare.notes.size(), 1U);
  EXPECT_EQ(bare.notes.front().rfind(folder / "absent", 0), 0U) << bare.notes.front();
  EXPECT_EQ(bare.tiles.size(), 16U);
}

}  // namespace Host
