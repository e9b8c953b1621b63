// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointFragmentSource.hpp"

#include <gmock/gmock.h>

#include <random>
#include <thread>

#include "tests/formats/cloud/CloudTestFiles.hpp"
#include "tests/support/Seed.hpp"

namespace Formats {

namespace {

using Fiber::CreatorHandle;

constexpr std::uint64_t kAmple = std::uint64_t{1} << 30;

/// All fields of a grid, each with the bytes that its fragments must have.
struct ExpectedGrid {
  struct Column {
    CreatorHandle creator;
    std::vector<std::byte> bytes;
  };
  std::vector<Column> columns;
};

/// Computes what every fragment of every field holds by the plain reader.
ExpectedGrid expect(const TestGrid& grid, std::uint64_t fragmentPoints) {
  ExpectedGrid expected;
  const auto all = readAllRecords(*grid.file);
  const std::size_t recordBytes = grid.file->recordBytes();
  const auto ranges = cutIntoFragments(*grid.file, {fragmentPoints, 0});
  const auto fragments = grid.field("Positions")->getFragmentIDs();
  EXPECT_EQ(fragments.size(), ranges.size());
  for (std::size_t i = 0; i < ranges.size(); ++i) {
    const auto records = std::span(all).subspan(ranges[i].firstPoint * recordBytes,
                                                ranges[i].pointCount * recordBytes);
    const auto points = plainPositions(records, grid.file->header());
    const auto bytes = std::as_bytes(std::span(points));
    expected.columns.push_back(
        {grid.field("Positions")->getCreator(fragments[i]), {bytes.begin(), bytes.end()}});
    for (const PointField& field : grid.file->layout().fields()) {
      expected.columns.push_back({grid.field(field.name)->getCreator(fragments[i]),
                                  plainColumn(records, recordBytes, field)});
    }
  }
  return expected;
}

bool holds(const ExpectedGrid::Column& column) {
  const auto data = column.creator->data();
  return data && data->byteCount() == column.bytes.size() &&
         std::equal(column.bytes.begin(), column.bytes.end(), data->elements()->bytes());
}

/// Threads that ask for fields and fragments at random; returns how many answers were wrong.
std::size_t wrongAnswers(const ExpectedGrid& expected, std::uint64_t seed, std::size_t asks) {
  std::atomic<std::size_t> wrong = 0;
  std::vector<std::thread> threads;
  for (std::uint64_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937_64 random(seed + t);
      for (std::size_t i = 0; i < asks; ++i) {
        if (!holds(expected.columns[random() % expected.columns.size()])) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  return wrong;
}

}  // namespace

/// A made-up compressed file of three chunks as one fragment.
class PointFragmentSourceOfChunks : public testing::Test {
 protected:
  static constexpr std::size_t kPoints = 120000;

  std::string writeCompressed(std::size_t points) const {
    LasWriterOptions options = lasOptions(3);
    options.header.isCompressed = true;
    return writeLas(folder_ / "survey.laz", options, surveyRecords(3, 0, points, 1));
  }
  TestGrid grid() const {
    auto opened = LasFile::open(writeCompressed(kPoints));
    EXPECT_TRUE(opened.ok()) << opened.error();
    return gridOver(*opened, 250000);
  }
  static Fiber::CoordinateGrid gridOfFile(const TestGrid& made) {
    const LasHeader& header = made.file->header();
    Fiber::CoordinateGrid grid;
    for (std::size_t a = 0; a < 3; ++a) grid[a] = {header.scale[a], header.offset[a]};
    return grid;
  }
  static CreatorHandle creatorOf(const TestGrid& made, const std::string& field) {
    return made.field(field)->getCreator(made.field(field)->getFragmentIDs().front());
  }

  CacheBudget budget_{kAmple};
  LidarLib::TestSupport::TempDir folder_;
};

TEST_F(PointFragmentSourceOfChunks, WholeNumbersAndFieldsComeOutOfOneDecoding) {
  const TestGrid made = grid();
  const ExpectedGrid expected = expect(made, 250000);
  const std::uint64_t before = made.file->decodedChunks();
  const CreatorHandle positions = creatorOf(made, "Positions");
  const auto numbers = positions->gridPoints(gridOfFile(made));
  ASSERT_TRUE(bool(numbers));
  ASSERT_EQ(numbers->count(), kPoints);
  for (const ExpectedGrid::Column& column : expected.columns) EXPECT_TRUE(holds(column));
  EXPECT_EQ(made.file->decodedChunks(), before + 3);
  const auto points =
      MemCore::handleCast<Fiber::MemArray<1, Eagle::PhysicalSpace::point>>(positions->data());
  EXPECT_TRUE(std::ranges::equal(Fiber::pointsOf(*numbers)->span(), points->span()));
}

TEST_F(PointFragmentSourceOfChunks, PointsTakeThePlaceOfWholeNumbersInTheCache) {
  const TestGrid made = grid();
  const CreatorHandle positions = creatorOf(made, "Positions");
  ASSERT_TRUE(bool(positions->gridPoints(gridOfFile(made))));
  const auto bytesOfNumbers = MemCore::Cache::MemCache()->statistics().bytes;
  ASSERT_TRUE(bool(positions->data()));
  EXPECT_EQ(MemCore::Cache::MemCache()->statistics().bytes, bytesOfNumbers + 12 * kPoints);
  const Fiber::MemBase* made1 = positions->data().get();
  EXPECT_EQ(positions->data().get(), made1);
  // Points are in memory: there is nothing to gain from whole numbers any more.
  EXPECT_FALSE(bool(positions->gridPoints(gridOfFile(made))));
  EXPECT_EQ(made.file->decodedChunks(), 3U);
}

TEST_F(PointFragmentSourceOfChunks, WholeNumbersAreThoseOfTheFilesGridAndOfPositionsAlone) {
  const TestGrid made = grid();
  Fiber::CoordinateGrid other = gridOfFile(made);
  other[1].scale *= 2;
  EXPECT_FALSE(bool(creatorOf(made, "Positions")->gridPoints(other)));
  EXPECT_FALSE(bool(creatorOf(made, "Intensity")->gridPoints(gridOfFile(made))));
  EXPECT_EQ(made.file->decodedChunks(), 0U);
}

// Threads share the pieces of a fragment: the first damaged one is told all the same.
TEST_F(PointFragmentSourceOfChunks, FirstDamagedChunkOfAFragmentIsNamed) {
  writeCompressed(8 * std::size_t{50000});
  auto bytes = readFile(folder_ / "survey.laz");
  const auto runs = (*LasFile::open(folder_ / "survey.laz"))->runs();
  for (const std::size_t chunk : {6U, 3U, 4U}) {
    const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(runs[chunk].fileOffset);
    std::fill(at, at + static_cast<std::ptrdiff_t>(runs[chunk].fileBytes), std::byte{0xFF});
  }
  writeFile(folder_ / "damaged.laz", bytes);
  for (int round = 0; round < 5; ++round) {
    const TestGrid made = gridOver(*LasFile::open(folder_ / "damaged.laz"), 1000000);
    const CreatorHandle positions = creatorOf(made, "Positions");
#pragma omp parallel
    {
#pragma omp single nowait
      EXPECT_FALSE(bool(positions->data()));
    }
    EXPECT_THAT(positions->failure(),
                testing::StartsWith(folder_ / "damaged.laz" + ": points 150000 to 199999: "));
  }
}

class PointFragmentSourceData : public LasData {
 protected:
  TestGrid grid(const std::string& name, std::uint64_t fragmentPoints) const {
    return gridOver(open(name), fragmentPoints);
  }
};

TEST_F(PointFragmentSourceData, EachChunkIsDecodedOnceWhenTheBudgetSuffices) {
  const CacheBudget budget(kAmple);
  const TestGrid made = grid("lidarhd/test_data_77060_627755_LA93_IGN69.laz", 50000);
  for (const PointField& field : made.file->layout().fields()) {
    EXPECT_EQ(bytesOf(*made.field(field.name)).size(),
              made.file->pointCount() * elementBytes(field.type));
  }
  EXPECT_EQ(made.file->decodedChunks(), made.file->runs().size());
}

TEST_F(PointFragmentSourceData, ExtentsAreKnownWithoutDecoding) {
  const TestGrid made = grid("lidarhd/test_data_77060_627755_LA93_IGN69.laz", 50000);
  const auto positions = made.field("Positions");
  std::uint64_t points = 0;
  for (const auto& fragment : positions->getFragmentIDs()) {
    points += Fiber::pointCountOf(*positions->getCreator(fragment));
  }
  EXPECT_EQ(points, 83518U);
  EXPECT_EQ(made.file->decodedChunks(), 0U);
}

TEST_F(PointFragmentSourceData, AnyFieldTellsThePositionsTheirBox) {
  const CacheBudget budget(kAmple);
  const TestGrid made = grid("lidarhd/test_data_77060_627755_LA93_IGN69.laz", 50000);
  for (const auto& fragment : made.field("Intensity")->getFragmentIDs()) {
    ASSERT_TRUE(bool(made.field("Intensity")->getData(fragment)));
    EXPECT_TRUE(bool(made.field("Positions")->getCreator(fragment)->facts().box));
  }
}

TEST_F(PointFragmentSourceData, BoxesOutliveTheirData) {
  const CacheBudget budget(kAmple);
  const TestGrid made = grid("lidarhd/test_data_77060_627755_LA93_IGN69.laz", 50000);
  MemCore::StrongPtr<Eagle::BoundingBox> first;
  ASSERT_TRUE(Fiber::expandBoundingBox(made.field("Positions"), first));
  MemCore::Cache::MemCache()->clear();
  const std::uint64_t decoded = made.file->decodedChunks();
  MemCore::StrongPtr<Eagle::BoundingBox> second;
  ASSERT_TRUE(Fiber::expandBoundingBox(made.field("Positions"), second));
  EXPECT_EQ(made.file->decodedChunks(), decoded);
  EXPECT_EQ(second->min(), first->min());
  EXPECT_EQ(second->max(), first->max());
}

TEST_F(PointFragmentSourceData, DroppedDataAreMadeAgainIdentically) {
  const CacheBudget budget(kAmple);
  const TestGrid made = grid("lidarhd/test_data_77060_627755_LA93_IGN69.laz", 50000);
  const auto before = bytesOf(*made.field("Positions"));
  const auto times = bytesOf(*made.field("GpsTime"));
  MemCore::Cache::MemCache()->clear();
  EXPECT_EQ(bytesOf(*made.field("GpsTime")), times);
  EXPECT_EQ(bytesOf(*made.field("Positions")), before);
  EXPECT_EQ(made.file->decodedChunks(), 2 * made.file->runs().size());
}

TEST_F(PointFragmentSourceData, ThreadsWithATinyBudgetGetEveryValueRight) {
  const CacheBudget budget(2 << 20);
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TestGrid plain = grid("small/mvk-thin.las", 100);
  EXPECT_EQ(wrongAnswers(expect(plain, 100), seed, 2000), 0U);
  const TestGrid chunked = grid("small/lone-star.copc.laz", 20000);
  EXPECT_EQ(wrongAnswers(expect(chunked, 20000), seed, 10), 0U);
  EXPECT_LE(MemCore::Cache::MemCache()->statistics().bytes, std::uint64_t{2} << 20);
}

TEST_F(PointFragmentSourceData, ThreadsShareAStream) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TestGrid made = grid("small/point-version-1-point-wise.laz", 500);
  ASSERT_EQ(made.file->storage(), PointStorage::Sequential);
  const ExpectedGrid expected = expect(made, 500);
  const CacheBudget budget(50000);
  EXPECT_EQ(wrongAnswers(expected, seed, 60), 0U);
}

TEST_F(PointFragmentSourceData, StreamIsDecodedOnceThoughItsLastFragmentIsAskedFirst) {
  const CacheBudget budget(kAmple);
  const TestGrid made = grid("small/point-version-1-point-wise.laz", 500);
  const auto positions = made.field("Positions");
  const auto fragments = positions->getFragmentIDs();
  ASSERT_EQ(fragments.size(), 24U);
  for (auto fragment = fragments.rbegin(); fragment != fragments.rend(); ++fragment) {
    EXPECT_TRUE(bool(positions->getData(*fragment)));
    EXPECT_TRUE(bool(positions->getCreator(*fragment)->facts().box));
  }
  EXPECT_EQ(made.file->decodedChunks(), 1U);
}

TEST_F(PointFragmentSourceData, DamagedChunkFailsAloneAndNamesItsPoints) {
  const LidarLib::TestSupport::TempDir folder;
  auto bytes = readFile(path("small/lone-star.copc.laz"));
  const PointRun damaged = open("small/lone-star.copc.laz")->runs()[3];
  const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(damaged.fileOffset);
  std::fill(at, at + static_cast<std::ptrdiff_t>(damaged.fileBytes), std::byte{0xFF});
  writeFile(folder / "damaged.laz", bytes);

  auto opened = LasFile::open(folder / "damaged.laz");
  ASSERT_TRUE(opened.ok()) << opened.error();
  const TestGrid made = gridOver(*opened, 1);  // every chunk a fragment of its own
  const auto positions = made.field("Positions");
  const auto fragments = positions->getFragmentIDs();
  EXPECT_TRUE(bool(positions->getData(fragments[2])));
  EXPECT_FALSE(bool(positions->getData(fragments[3])));
  EXPECT_THAT(positions->getCreator(fragments[3])->failure(),
              testing::StartsWith(folder / "damaged.laz: points " +
                                  std::to_string(damaged.firstPoint) + " to "));
  EXPECT_TRUE(bool(positions->getData(fragments[4])));
}

}  // namespace Formats
