// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/RecordPart.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <random>

#include "tests/formats/cloud/CloudTestFiles.hpp"
#include "tests/support/Seed.hpp"

namespace Formats {

namespace {

using Fiber::CreatorHandle;
using LidarLib::TestSupport::TempDir;
using Indices = std::vector<unsigned int>;

/// Ascending indices: runs and gaps of random lengths.
Indices randomIndices(std::size_t pointCount, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  Indices indices;
  std::size_t at = random() % 10;
  while (at < pointCount) {
    const std::size_t run = 1 + random() % (random() % 3 == 0 ? 5000 : 4);
    for (std::size_t i = 0; i < run && at < pointCount; ++i, ++at) {
      indices.push_back(static_cast<unsigned int>(at));
    }
    at += 1 + random() % (random() % 3 == 0 ? 9000 : 4);
  }
  return indices;
}

/// What a creator writes for a part; none when it refuses.
std::vector<std::byte> partOf(Fiber::CreativeArrayBase& creator, const Fiber::PointPart& part) {
  const std::size_t width = creator.facts().type->type() == typeid(Eagle::PhysicalSpace::point)
                                ? sizeof(Eagle::PhysicalSpace::point)
                                : creator.data()->elements()->elementSize();
  std::vector<std::byte> bytes(part.points().size() * width);
  return creator.copyPart(part, bytes) ? bytes : std::vector<std::byte>();
}

/// The same elements out of the whole array.
std::vector<std::byte> plainPart(Fiber::CreativeArrayBase& creator, const Indices& indices) {
  const auto data = creator.data();
  const auto& elements = *data->elements();
  std::vector<std::byte> bytes;
  for (const unsigned int i : indices) {
    const std::byte* element = elements.bytes() + i * elements.elementSize();
    bytes.insert(bytes.end(), element, element + elements.elementSize());
  }
  return bytes;
}

/// Reads positions here and there: mostly from front to back, as a selection does, some twice.
void readSomePositions(Fiber::PointPartReader& reader, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::uint64_t at = random() % 3000;
  while (at < reader.pointCount()) {
    std::vector<Eagle::PhysicalSpace::point> points(
        std::min<std::uint64_t>(1 + random() % 4096, reader.pointCount() - at));
    ASSERT_TRUE(reader.readPositions(at, points).ok());
    if (random() % 8 != 0) at += points.size() + (random() % 2 == 0 ? 0 : random() % 4096);
  }
}

/// Compares every field of every fragment at random points with its whole array.
void expectPartsOfColumns(const TestCloud& cloud, std::uint64_t seed, bool positionsFirst) {
  const auto representation = cloud.grid->getCartesianRepresentation("");
  for (const auto& fragment : cloud.fragments()) {
    const auto positions = cloud.field("Positions")->getCreator(fragment);
    MemCore::Cache::MemCache()->clear();
    const auto reader = positions->partReader();
    ASSERT_TRUE(bool(reader));
    if (positionsFirst) readSomePositions(*reader, seed);
    const Indices indices = randomIndices(reader->pointCount(), seed++);
    const auto part = reader->gather(indices);
    ASSERT_TRUE(part.ok()) << part.error();
    for (const auto& [name, field] : representation->fields()) {
      const CreatorHandle creator = field->getCreator(field->getFragmentID(fragment->name()));
      EXPECT_EQ(partOf(*creator, **part), plainPart(*creator, indices)) << name;
    }
  }
}

std::string writeCompressed(const std::string& path, std::uint8_t format, std::size_t points) {
  auto options = lasOptions(format);
  options.header.isCompressed = true;
  return writeLas(path, options, surveyRecords(format, 0, points, 11));
}

}  // namespace

class RecordPartAfter : public testing::TestWithParam<bool> {};

TEST_P(RecordPartAfter, HoldsWhatWholeColumnsHoldOfPlainAndCompressedFiles) {
  const TempDir folder;
  const CacheBudget budget(1 << 20);
  // Of different formats, so that fields are converted and supplied.
  const std::vector<std::string> files{writeSurvey(folder / "a.las", 1, 30000),
                                       writeCompressed(folder / "b.laz", 7, 60000)};
  CloudOptions options;
  options.fragmentPoints = 25000;
  options.keepOrder = true;
  expectPartsOfColumns(readCloud(files, options), LidarLib::TestSupport::testSeed(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(All, RecordPartAfter, testing::Bool(), [](const auto& positionsFirst) {
  return positionsFirst.param ? "ReadingPositions" : "NothingElse";
});

// A plain file that is gone: what can be gathered still was kept.
TEST(RecordPart, RecordsReadForTheirPositionsAreNotReadAgain) {
  const TempDir folder;
  const std::string path = writeSurvey(folder / "a.las", 3, 10000);
  const TestCloud cloud = readCloud({path});
  const auto reader = cloud.field("Positions")->getCreator(cloud.fragments().front())->partReader();
  ASSERT_TRUE(reader->blockBoxes().ok());
  std::vector<Eagle::PhysicalSpace::point> points(1000);
  ASSERT_TRUE(reader->readPositions(2000, points).ok());
  std::filesystem::resize_file(path, 1000);
  EXPECT_TRUE(reader->gather(Indices{2000, 2500, 2999}).ok());
  EXPECT_FALSE(reader->gather(Indices{1999, 2500}).ok());
  EXPECT_FALSE(reader->gather(Indices{2500, 3000}).ok());
}

TEST(RecordPart, ReaderTellsBoxesAndPositionsOfEveryBlock) {
  const TempDir folder;
  const CacheBudget budget(1 << 30);
  const TestCloud cloud = readCloud({writeCompressed(folder / "a.laz", 6, 10000)});
  const auto creator = cloud.field("Positions")->getCreator(cloud.fragments().front());
  const auto reader = creator->partReader();
  ASSERT_TRUE(bool(reader));
  const auto boxes = reader->blockBoxes();
  ASSERT_TRUE(boxes.ok()) << boxes.error();
  ASSERT_EQ(boxes->size(), Fiber::blockCount(10000));
  for (std::size_t b = 0; b < boxes->size(); ++b) {
    const std::size_t first = b * Fiber::kBlockPoints;
    std::vector<Eagle::PhysicalSpace::point> points(
        std::min<std::size_t>(Fiber::kBlockPoints, 10000 - first));
    ASSERT_TRUE(reader->readPositions(first, points).ok());
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const auto [low, high] =
          std::ranges::minmax_element(points, {}, [axis](const auto& p) { return p[axis]; });
      EXPECT_EQ((*boxes)[b].min[axis], (*low)[axis]);
      EXPECT_EQ((*boxes)[b].max[axis], (*high)[axis]);
    }
  }
}

TEST(RecordPart, BoxIsFoundWithoutMakingAnyColumn) {
  const TempDir folder;
  const CacheBudget budget(1 << 30);
  const TestCloud cloud = readCloud({writeSurvey(folder / "a.las", 3, 10000)});
  const auto surveyed = cloud.box();
  EXPECT_EQ(MemCore::Cache::MemCache()->statistics().bytes, 0U);
  EXPECT_FALSE(
      bool(cloud.field("Positions")->getCreator(cloud.fragments().front())->dataIfPresent()));
  const auto points = valuesOf<Eagle::PhysicalSpace::point>(*cloud.field("Positions"));
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto [low, high] =
        std::ranges::minmax_element(points, {}, [axis](const auto& p) { return p[axis]; });
    EXPECT_EQ(surveyed->min()[axis], (*low)[axis]);
    EXPECT_EQ(surveyed->max()[axis], (*high)[axis]);
  }
}

TEST(RecordPart, WholeColumnsInMemoryNeedNoReader) {
  const TempDir folder;
  const CacheBudget budget(1 << 30);
  const TestCloud cloud = readCloud({writeSurvey(folder / "a.las", 3, 1000)});
  const auto creator = cloud.field("Positions")->getCreator(cloud.fragments().front());
  EXPECT_TRUE(bool(creator->partReader()));
  const auto held = creator->data();
  EXPECT_FALSE(bool(creator->partReader()));
}

TEST(RecordPart, FieldOfAnotherFragmentIsRefused) {
  const TempDir folder;
  CloudOptions options;
  options.fragmentPoints = 500;
  const TestCloud cloud = readCloud({writeSurvey(folder / "a.las", 3, 1000)}, options);
  const auto fragments = cloud.fragments();
  const Indices indices{1, 2, 3};
  const auto part =
      cloud.field("Positions")->getCreator(fragments[0])->partReader()->gather(indices);
  ASSERT_TRUE(part.ok()) << part.error();
  const auto other = cloud.field("Intensity")->getCreator(fragments[1]);
  std::vector<std::byte> out(6);
  EXPECT_FALSE(other->copyPart(**part, out));
}

TEST(RecordPart, DamageNamesFileAndPoints) {
  const TempDir folder;
  const std::string path = writeCompressed(folder / "a.laz", 6, 10000);
  auto bytes = readFile(path);
  std::fill(bytes.begin() + 1200, bytes.begin() + 9000, std::byte{0xFF});
  writeFile(path, bytes);
  const TestCloud cloud = readCloud({path});
  const auto creator = cloud.field("Positions")->getCreator(cloud.fragments().front());
  const auto boxes = creator->partReader()->blockBoxes();
  ASSERT_FALSE(boxes.ok());
  EXPECT_THAT(boxes.error(), testing::StartsWith(path + ": points 0 to 9999: "));
  EXPECT_FALSE(bool(creator->surveyBox()));
  EXPECT_EQ(creator->failure(), boxes.error());
}

}  // namespace Formats
