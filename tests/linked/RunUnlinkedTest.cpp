// SPDX-License-Identifier: Apache-2.0

#include <algorithm>

#include "tests/operation/SplitFixture.hpp"
#include "tests/operation/UnreadablePositions.hpp"

namespace LidarLib::TestSupport {

namespace {

PointHandle pointHandle(double x, double y, double z) {
  return MemCore::makeStrong<MemCore::Chunk<Point>>(1, Point{x, y, z});
}

/// Refuses in one slice and accepts ever after.
class RefuseOnce final : public MemCore::LoaderProgress {
 public:
  bool report(const std::string&, std::uint64_t, std::uint64_t) override { return asked_++ > 0; }

 private:
  int asked_ = 0;
};

class RunUnlinkedTest : public SplitFixture {
 protected:
  static std::vector<Point> row(std::size_t count, double x) {
    std::vector<Point> points;
    for (std::size_t i = 0; i < count; ++i) points.push_back({x, 0.01 * static_cast<double>(i), 0});
    return points;
  }

  /// All files of the folder, temporaries included.
  std::set<std::string> files() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }

  std::size_t pointsOf(const std::string& file, double time, const std::string& grid) const {
    const auto found = (*load(file))[time]->findGrid(grid);
    return found ? fieldValues<Point>(*found, "Positions").size() : 0;
  }
};

}  // namespace

TEST_F(RunUnlinkedTest, WithoutInputBundleNothingIsDone) {
  RefragmentAndSplit operation;
  prepare(operation, Fiber::BundlePtr());
  EXPECT_FALSE(operation.RunUnlinked());
  EXPECT_EQ(operation.messages, std::list<std::string>{"bundleptr is null"});
  EXPECT_TRUE(files().empty());
}

TEST_F(RunUnlinkedTest, AllTilesAreFragmentsOfOneFile) {
  CloudBuilder cloud;
  cloud.grid("scan").fragment({{0, 0, 0}, {15, 5, 1}}).field<double>("GpsTime", {10, 11});
  cloud.fragment({{3, 3, 2}}).field<double>("GpsTime", {12});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  ASSERT_TRUE(operation.RunUnlinked());
  EXPECT_TRUE(operation.messages.empty());
  EXPECT_EQ(files(), std::set<std::string>{"out.f5"}) << "no folder of tiles, no temporary";
  const auto grid = (*load("out.f5"))[0.0]->findGrid("scan");
  ASSERT_TRUE(grid);
  const auto positions = grid->CartesianPositions();
  std::vector<std::string> names;
  for (const auto& id : positions->getFragmentIDs()) {
    if (positions->getCreator(id)) names.push_back(id->name());
  }
  EXPECT_EQ(names, (std::vector<std::string>{"[0x0x0]", "[1x0x0]"}));
  auto times = fieldValues<double>(*grid, "GpsTime");
  std::sort(times.begin(), times.begin() + 2);
  EXPECT_EQ(times, (std::vector<double>{10, 12, 11}));
}

TEST_F(RunUnlinkedTest, EmptyOutputFileNamePutsTheGridIntoTheInputBundle) {
  CloudBuilder cloud;
  cloud.grid("scan").fragment({{0, 0, 0}, {15, 5, 1}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.outputFileName.clear();
  operation.outputGridName = "tiles";
  ASSERT_TRUE(operation.RunUnlinked());
  EXPECT_TRUE(operation.messages.empty());
  EXPECT_TRUE(files().empty());
  const auto grid = (*cloud.bundle())[0.0]->findGrid("tiles");
  ASSERT_TRUE(grid);
  EXPECT_EQ(fieldValues<Point>(*grid, "Positions"), (std::vector<Point>{{0, 0, 0}, {15, 5, 1}}));
  EXPECT_EQ((*cloud.bundle())[0.0]->grids().size(), 2U) << "the new grid is not tiled in turn";
}

TEST_F(RunUnlinkedTest, TileOfExactlyMinPointNumberIsDropped) {
  CloudBuilder cloud;
  cloud.grid("g").fragment(row(100, 1)).fragment(row(101, 15));
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.MinPointNumber = 100;
  ASSERT_TRUE(operation.RunUnlinked());
  EXPECT_TRUE(console.contains("Fragment will be dumped. Low Point Size=100"));
  EXPECT_FALSE(console.contains("Low Point Size=101"));
  EXPECT_EQ(pointsOf("out.f5", 0.0, "g"), 101U);
  EXPECT_EQ(console.messages().back(),
            "\t!!!!! Warning, Out file (101) has viewer points than in file (201) !!!!! ");
}

TEST_F(RunUnlinkedTest, TwoGridsUnderMyGridShareTheFirstName) {
  CloudBuilder cloud;
  cloud.grid("a").fragment({{1, 1, 0}, {2, 2, 0}}).grid("b").fragment({{15, 1, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.StartPoint = pointHandle(0, 0, 0);
  operation.EndPoint = pointHandle(20, 10, 0);
  ASSERT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(operation.outputGridName, "a");
  const auto output = load("out.f5");
  EXPECT_EQ((*output)[0.0]->grids().size(), 1U);
  EXPECT_EQ(fieldValues<Point>(*(*output)[0.0]->findGrid("a"), "Positions").size(), 3U);
  EXPECT_FALSE(console.contains("viewer points")) << "both totals add up over the grids";
}

TEST_F(RunUnlinkedTest, SecondGridWritesOverTheTileOfTheFirst) {
  CloudBuilder cloud;
  cloud.grid("a").fragment({{1, 1, 0}, {2, 2, 0}, {3, 3, 0}}).field<double>("V", {1, 2, 3});
  cloud.grid("b").fragment({{5, 5, 0}}).field<double>("V", {4});
  const auto budget = MemCore::Cache::MemCache()->budget();
  for (const std::uint64_t bytes : {budget, std::uint64_t{0}}) {
    MemCore::Cache::MemCache()->setBudget(bytes);
    RefragmentAndSplit operation;
    prepare(operation, cloud.bundle());
    operation.StartPoint = pointHandle(0, 0, 0);
    operation.EndPoint = pointHandle(10, 10, 0);
    ASSERT_TRUE(operation.RunUnlinked());
    const auto grid = (*load("out.f5"))[0.0]->findGrid("a");
    EXPECT_EQ(fieldValues<double>(*grid, "V"), (std::vector<double>{4, 2, 3})) << bytes;
  }
  MemCore::Cache::MemCache()->setBudget(budget);
}

TEST_F(RunUnlinkedTest, InterruptionLeavesOutTheRestOfTheSliceOnly) {
  CloudBuilder cloud;
  cloud.time(0).grid("a").fragment({{0, 0, 0}, {15, 5, 0}}).grid("b").fragment({{0, 0, 0}});
  cloud.time(1).grid("c").fragment({{0, 0, 0}, {15, 5, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.outputGridName = "tiles";
  operation.tileProgress = MemCore::makeStrong<RefuseOnce>();
  EXPECT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(operation.messages, std::list<std::string>{"Interrupted"});
  EXPECT_EQ(pointsOf("out.f5", 0.0, "tiles"), 0U);
  EXPECT_EQ(pointsOf("out.f5", 1.0, "tiles"), 2U);
}

TEST_F(RunUnlinkedTest, ProgressCountsTheTilesWithDataOfEachGrid) {
  CloudBuilder cloud;
  cloud.grid("a").fragment({{0, 0, 0}, {1, 1, 0}}).fragment({{25, 0, 0}});
  cloud.grid("b").fragment({{0, 0, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.StartPoint = pointHandle(0, 0, 0);
  operation.EndPoint = pointHandle(30, 10, 0);
  const auto progress = MemCore::makeStrong<RecordingProgress>(true);
  operation.tileProgress = progress;
  ASSERT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(progress->calls,
            (std::vector<std::string>{"Tiling # 0/2", "Tiling # 1/2", "Tiling # 0/1"}));
}

TEST_F(RunUnlinkedTest, GridWithoutPositionsIsSkippedAndTheNextProcessed) {
  CloudBuilder cloud;
  cloud.grid("a").grid("b").fragment({{0, 0, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.outputGridName = "tiles";
  EXPECT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(operation.messages,
            std::list<std::string>{"Warning: Some grid(s) have no input positions"});
  EXPECT_EQ(pointsOf("out.f5", 0.0, "tiles"), 1U);
}

TEST_F(RunUnlinkedTest, FailedTilingSkipsTheRestOfTheSliceButNotLaterOnes) {
  CloudBuilder cloud;
  cloud.time(0).grid("a").fragment({{0, 0, 0}, {1e9, 1e9, 0}}).grid("b").fragment({{0, 0, 0}});
  cloud.time(1).grid("c").fragment({{0, 0, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.outputGridName = "tiles";
  EXPECT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(operation.messages, std::list<std::string>{"Number of fragments is over 50 Million!"});
  EXPECT_EQ(pointsOf("out.f5", 1.0, "tiles"), 1U);
}

TEST_F(RunUnlinkedTest, FailedOutputGridSkipsTheRestOfTheSlice) {
  CloudBuilder cloud;
  cloud.grid("a").fragment({{0, 0, 0}}).grid("b").fragment({{0, 0, 0}, {25, 5, 0}});
  cloud.grid("c").fragment({{0, 0, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  EXPECT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(operation.messages, std::list<std::string>{"no output positions"});
}

TEST_F(RunUnlinkedTest, TilingWithoutDataVisitsNoTileAndStillGetsItsAttributes) {
  CloudBuilder cloud;
  cloud.grid("g").fragment({{0, 0, 0}, {5, 5, 1}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.outputFileName.clear();
  operation.outputGridName = "tiles";
  operation.StartPoint = pointHandle(100, 100, 0);
  operation.EndPoint = pointHandle(120, 110, 1);
  const auto progress = MemCore::makeStrong<RecordingProgress>(true);
  operation.tileProgress = progress;
  EXPECT_TRUE(operation.RunUnlinked());
  EXPECT_TRUE(operation.messages.empty());
  EXPECT_TRUE(progress->calls.empty()) << "no tile is visited";
  const auto positions = (*cloud.bundle())[0.0]->findGrid("tiles")->CartesianPositions();
  const auto box = positions->findInterface<Eagle::BoundingBox>();
  ASSERT_TRUE(box);
  EXPECT_EQ(box->max(), (Point{120, 110, 1}));
}

TEST_F(RunUnlinkedTest, TilingOfNoTilesIsRefusedWithItsMessage) {
  // 2^32 x 2^32 tiles are none in 64 bits.
  CloudBuilder cloud;
  cloud.grid("g").fragment({{0, 0, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.FragmentLength = {{1, 1, 0}};
  operation.StartPoint = pointHandle(0, 0, 0);
  operation.EndPoint = pointHandle(4294967296.0, 4294967296.0, 0);
  EXPECT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(operation.messages, std::list<std::string>{"Number of fragments is zero!"});
}

TEST_F(RunUnlinkedTest, KeptTileWithoutPositionsAddsNothingToTheTotal) {
  CloudBuilder cloud;
  cloud.grid("g").fragment({{0, 0, 0}, {5, 5, 1}}).field<double>("V", {1, 2});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.fieldFilter = {"V"};
  EXPECT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(console.messages().back(),
            "\t!!!!! Warning, Out file (0) has viewer points than in file (2) !!!!! ");
}

TEST_F(RunUnlinkedTest, OutputPositionsCarryTheTiledBoxAndNoCellSize) {
  CloudBuilder cloud;
  cloud.grid("g").fragment({{0, 0, 0}, {15, 5, 1}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  ASSERT_TRUE(operation.RunUnlinked());
  const auto positions = (*load("out.f5"))[0.0]->findGrid("g")->CartesianPositions();
  const auto box = positions->findInterface<Eagle::BoundingBox>();
  ASSERT_TRUE(box);
  EXPECT_EQ(box->max(), (Point{20, 10, 1}));
  const auto size = MemCore::handleCast<MemCore::Chunk<double>>(
      positions->getFirstCreator()->attributes().getAttribute("CellSize"));
  ASSERT_TRUE(size);
  EXPECT_EQ((*size)[0], -1.0);
}

TEST_F(RunUnlinkedTest, UnreadableFragmentFailsItsTileInsteadOfLosingPoints) {
  CloudBuilder cloud;
  cloud.grid("g").fragmentOf(MemCore::makeStrong<UnreadablePositions>());
  cloud.fragment({{15, 1, 0}, {16, 1, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  EXPECT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(operation.messages,
            std::list<std::string>{folder / "out.f5" + ": tile [0x0x0]: not written: survey.laz: "
                                                       "chunk 3 is damaged"});
  EXPECT_EQ(pointsOf("out.f5", 0.0, "g"), 2U);
}

TEST_F(RunUnlinkedTest, OutputThatCannotBeMadeIsReportedBeforeAnyWork) {
  CloudBuilder cloud;
  cloud.grid("g").fragment({{0, 0, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.outputFileName = folder / "no/such/folder/out.f5";
  const auto progress = MemCore::makeStrong<RecordingProgress>(true);
  operation.tileProgress = progress;
  EXPECT_TRUE(operation.RunUnlinked());
  ASSERT_EQ(operation.messages.size(), 1U);
  EXPECT_NE(operation.messages.front().find(operation.outputFileName), std::string::npos);
  EXPECT_TRUE(progress->calls.empty());
}

TEST_F(RunUnlinkedTest, FileIsUnseenUntilItIsComplete) {
  class Watcher final : public MemCore::LoaderProgress {
   public:
    explicit Watcher(std::filesystem::path folder) : folder_(std::move(folder)) {}
    bool report(const std::string&, std::uint64_t, std::uint64_t) override {
      seen += std::filesystem::is_empty(folder_) ? 0 : 1;
      ++asked;
      return true;
    }
    int seen = 0;
    int asked = 0;

   private:
    std::filesystem::path folder_;
  };
  CloudBuilder cloud;
  cloud.grid("g").fragment({{0, 0, 0}, {15, 5, 1}, {25, 5, 1}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  const auto watcher = MemCore::makeStrong<Watcher>(folder.path());
  operation.tileProgress = watcher;
  ASSERT_TRUE(operation.RunUnlinked());
  EXPECT_EQ(watcher->asked, 3);
  EXPECT_EQ(watcher->seen, 0) << "not even a temporary";
  EXPECT_EQ(pointsOf("out.f5", 0.0, "g"), 3U);
}

}  // namespace LidarLib::TestSupport
