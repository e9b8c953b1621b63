// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/RecordSource.hpp"

#include <gmock/gmock.h>

#include <numeric>
#include <thread>

#include "tests/formats/cloud/CloudTestFiles.hpp"
#include "tests/support/NamelessFiles.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::cutNamelessFiles;
using LidarLib::TestSupport::TempDir;
using Bytes = std::vector<std::byte>;

constexpr std::size_t kChunkPoints = 50000;

/// The fragments of one file.
struct Sources {
  std::shared_ptr<FileRecords> shared = std::make_shared<FileRecords>();
  std::vector<std::shared_ptr<RecordSource>> fragments;

  explicit Sources(const std::shared_ptr<LasFile>& file, std::uint64_t fragmentPoints) {
    shared->file = file;
    for (const PointRange& range : cutIntoFragments(*file, {fragmentPoints, 0})) {
      fragments.push_back(std::make_shared<RecordSource>(shared, range, fragments.size()));
      shared->fragments.push_back(fragments.back());
    }
  }

  void spillInto(const TempDir& folder) {
    const auto spill = RecordSpill::make(folder.path().string(), 1000);
    ASSERT_TRUE(spill.ok()) << spill.error();
    shared->spill = *spill;
    shared->spillOffset = 77;
  }
  std::uint64_t decodedChunks() const { return shared->file->decodedChunks(); }
};

/// All records of all fragments, read in steps of so many points.
Bytes readAll(const Sources& sources, std::uint64_t step) {
  Bytes all;
  for (const auto& source : sources.fragments) {
    auto view = source->open(Keep::Yes);
    EXPECT_TRUE(view.ok()) << view.error();
    if (!view) return {};
    for (std::uint64_t at = 0; at < view->pointCount(); at += step) {
      const auto read = view->read(at, std::min(step, view->pointCount() - at));
      EXPECT_TRUE(read.ok()) << read.error();
      if (read) all.insert(all.end(), read->begin(), read->end());
    }
  }
  return all;
}

std::shared_ptr<LasFile> openFile(const std::string& path) {
  auto opened = LasFile::open(path);
  EXPECT_TRUE(opened.ok()) << opened.error();
  return opened ? *opened : nullptr;
}

/// A LAZ file of four chunks.
std::shared_ptr<LasFile> fourChunks(const TempDir& folder) {
  auto options = lasOptions(3);
  options.header.isCompressed = true;
  const std::string path = folder / "survey.laz";
  return openFile(writeLas(path, options, surveyRecords(3, 0, 3 * kChunkPoints + 1234, 7)));
}

}  // namespace

TEST(RecordSource, PlainFileIsReadWhereItStands) {
  const TempDir folder;
  const auto file = openFile(writeSurvey(folder / "survey.las", 6, 10000));
  const CacheBudget budget(1 << 30);
  EXPECT_EQ(readAll(Sources(file, 3000), 700), readAllRecords(*file));
  EXPECT_EQ(MemCore::Cache::MemCache()->statistics().bytes, 0U);
}

TEST(RecordSource, CachedRecordsAreDecodedOnce) {
  const TempDir folder;
  const auto file = fourChunks(folder);
  const Bytes expected = readAllRecords(*file);
  const std::uint64_t before = file->decodedChunks();
  const CacheBudget budget(1 << 30);
  const Sources sources(file, 2 * kChunkPoints);
  EXPECT_EQ(readAll(sources, 7001), expected);
  EXPECT_EQ(readAll(sources, 150000), expected);
  EXPECT_EQ(sources.decodedChunks() - before, 4U);
}

TEST(RecordSource, SpilledRecordsAreDecodedOnceWithoutAnyCache) {
  const TempDir folder;
  const auto file = fourChunks(folder);
  const Bytes expected = readAllRecords(*file);
  const std::uint64_t before = file->decodedChunks();
  const CacheBudget budget(0);
  Sources sources(file, kChunkPoints);
  sources.spillInto(folder);
  EXPECT_EQ(readAll(sources, 7001), expected);
  EXPECT_EQ(readAll(sources, 999), expected);
  EXPECT_EQ(sources.decodedChunks() - before, 4U);
}

TEST(RecordSource, WithoutCacheAndSpillEveryUserDecodesOnce) {
  const TempDir folder;
  const auto file = fourChunks(folder);
  const Bytes expected = readAllRecords(*file);
  const std::uint64_t before = file->decodedChunks();
  const CacheBudget budget(0);
  const Sources sources(file, kChunkPoints);
  EXPECT_EQ(readAll(sources, 7001), expected);
  EXPECT_EQ(readAll(sources, 7001), expected);
  EXPECT_EQ(sources.decodedChunks() - before, 8U);
}

TEST(RecordSource, SpillThatIsLostMeanwhileCostsAnotherDecoding) {
  const TempDir folder;
  const auto file = fourChunks(folder);
  const Bytes expected = readAllRecords(*file);
  const CacheBudget budget(0);
  Sources sources(file, kChunkPoints);
  sources.spillInto(folder);
  readAll(sources, 7001);
  auto view = sources.fragments[1]->open(Keep::Yes);
  ASSERT_TRUE(view.ok()) << view.error();
  EXPECT_FALSE(sources.shared->spill->write(std::uint64_t{1} << 63, Bytes(1)));
  ASSERT_NE(sources.shared->spill->failure(), "");
  const auto read = view->read(5, 10);
  ASSERT_TRUE(read.ok()) << read.error();
  const auto at = static_cast<std::ptrdiff_t>((kChunkPoints + 5) * file->recordBytes());
  EXPECT_TRUE(std::equal(read->begin(), read->end(), expected.begin() + at));
  EXPECT_EQ(readAll(sources, 7001), expected);
}

TEST(RecordSource, SpillThatCannotBeReadCostsAnotherDecoding) {
  const TempDir folder;
  const TempDir spillFolder;
  const auto file = fourChunks(folder);
  const Bytes expected = readAllRecords(*file);
  const CacheBudget budget(0);
  Sources sources(file, kChunkPoints);
  sources.spillInto(spillFolder);
  readAll(sources, 7001);
  ASSERT_EQ(cutNamelessFiles(spillFolder), 1);
  EXPECT_EQ(readAll(sources, 7001), expected);
  EXPECT_NE(sources.shared->spill->failure(), "");
}

TEST(RecordSource, ThreadsThatAskAtOnceShareOneDecoding) {
  const TempDir folder;
  const auto file = fourChunks(folder);
  const Bytes expected = readAllRecords(*file);
  const std::uint64_t before = file->decodedChunks();
  const CacheBudget budget(0);
  Sources sources(file, kChunkPoints);
  sources.spillInto(folder);
  std::array<Bytes, 4> found;
  std::vector<std::thread> threads;
  for (Bytes& bytes : found) threads.emplace_back([&] { bytes = readAll(sources, 30011); });
  for (std::thread& thread : threads) thread.join();
  for (const Bytes& bytes : found) EXPECT_TRUE(bytes == expected);
  EXPECT_EQ(sources.decodedChunks() - before, 4U);
}

TEST(RecordSource, ObserverSeesWhatIsDecodedOnTheWay) {
  const TempDir folder;
  const auto file = fourChunks(folder);
  const CacheBudget budget(1 << 30);
  const Sources sources(file, kChunkPoints);
  std::size_t seen = 0;
  sources.fragments[3]->setObserver(
      [&](std::span<const std::byte> records) { seen += records.size() / file->recordBytes(); });
  readAll(sources, 1000);
  EXPECT_EQ(seen, 1234U);
}

class RecordSourceData : public LasData {};

TEST_F(RecordSourceData, StreamIsDecodedOnceThoughItsLastFragmentIsAskedFirst) {
  const auto file = open("small/point-version-1-point-wise.laz");
  const Bytes expected = readAllRecords(*file);
  const std::uint64_t before = file->decodedChunks();
  const TempDir folder;
  const CacheBudget budget(0);
  Sources sources(file, 500);
  sources.spillInto(folder);
  ASSERT_TRUE(sources.fragments.back()->open(Keep::Yes).ok());
  EXPECT_EQ(readAll(sources, 100), expected);
  EXPECT_EQ(sources.decodedChunks() - before, 1U);
}

}  // namespace Formats
