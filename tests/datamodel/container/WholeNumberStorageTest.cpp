// SPDX-License-Identifier: Apache-2.0
//
// Positions that a source has as whole numbers of a grid: saved as such, and handed out again.

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cmath>

#include "datamodel/container/CoordinateGrid.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/GridSteps.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;
using MemCore::Chunk;
using MemCore::makeStrong;

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

/// Fails the test unless both clouds are saved as the same bytes.
void expectSameFile(const TwinClouds& clouds) {
  const TempDir folder;
  saveTo(folder / "a.f5", clouds.plain.bundle());
  saveTo(folder / "b.f5", clouds.whole.bundle());
  EXPECT_TRUE(contentsOf(folder / "a.f5") == contentsOf(folder / "b.f5"));
}

TEST(WholeNumberStorage, WholeNumbersOfASourceGiveTheFileThatItsPointsGive) {
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

TEST(WholeNumberStorage, WholeNumbersAreNotTakenForOtherGridsOrKinds) {
  const TempDir folder;
  const TwinClouds untouched(0);
  saveTo(folder / "a.f5", untouched.whole.bundle(), StorageKind::Deflate);
  EXPECT_EQ(untouched.creators[0]->timesAsked(), 0);
  TwinClouds clouds(0);
  CoordinateGrid finer = kSurveyGrid;
  for (AxisGrid& axis : finer) axis.scale = 0.001;
  setHint(clouds.whole, finer);
  setHint(clouds.plain, finer);
  expectSameFile(clouds);
  EXPECT_GT(clouds.creators[0]->timesAsked(), 0);
}

TEST(WholeNumberStorage, WholeNumbersOfAWrongLengthAreLeftAlone) {
  const TwinClouds clouds(0);
  clouds.creators[2]->cut();
  expectSameFile(clouds);
  EXPECT_EQ(clouds.creators[2]->timesMade(), 1);
}

TEST(WholeNumberStorage, OneFragmentOffTheGridMakesDoublesOfWholeNumbersToo) {
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

TEST(WholeNumberStorage, StoredPositionsAreToBeHadAsTheirWholeNumbers) {
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
TEST(WholeNumberStorage, ChunksOfConstantsAreReadLikeOthers) {
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

TEST(WholeNumberStorage, StoredWholeNumbersOfFragmentsWithGridsOfTheirOwn) {
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

TEST(WholeNumberStorage, DamagedWholeNumbersAreTold) {
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
TEST(WholeNumberStorage, ChangedPointsAreNotTakenFromTheFile) {
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

}  // namespace
}  // namespace Fiber::Container
