// SPDX-License-Identifier: Apache-2.0
//
// The chief property of the way back: what was read from a LAS or LAZ file is written again byte by
// byte, for random files of all kinds, whatever the number of threads, through a bundle file, and
// from fragments in any order.

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>

#include "tests/formats/export/ExportTestGrids.hpp"
#include "tests/formats/export/RandomLas.hpp"
#include "tests/support/Seed.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::TempDir;

class ThreadCount {
 public:
  explicit ThreadCount(int count) : former_(omp_get_max_threads()) { omp_set_num_threads(count); }
  ~ThreadCount() { omp_set_num_threads(former_); }
  ThreadCount(const ThreadCount&) = delete;
  ThreadCount& operator=(const ThreadCount&) = delete;

 private:
  int former_;
};

/// Lines for a failure: which part of a file differs.
std::string describeDifference(const LasFile& file, const LasFile& original) {
  std::string text;
  const auto compare = [&](bool isSame, const char* what) {
    if (!isSame) text += std::string(" ") + what;
  };
  compare(serialiseLasHeader(file.header()) == serialiseLasHeader(original.header()), "header");
  compare(file.vlrs().size() == original.vlrs().size(), "count-of-vlrs");
  compare(file.evlrs().size() == original.evlrs().size(), "count-of-evlrs");
  compare(file.pointCount() == original.pointCount(), "count-of-points");
  if (file.recordBytes() != original.recordBytes()) return text + " record-length";
  const auto records = readAllRecords(file);
  const auto others = readAllRecords(original);
  const auto found = std::mismatch(records.begin(), records.end(), others.begin(), others.end());
  if (found.first == records.end() && found.second == others.end()) return text;
  const auto at = static_cast<std::size_t>(found.first - records.begin());
  return text + " record " + std::to_string(at / file.recordBytes()) + " byte " +
         std::to_string(at % file.recordBytes());
}

/// Exports a source next to the original and compares all bytes of both.
void expectSameFile(const TempDir& folder, const std::string& name, const ExportSource& source,
                    const RandomLas& original) {
  ExportWishes wishes;
  wishes.las.isCompressed = original.options.header.isCompressed;
  const std::string path = folder / (name + ".las");
  const auto file = exported(path, source, wishes);
  ASSERT_TRUE(file);
  if (readFile(path) != readFile(original.path)) {
    ADD_FAILURE() << name
                  << " differs:" << describeDifference(*file, **LasFile::open(original.path));
  }
  const std::string packets = folder / (name + ".wdp");
  ASSERT_EQ(std::filesystem::exists(packets), original.hasPackets) << name;
  if (original.hasPackets) {
    const auto former = std::filesystem::path(original.path).replace_extension(".wdp").string();
    EXPECT_EQ(readFile(packets), readFile(former)) << name;
  }
  std::filesystem::remove(path);
  std::filesystem::remove(packets);
}

Fiber::BundlePtr savedAndLoaded(Fiber::Bundle& bundle, const std::string& path) {
  const auto saved = bundle.save(path, nullptr, nullptr);
  EXPECT_TRUE(saved.ok()) << saved.error();
  bool ok = false;
  std::string failure;
  const auto parameters =
      MemCore::makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{path}, false});
  auto loaded = Fiber::Bundle::load(ok, parameters, nullptr, &failure);
  EXPECT_TRUE(ok) << failure;
  return loaded;
}

/// All ways from one file to another of the same bytes.
void checkRoundTrip(const RandomLasTraits& traits, std::uint64_t seed) {
  SCOPED_TRACE("format " + std::to_string(traits.pointFormat) + ", points " +
               std::to_string(traits.points) + ", compressed " +
               std::to_string(traits.isCompressed) + ", seed " + std::to_string(seed));
  std::mt19937_64 random(seed);
  const TempDir folder;
  const RandomLas original = writeRandomLas(folder / "original.las", traits, random);
  const std::uint64_t fragmentPoints = 1 + random() % (traits.points + 2);
  const bool keepsOrder = random() % 2 == 0;
  const TestCloud cloud = readCloud(
      {original.path}, {"points", 0, std::max<std::uint64_t>(fragmentPoints, 20), keepsOrder});
  ExportSource source = sourceOf(*cloud.grid);
  for (const int threads : {1, 2, 3}) {
    const ThreadCount count(threads);
    expectSameFile(folder, "by" + std::to_string(threads), source, original);
  }
  const auto loaded = savedAndLoaded(*cloud.bundle, folder / "bundle.f5");
  ASSERT_TRUE(bool(loaded));
  ExportSource stored = sourceOf(*(*loaded)[0.0]->findGrid("points"));
  expectSameFile(folder, "stored", stored, original);
  if (!keepsOrder) return;
  std::shuffle(source.fragments.begin(), source.fragments.end(), random);
  expectSameFile(folder, "shuffled", source, original);
  std::shuffle(stored.fragments.begin(), stored.fragments.end(), random);
  expectSameFile(folder, "stored and shuffled", stored, original);
}

/// The smallest number of points that shows the failure of a file tells most: few first.
void checkFormat(std::uint8_t format, bool isCompressed, std::uint64_t seed) {
  for (const std::size_t points : std::initializer_list<std::size_t>{0, 1, 2, 30, 700}) {
    checkRoundTrip({format, points, isCompressed}, seed + points);
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace

TEST(LasRoundTrip, PlainFilesOfAllFormatsComeBackByteByByte) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  for (std::uint8_t format = 0; format <= kMaxPointFormat && !HasFailure(); ++format) {
    checkFormat(format, false, seed);
  }
}

TEST(LasRoundTrip, CompressedFilesOfAllFormatsComeBackByteByByte) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  for (std::uint8_t format = 0; format <= kMaxPointFormat && !HasFailure(); ++format) {
    checkFormat(format, true, seed);
  }
}

// With such a scale most neighbouring numbers stand for the same double.
TEST(LasRoundTrip, NumbersThatDoublesDoNotTellApartComeBack) {
  const TempDir folder;
  LasWriterOptions options = lasOptions(6);
  options.header.scale = {1e-13, 1e-13, 1e-13};
  options.header.offset = {5e5, -4e6, 10};
  std::vector<std::byte> records(3000 * options.header.recordBytes);
  std::mt19937 random(7);
  for (std::size_t at = 0; at < records.size(); at += options.header.recordBytes) {
    for (std::size_t b = 0; b < 12; ++b) records[at + b] = static_cast<std::byte>(random());
    records[at + 14] = std::byte{0x11};
  }
  const std::string path = writeLas(folder / "fine.las", options, records);
  const TestCloud cloud = readCloud({path}, {"points", 0, 700, false});
  const auto stored = savedAndLoaded(*cloud.bundle, folder / "bundle.f5");
  ASSERT_TRUE(bool(stored));
  const auto grid = (*stored)[0.0]->findGrid("points");
  for (const ExportSource& source : {sourceOf(*cloud.grid), sourceOf(*grid)}) {
    const auto file = exported(folder / "back.las", source);
    ASSERT_TRUE(file);
    EXPECT_TRUE(readAllRecords(*file) == records);
  }
}

TEST(LasRoundTrip, FilesOfSeveralChunksComeBackByteByByte) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  std::mt19937_64 random(seed);
  const auto anyFormat = static_cast<std::uint8_t>(random() % (kMaxPointFormat + 1U));
  checkRoundTrip({anyFormat, 120000, false}, seed);
  checkRoundTrip({7, 110000, true}, seed);
  checkRoundTrip({4, 100001, false}, seed);
}

}  // namespace Formats
