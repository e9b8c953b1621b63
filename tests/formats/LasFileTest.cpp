// SPDX-License-Identifier: Apache-2.0

#include "formats/las/LasFile.hpp"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <random>
#include <thread>

#include "formats/las/ByteStream.hpp"
#include "formats/las/LasWriter.hpp"
#include "formats/las/RecordColumns.hpp"
#include "tests/formats/LasTestFiles.hpp"
#include "tests/support/Seed.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::TempDir;
using LidarLib::TestSupport::testSeed;
using testing::HasSubstr;

constexpr std::size_t kPointDataOffsetAt = 96;
constexpr std::size_t kVlrCountAt = 100;
constexpr std::size_t kPointFormatAt = 104;
constexpr std::size_t kLegacyCountAt = 107;
constexpr std::size_t kFirstEvlrAt = 235;

/// Bounds of decoded points.
struct Bounds {
  std::array<double, 3> minimum{};
  std::array<double, 3> maximum{};
};

Bounds boundsOf(const LasFile& file, std::span<const std::byte> records) {
  std::vector<double> positions(file.pointCount() * 3);
  extractPositions(records, file.recordBytes(), {file.header().scale, file.header().offset},
                   positions);
  Bounds bounds;
  bounds.minimum.fill(std::numeric_limits<double>::max());
  bounds.maximum.fill(std::numeric_limits<double>::lowest());
  for (std::size_t at = 0; at < positions.size(); ++at) {
    bounds.minimum[at % 3] = std::min(bounds.minimum[at % 3], positions[at]);
    bounds.maximum[at % 3] = std::max(bounds.maximum[at % 3], positions[at]);
  }
  return bounds;
}

/// What the decoded points of a file span, where its header says something else.
Bounds trueBounds(const KnownFile& known) {
  if (known.name == "fwf/simple1_3.las") {
    return {{-235434.519, 5800843.145, 265.094}, {-234935.841, 5800946.249, 273.811}};
  }
  return {known.minimum, known.maximum};
}

/// The table gives three decimals, or seven for degrees; some headers are rounded outwards to
/// centimetres.
double toleranceOf(const KnownFile& known) {
  if (known.name.find("2535pt") != std::string::npos) return 0.01;
  return known.name.find("autzen-dd") != std::string::npos ? 5.1e-8 : 5.1e-4;
}

class LasFileData : public LasData, public testing::WithParamInterface<KnownFile> {};

INSTANTIATE_TEST_SUITE_P(Known, LasFileData, testing::ValuesIn(smallKnownFiles()), testNameOf);

TEST_P(LasFileData, IsWhatTheTableSays) {
  const KnownFile& known = GetParam();
  const std::shared_ptr<LasFile> file = open(known.name);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->header().versionMinor, known.versionMinor);
  EXPECT_EQ(file->header().pointFormat, known.pointFormat);
  EXPECT_EQ(file->recordBytes(), standardRecordBytes(known.pointFormat) + known.extraBytes);
  EXPECT_EQ(file->layout().recordBytes(), file->recordBytes());
  EXPECT_EQ(file->isCompressed(), known.name.ends_with(".laz"));
  EXPECT_EQ(file->pointCount(), known.pointCount);
  if (known.pointCount == 0) return;
  const Bounds bounds = boundsOf(*file, readAllRecords(*file));
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double tolerance = toleranceOf(known);
    const Bounds expected = trueBounds(known);
    EXPECT_NEAR(file->header().minimum[axis], known.minimum[axis], tolerance);
    EXPECT_NEAR(file->header().maximum[axis], known.maximum[axis], tolerance);
    EXPECT_NEAR(bounds.minimum[axis], expected.minimum[axis], tolerance);
    EXPECT_NEAR(bounds.maximum[axis], expected.maximum[axis], tolerance);
  }
}

TEST_P(LasFileData, RunsFollowEachOther) {
  const std::shared_ptr<LasFile> file = open(GetParam().name);
  ASSERT_NE(file, nullptr);
  std::uint64_t next = 0;
  for (const PointRun& run : file->runs()) {
    EXPECT_EQ(run.firstPoint, next);
    EXPECT_GT(run.pointCount, 0U);
    EXPECT_LE(run.fileOffset + run.fileBytes, file->file()->sizeBytes());
    next += run.pointCount;
  }
  EXPECT_EQ(next, file->pointCount());
}

TEST_P(LasFileData, AnyRangeIsPartOfTheWhole) {
  const std::shared_ptr<LasFile> file = open(GetParam().name);
  ASSERT_NE(file, nullptr);
  const std::vector<std::byte> whole = readAllRecords(*file);
  std::mt19937_64 random(testSeed());
  for (int round = 0; round < 8; ++round) {
    const std::uint64_t first = random() % (file->pointCount() + 1);
    const std::uint64_t count =
        random() % std::min<std::uint64_t>(file->pointCount() - first + 1, 60000);
    std::vector<std::byte> part(count * file->recordBytes());
    const auto done = file->readRecords(first, count, part);
    ASSERT_TRUE(done.ok()) << done.error();
    EXPECT_TRUE(
        std::equal(part.begin(), part.end(),
                   whole.begin() + static_cast<std::ptrdiff_t>(first * file->recordBytes())))
        << first << " " << count;
  }
}

TEST_F(LasData, CompressedFilesHoldTheRecordsOfPlainOnes) {
  std::vector<std::string> stems{"small/point-version-1-point-wise"};
  for (int format = 0; format <= 8; ++format) {
    stems.push_back(fmt::format("formats/10_points_format_{}", format));
  }
  for (const std::string& stem : stems) {
    const auto plain = open(stem + ".las");
    const auto compressed = open(stem + ".laz");
    ASSERT_TRUE(plain && compressed);
    EXPECT_TRUE(readAllRecords(*plain) == readAllRecords(*compressed)) << stem;
  }
}

TEST_F(LasData, VariableRecordsAreKeptWhole) {
  const auto file = open("small/1_4_w_evlr.las");
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(file->evlrs().size(), 1U);
  const VariableRecord& evlr = file->evlrs().front();
  EXPECT_TRUE(evlr.isLoaded);
  EXPECT_EQ(evlr.payload.size(), evlr.payloadBytes);
  EXPECT_EQ(evlr.payloadOffset + evlr.payloadBytes, file->file()->sizeBytes());
  const auto copc = open("small/lone-star.copc.laz");
  ASSERT_NE(copc, nullptr);
  EXPECT_NE(findRecord(copc->vlrs(), "copc", 1), nullptr);
  EXPECT_NE(findRecord(copc->evlrs(), "copc", 1000), nullptr);
}

TEST_F(LasData, ExtraBytesGetTheirNames) {
  const auto file = open("small/las_with_several_extra_byte_bloc.laz");
  ASSERT_NE(file, nullptr);
  ASSERT_NE(file->layout().find("Deviation"), nullptr);
  EXPECT_EQ(file->layout().find("Deviation")->type, ElementType::UInt16);
  ASSERT_NE(file->layout().find("confidence"), nullptr);
  EXPECT_EQ(file->layout().find("confidence")->type, ElementType::UInt8);
  const auto other = open("small/extrabytes.las");
  ASSERT_NE(other, nullptr);
  for (const char* name : {"Colors[2]", "Reserved[6]", "Flags[1]", "Intensity_2", "Time"}) {
    EXPECT_NE(other->layout().find(name), nullptr) << name;
  }
}

TEST_F(LasData, ManyThreadsReadAtOnce) {
  for (const char* name :
       {"small/lone-star.copc.laz", "small/point-version-1-point-wise.laz", "small/mvk-thin.las"}) {
    const auto file = open(name);
    ASSERT_NE(file, nullptr);
    const std::vector<std::byte> whole = readAllRecords(*file);
    const std::uint64_t share = (file->pointCount() + 3) / 4;
    std::vector<std::byte> parts(whole.size());
    std::vector<std::thread> threads;
    for (std::uint64_t first = 0; first < file->pointCount(); first += share) {
      threads.emplace_back([&, first] {
        const std::uint64_t count = std::min(share, file->pointCount() - first);
        const auto room =
            std::span(parts).subspan(first * file->recordBytes(), count * file->recordBytes());
        EXPECT_TRUE(file->readRecords(first, count, room).ok());
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(parts == whole) << name;
  }
}

std::string errorOf(const std::string& path) {
  const auto opened = LasFile::open(path);
  EXPECT_FALSE(opened.ok());
  return opened ? std::string() : opened.error();
}

TEST(LasFile, RefusesWhatIsNoRegularFile) {
  const TempDir folder;
  EXPECT_EQ(errorOf(folder / "none.las"),
            folder / "none.las" + ": cannot be opened, No such file or directory");
  EXPECT_EQ(
      errorOf(folder.path().string()),
      folder.path().string() +
          ": not a file that can be read by offset, found a directory, expected a regular file");
  const std::string fifo = folder / "fifo.las";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_THAT(errorOf(fifo), HasSubstr("found a FIFO"));
  EXPECT_THAT(errorOf("/dev/zero"), HasSubstr("found a device"));
  writeFile(folder / "empty.las", {});
  EXPECT_EQ(errorOf(folder / "empty.las"),
            folder / "empty.las" + ": not a LAS file, found an empty file");
}

/// A small valid file of version 1.4 with one variable record, to be damaged.
std::vector<std::byte> smallFile(const TempDir& folder) {
  LasWriterOptions options;
  options.header.pointFormat = 1;
  options.vlrs.emplace_back();
  options.vlrs.back().payload.resize(10);
  const std::string path = folder / "small.las";
  auto writer = LasWriter::create(path, options);
  EXPECT_TRUE(writer.ok()) << writer.error();
  EXPECT_TRUE((*writer)->writeRecords(surveyRecords(1, 0, 50, 1)).ok());
  EXPECT_TRUE((*writer)->finish().ok());
  return readFile(path);
}

template <class T>
std::string errorAfter(std::size_t at, T value) {
  const TempDir folder;
  std::vector<std::byte> bytes = smallFile(folder);
  storeValue(bytes.data() + at, value);
  const std::string path = folder / "x.las";
  writeFile(path, bytes);
  const std::string error = errorOf(path);
  EXPECT_EQ(error.substr(0, path.size() + 2), path + ": ");
  return error.substr(std::min(error.size(), path.size() + 2));
}

TEST(LasFile, RefusesHeaderThatLies) {
  EXPECT_EQ(errorAfter(kLegacyCountAt + 140, std::uint64_t{51}),
            "points cut off, found 50 whole records of 28 bytes, expected 51");
  EXPECT_EQ(errorAfter(kLegacyCountAt + 140, std::numeric_limits<std::uint64_t>::max()),
            "points cut off, found 50 whole records of 28 bytes, expected 18446744073709551615");
  EXPECT_EQ(errorAfter(kPointDataOffsetAt, std::uint32_t{374}),
            "start of the points cannot be right, found byte 374, expected 375 to 1839");
  EXPECT_THAT(errorAfter(kPointDataOffsetAt, std::uint32_t{4000000000}),
              HasSubstr("start of the points cannot be right"));
  EXPECT_THAT(errorAfter(kVlrCountAt, std::uint32_t{2}),
              HasSubstr("variable length record 1 reaches into the points"));
  EXPECT_EQ(errorAfter(kVlrCountAt, std::numeric_limits<std::uint32_t>::max()),
            "too many variable length records, found 4294967295, expected at most 1048576");
  EXPECT_EQ(errorAfter(kPointFormatAt, std::uint8_t{0x81}),
            "compressed points without a LASzip record");
  EXPECT_THAT(errorAfter(kFirstEvlrAt + 8, std::uint32_t{1}),
              HasSubstr("cut off, found 1779 bytes"));
}

TEST(LasFile, SaysWhichCountItTakes) {
  const TempDir folder;
  std::vector<std::byte> bytes = smallFile(folder);
  storeValue(bytes.data() + kLegacyCountAt, std::uint32_t{49});
  writeFile(folder / "x.las", bytes);
  const auto file = LasFile::open(folder / "x.las");
  ASSERT_TRUE(file.ok()) << file.error();
  EXPECT_EQ((*file)->pointCount(), 50U);
  EXPECT_THAT((*file)->notes(),
              testing::ElementsAre(HasSubstr("found 49 (32 bit) and 50 (64 bit)")));
}

TEST(LasFile, RefusesRangesThatAreNotThere) {
  const TempDir folder;
  smallFile(folder);
  const auto file = LasFile::open(folder / "small.las");
  ASSERT_TRUE(file.ok());
  std::vector<std::byte> room(100 * 28);
  const auto read = [&](std::uint64_t first, std::uint64_t count, std::size_t bytes) {
    return (*file)->readRecords(first, count, std::span(room).first(bytes)).ok();
  };
  EXPECT_TRUE(read(50, 0, 0));
  EXPECT_TRUE(read(49, 1, 28));
  EXPECT_FALSE(read(50, 1, 28));
  EXPECT_FALSE(read(51, 0, 0));
  EXPECT_FALSE(read(1, std::numeric_limits<std::uint64_t>::max(), 28));
  EXPECT_FALSE(read(0, 2, 28));
  EXPECT_FALSE(read(0, 1, 27));
  EXPECT_FALSE(read(0, 1, 29));
}

}  // namespace
}  // namespace Formats
