// SPDX-License-Identifier: Apache-2.0
//
// Coordinates stored as integers where that is exact, and as doubles where it is not.

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <random>

#include "datamodel/container/CoordinateGrid.hpp"
#include "datamodel/container/Hdf5Handle.hpp"
#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/ModelCompare.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;
using MemCore::Chunk;
using MemCore::makeStrong;

constexpr const char* kPath = "/0/points/skeleton_3_0/StandardCartesianChart3D/Positions";

std::vector<Point> gridPoints(std::size_t count, double scale, double offset, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  const auto value = [&] {
    const volatile double product = static_cast<double>(random() % 1000000) * scale;
    return product + offset;
  };
  std::vector<Point> points(count);
  for (Point& p : points) p = {value(), value(), value()};
  return points;
}

/// The class of the dataset's numbers in the file.
H5T_class_t storedClass(const std::string& file) {
  const Hdf5Lock lock;
  const FileHandle opened(H5Fopen(file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
  const DatasetHandle dataset(H5Dopen2(opened.get(), kPath, H5P_DEFAULT));
  const DatatypeHandle type(H5Dget_type(dataset.get()));
  return H5Tget_class(type.get());
}

bool hasScale(const std::string& file) {
  const Hdf5Lock lock;
  const FileHandle opened(H5Fopen(file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
  return H5Aexists_by_name(opened.get(), kPath, "scale_factor", H5P_DEFAULT) > 0;
}

void expectRoundTrip(const BundlePtr& bundle, const std::string& file) {
  const BundlePtr back = loadBundle(file);
  ASSERT_TRUE(bool(back));
  EXPECT_EQ(differenceOf(*bundle, *back), "");
}

TEST(GridStorage, PointsOnAGridAreStoredAsIntegers) {
  const TempDir folder;
  CloudBuilder cloud;
  cloud.fragment(gridPoints(150000, 0.01, 202500, 1)).fragment(gridPoints(10, 0.01, 202500, 2));
  saveTo(folder / "a.f5", cloud.bundle());
  EXPECT_EQ(storedClass(folder / "a.f5"), H5T_INTEGER);
  EXPECT_TRUE(hasScale(folder / "a.f5"));
  expectRoundTrip(cloud.bundle(), folder / "a.f5");
}

TEST(GridStorage, HintOfTheFieldIsUsed) {
  const TempDir folder;
  // A scale that no search among powers of ten would find.
  CloudBuilder cloud;
  cloud.fragment(gridPoints(1000, 1.16451e-06, 1692500.352, 3));
  saveTo(folder / "without.f5", cloud.bundle());
  EXPECT_EQ(storedClass(folder / "without.f5"), H5T_FLOAT);
  const std::vector<double> scale(3, 1.16451e-06);
  const std::vector<double> offset(3, 1692500.352);
  cloud.positions()->properties().setAttribute(
      "GridScale", makeStrong<Chunk<double>>(std::span<const double>(scale)));
  cloud.positions()->properties().setAttribute(
      "GridOffset", makeStrong<Chunk<double>>(std::span<const double>(offset)));
  saveTo(folder / "with.f5", cloud.bundle());
  EXPECT_EQ(storedClass(folder / "with.f5"), H5T_INTEGER);
  expectRoundTrip(cloud.bundle(), folder / "with.f5");
}

TEST(GridStorage, OnePointOffTheGridMakesAllDoubles) {
  const TempDir folder;
  for (const double odd : {std::sqrt(2.0), std::numeric_limits<double>::quiet_NaN(), 1e300}) {
    auto points = gridPoints(5000, 0.01, 0, 4);
    points[4321].y = odd;
    CloudBuilder cloud;
    cloud.fragment(gridPoints(100, 0.01, 0, 5)).fragment(points);
    saveTo(folder / "a.f5", cloud.bundle());
    EXPECT_EQ(storedClass(folder / "a.f5"), H5T_FLOAT);
    EXPECT_FALSE(hasScale(folder / "a.f5"));
    expectRoundTrip(cloud.bundle(), folder / "a.f5");
  }
}

TEST(GridStorage, FragmentsOnDifferentGridsKeepTheirOwn) {
  const TempDir folder;
  CloudBuilder cloud;
  cloud.fragment(gridPoints(70000, 0.01, 202500, 6)).fragment(gridPoints(70000, 0.001, 0, 7));
  saveTo(folder / "a.f5", cloud.bundle());
  EXPECT_EQ(storedClass(folder / "a.f5"), H5T_INTEGER);
  EXPECT_FALSE(hasScale(folder / "a.f5"));
  expectRoundTrip(cloud.bundle(), folder / "a.f5");
}

TEST(GridStorage, OtherKindsStoreDoubles) {
  const TempDir folder;
  CloudBuilder cloud;
  cloud.fragment(gridPoints(1000, 0.01, 0, 8));
  for (const StorageKind kind : {StorageKind::Deflate, StorageKind::Raw}) {
    saveTo(folder / "a.f5", cloud.bundle(), kind);
    EXPECT_EQ(storedClass(folder / "a.f5"), H5T_FLOAT);
    expectRoundTrip(cloud.bundle(), folder / "a.f5");
  }
}

TEST(GridStorage, LaterBatchOffTheGridBeginsAgainWithDoubles) {
  const TempDir folder;
  CloudBuilder cloud;
  for (std::uint64_t k = 0; k < 6; ++k) {
    auto points = gridPoints(30000, 0.01, 100, 20 + k);
    if (k == 4) points[77].x = std::sqrt(3.0);
    std::vector<unsigned short> intensity(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      intensity[i] = static_cast<unsigned short>(i * (k + 1));
    }
    cloud.fragment(points).field("Intensity", intensity);
  }
  EXPECT_EQ(writeInBatches(cloud.bundle(), folder / "a.f5", StorageKind::Grid, {1, 0}), 2);
  EXPECT_EQ(storedClass(folder / "a.f5"), H5T_FLOAT);
  expectRoundTrip(cloud.bundle(), folder / "a.f5");
  EXPECT_EQ(entryCount(folder.path()), 1);
}

void setHint(CloudBuilder& cloud, const CoordinateGrid& grid) {
  const std::vector<double> scale{grid[0].scale, grid[1].scale, grid[2].scale};
  const std::vector<double> offset{grid[0].offset, grid[1].offset, grid[2].offset};
  cloud.positions()->properties().setAttribute(
      "GridScale", makeStrong<Chunk<double>>(std::span<const double>(scale)));
  cloud.positions()->properties().setAttribute(
      "GridOffset", makeStrong<Chunk<double>>(std::span<const double>(offset)));
}

constexpr CoordinateGrid kSurveyGrid{{{0.01, 100}, {0.01, 100}, {0.01, 100}}};

/// Positions that are to be had as whole numbers of their grid, too.
class GridCreator final : public CreativeArrayBase {
 public:
  explicit GridCreator(const std::vector<Point>& points)
      : CreativeArrayBase(MemoryCreator(pointArray(points)).facts()), points_(points) {
    const auto encoded = encodeExactly(coordinates(), kSurveyGrid);
    EXPECT_TRUE(encoded && encoded->grid == kSurveyGrid);
    if (encoded) numbers_ = makeStrong<GridPoints>(*encoded);
    MemoryCreator whole(pointArray(points));
    rememberBox(makeStrong<Eagle::BoundingBox>(*boxOf(whole, DataCreationMode::KnownOrCreate)));
  }
  int timesMade() const { return timesMade_; }
  int timesAsked() const { return timesAsked_; }
  /// Leaves points out of the whole numbers.
  void cut() {
    auto shorter = makeStrong<GridPoints>(*numbers_);
    for (auto& column : shorter->columns) column.pop_back();
    numbers_ = shorter;
  }

 protected:
  MemCore::Outcome<MemCore::StrongPtr<MemBase>> create() override {
    ++timesMade_;
    return MemCore::StrongPtr<MemBase>(pointArray(points_));
  }
  GridPointsHandle createGridPoints(const CoordinateGrid& grid) override {
    ++timesAsked_;
    return isSameGrid(grid, kSurveyGrid) ? numbers_ : nullptr;
  }

 private:
  static MemCore::StrongPtr<MemArray<1, Point>> pointArray(const std::vector<Point>& points) {
    return makeArray<Point>(makeStrong<Chunk<Point>>(std::span<const Point>(points)));
  }
  std::span<const double> coordinates() const { return {&points_[0].x, 3 * points_.size()}; }

  std::vector<Point> points_;
  GridPointsHandle numbers_;
  std::atomic<int> timesMade_ = 0;
  std::atomic<int> timesAsked_ = 0;
};

/// Two clouds of the same points: in memory, and to be had as whole numbers but for every n-th
/// fragment (0: for none), which is in memory like the first cloud's, and for one off the grid.
struct TwinClouds {
  CloudBuilder plain;
  CloudBuilder whole;
  std::vector<MemCore::StrongPtr<GridCreator>> creators;

  explicit TwinClouds(std::size_t nth, std::size_t offGrid = ~std::size_t{0}) {
    for (std::size_t k = 0; k < 6; ++k) {
      auto points = gridPoints(20000 + 7 * k, 0.01, 100, 60 + k);
      if (k == offGrid) points[77].x = std::sqrt(3.0);
      const std::vector<unsigned short> intensity(points.size(), static_cast<unsigned short>(k));
      plain.fragment(points);
      const bool isInMemory = k == offGrid || (nth != 0 && k % nth == 0);
      if (isInMemory) whole.fragment(points);
      if (!isInMemory) whole.fragmentOf(creators.emplace_back(makeStrong<GridCreator>(points)));
      plain.field("Intensity", intensity);
      whole.field("Intensity", intensity);
    }
    setHint(plain, kSurveyGrid);
    setHint(whole, kSurveyGrid);
  }
};

TEST(GridStorage, WholeNumbersOfASourceGiveTheFileThatItsPointsGive) {
  const TempDir folder;
  for (const std::size_t nth : {0U, 2U, 3U}) {
    for (const BatchSizes& sizes : {BatchSizes{}, BatchSizes{1, 0}, BatchSizes{900000, 0}}) {
      const TwinClouds clouds(nth);
      EXPECT_EQ(writeInBatches(clouds.plain.bundle(), folder / "a.f5", StorageKind::Grid, sizes),
                1);
      EXPECT_EQ(writeInBatches(clouds.whole.bundle(), folder / "b.f5", StorageKind::Grid, sizes),
                1);
      EXPECT_TRUE(contentsOf(folder / "a.f5") == contentsOf(folder / "b.f5")) << nth;
      for (const auto& creator : clouds.creators) EXPECT_EQ(creator->timesMade(), 0);
    }
  }
}

TEST(GridStorage, WholeNumbersAreNotTakenForOtherGridsOrKinds) {
  const TempDir folder;
  const TwinClouds untouched(0);
  saveTo(folder / "a.f5", untouched.whole.bundle(), StorageKind::Deflate);
  EXPECT_EQ(untouched.creators[0]->timesAsked(), 0);
  TwinClouds clouds(0);
  CoordinateGrid finer = kSurveyGrid;
  for (AxisGrid& axis : finer) axis.scale = 0.001;
  setHint(clouds.whole, finer);
  setHint(clouds.plain, finer);
  saveTo(folder / "a.f5", clouds.plain.bundle());
  saveTo(folder / "b.f5", clouds.whole.bundle());
  EXPECT_TRUE(contentsOf(folder / "a.f5") == contentsOf(folder / "b.f5"));
  EXPECT_GT(clouds.creators[0]->timesAsked(), 0);
}

TEST(GridStorage, WholeNumbersOfAWrongLengthAreLeftAlone) {
  const TempDir folder;
  const TwinClouds clouds(0);
  clouds.creators[2]->cut();
  saveTo(folder / "a.f5", clouds.plain.bundle());
  saveTo(folder / "b.f5", clouds.whole.bundle());
  EXPECT_TRUE(contentsOf(folder / "a.f5") == contentsOf(folder / "b.f5"));
  EXPECT_EQ(clouds.creators[2]->timesMade(), 1);
}

TEST(GridStorage, OneFragmentOffTheGridMakesDoublesOfWholeNumbersToo) {
  const TempDir folder;
  const std::string file = folder / "a.f5";
  for (const std::size_t offGrid : {0U, 2U, 5U}) {
    for (const BatchSizes& sizes : {BatchSizes{}, BatchSizes{1, 0}}) {
      const TwinClouds clouds(0, offGrid);
      const bool restarts = sizes.group == 1 && offGrid != 0;
      EXPECT_EQ(writeInBatches(clouds.whole.bundle(), file, StorageKind::Grid, sizes),
                restarts ? 2 : 1);
      EXPECT_EQ(storedClass(file), H5T_FLOAT);
      expectRoundTrip(clouds.whole.bundle(), file);
    }
  }
}

TEST(GridStorage, StoredPositionsAreToBeHadAsTheirWholeNumbers) {
  const TempDir folder;
  CloudBuilder cloud;
  // Chunks that fragments share, and such that lie within one.
  for (const std::size_t count : {300U, 150000U, 70000U, 0U, 65536U}) {
    cloud.fragment(gridPoints(count, 0.01, 100, count));
  }
  setHint(cloud, kSurveyGrid);
  saveTo(folder / "a.f5", cloud.bundle());
  const BundlePtr back = loadBundle(folder / "a.f5");
  for (std::size_t k = 0; k < 5; ++k) {
    const CreatorHandle creator = creatorOf(*back, "Positions", k);
    CoordinateGrid other = kSurveyGrid;
    other[2].offset = 0;
    EXPECT_FALSE(bool(creator->gridPoints(other)));
    const GridPointsHandle numbers = creator->gridPoints(kSurveyGrid);
    ASSERT_TRUE(bool(numbers)) << creator->failure();
    const auto points = MemCore::handleCast<MemArray<1, Point>>(creator->data());
    EXPECT_TRUE(std::ranges::equal(pointsOf(*numbers)->span(), points->span())) << k;
  }
  saveTo(folder / "raw.f5", cloud.bundle(), StorageKind::Raw);
  const BundlePtr raw = loadBundle(folder / "raw.f5");
  EXPECT_FALSE(bool(creatorOf(*raw, "Positions")->gridPoints(kSurveyGrid)));
}

// Chunks that are stored alike stand for the same values, whatever lies between them.
TEST(GridStorage, ChunksOfConstantsAreReadLikeOthers) {
  const TempDir folder;
  constexpr std::size_t kCount = 600000;
  std::vector<Point> points(kCount);
  std::vector<unsigned short> intensity(kCount, 7);
  for (std::size_t i = 0; i < kCount; ++i) {
    points[i] = {1, 1, i < 400000 ? 2.0 : 3.0};
    if (i / 65536 == 3) intensity[i] = static_cast<unsigned short>(i);
  }
  CloudBuilder cloud;
  cloud.fragment(points).field("Intensity", intensity);
  cloud.fragment(std::vector<Point>(200000, Point{1, 1, 1}));
  cloud.field("Intensity", std::vector<unsigned short>(200000, 7));
  saveTo(folder / "a.f5", cloud.bundle());
  EXPECT_EQ(storedClass(folder / "a.f5"), H5T_INTEGER);
  expectRoundTrip(cloud.bundle(), folder / "a.f5");
}

TEST(GridStorage, StoredWholeNumbersOfFragmentsWithGridsOfTheirOwn) {
  const TempDir folder;
  CloudBuilder cloud;
  cloud.fragment(gridPoints(70000, 0.01, 202500, 6)).fragment(gridPoints(70000, 0.001, 0, 7));
  saveTo(folder / "a.f5", cloud.bundle());
  const BundlePtr back = loadBundle(folder / "a.f5");
  int found = 0;
  for (const std::size_t k : {0U, 1U}) {
    const CreatorHandle creator = creatorOf(*back, "Positions", k);
    for (const double offset : {0.0, 202500.0, 200000.0}) {
      for (const double scale : {0.01, 0.001}) {
        const CoordinateGrid grid{{{scale, offset}, {scale, offset}, {scale, offset}}};
        const GridPointsHandle numbers = creator->gridPoints(grid);
        if (!numbers) continue;
        ++found;
        const auto points = MemCore::handleCast<MemArray<1, Point>>(creator->data());
        EXPECT_TRUE(std::ranges::equal(pointsOf(*numbers)->span(), points->span())) << k;
      }
    }
  }
  EXPECT_EQ(found, 2);
}

TEST(GridStorage, DamagedWholeNumbersAreTold) {
  const TempDir folder;
  CloudBuilder cloud;
  cloud.fragment(gridPoints(70000, 0.01, 100, 9));
  setHint(cloud, kSurveyGrid);
  saveTo(folder / "a.f5", cloud.bundle());
  std::string content = contentsOf(folder / "a.f5");
  content[content.size() / 3] ^= 1;
  replaceFile(folder / "a.f5", content);
  const BundlePtr back = loadBundle(folder / "a.f5");
  ASSERT_TRUE(bool(back));
  const CreatorHandle creator = creatorOf(*back, "Positions");
  EXPECT_FALSE(bool(creator->gridPoints(kSurveyGrid)));
  EXPECT_FALSE(bool(creator->data()));
  EXPECT_THAT(creator->failure(), testing::HasSubstr("Positions: chunk: damaged"));
}

// What a host has changed in memory is saved, not what lies in the file.
TEST(GridStorage, ChangedPointsAreNotTakenFromTheFile) {
  const TempDir folder;
  CloudBuilder cloud;
  cloud.fragment(gridPoints(5000, 0.01, 100, 10));
  setHint(cloud, kSurveyGrid);
  saveTo(folder / "a.f5", cloud.bundle());
  const BundlePtr back = loadBundle(folder / "a.f5");
  const CreatorHandle creator = creatorOf(*back, "Positions");
  const auto points = MemCore::handleCast<MemArray<1, Point>>(creator->data());
  (*points)[7] = {123.25, 123.5, 123.75};
  creator->touch();
  EXPECT_FALSE(bool(creator->gridPoints(kSurveyGrid)));
  saveTo(folder / "b.f5", back, StorageKind::Grid, false);
  const BundlePtr changed = loadBundle(folder / "b.f5");
  const auto found =
      MemCore::handleCast<MemArray<1, Point>>(creatorOf(*changed, "Positions")->data());
  ASSERT_TRUE(bool(found));
  EXPECT_TRUE(std::ranges::equal(found->span(), points->span()));
}

TEST(GridStorage, BatchesOfAnySizeGiveTheSameBundle) {
  const TempDir folder;
  CloudBuilder cloud;
  for (std::uint64_t k = 0; k < 9; ++k) {
    const std::size_t count = k % 3 == 1 ? 0 : 20000 + 7 * k;
    std::vector<unsigned short> samples(5 * count, static_cast<unsigned short>(k));
    cloud.fragment(gridPoints(count, 0.01, 100, 40 + k)).waveforms("Waveforms", 5, samples);
  }
  for (const std::uint64_t batchBytes : {1U, 700000U, 100000000U}) {
    EXPECT_EQ(writeInBatches(cloud.bundle(), folder / "a.f5", StorageKind::Grid, {batchBytes, 0}),
              1);
    expectRoundTrip(cloud.bundle(), folder / "a.f5");
  }
}

TEST(GridStorage, FilesDoNotDependOnHowManyGroupsAreEncodedAtOnce) {
  const TempDir folder;
  CloudBuilder cloud;
  std::mt19937_64 random(5);
  for (std::uint64_t k = 0; k < 9; ++k) {
    const std::size_t count = 15000 + 7 * k;
    // Off any grid, so that the first chunk of rows decides on their filters.
    std::vector<Point> points = gridPoints(count, 0.01, 100, 40 + k);
    for (Point& point : points) point.z += static_cast<double>(random() % 1000) / 7e5;
    cloud.fragment(points).field("Intensity", std::vector<unsigned short>(count, 3));
  }
  const std::string file = folder / "a.f5";
  std::string expected;
  for (const std::uint64_t perThread :
       {std::uint64_t{0}, std::uint64_t{2000000}, ~std::uint64_t{0} >> 10U}) {
    writeInBatches(cloud.bundle(), file, StorageKind::Deflate, {700000, perThread});
    if (expected.empty()) expected = contentsOf(file);
    EXPECT_EQ(contentsOf(file) == expected, true) << perThread;
  }
}

}  // namespace
}  // namespace Fiber::Container
