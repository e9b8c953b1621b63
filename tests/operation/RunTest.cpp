// SPDX-License-Identifier: Apache-2.0

#include "tests/operation/SplitFixture.hpp"

#include <algorithm>

#include "planning/TilingAttributes.hpp"

namespace LidarLib::TestSupport {

namespace {

class RunTest : public SplitFixture {};

PointHandle pointHandle(double x, double y, double z) {
  return MemCore::makeStrong<MemCore::Chunk<Point>>(1, Point{x, y, z});
}

/// Two tiles of edge 10: three points left, two right.
CloudBuilder twoTiles() {
  CloudBuilder cloud;
  cloud.grid("scan")
      .fragment({{0, 0, 0}, {12, 1, 2}, {4, 4, 1}})
      .field<double>("GpsTime", {10, 11, 12})
      .fragment({{20, 10, 3}, {5, 5, 0}})
      .field<double>("GpsTime", {13, 14});
  return cloud;
}

}  // namespace

TEST_F(RunTest, WritesOneFilePerTileAndLinksThem) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  ASSERT_TRUE(operation.Run());
  EXPECT_TRUE(operation.messages.empty());
  EXPECT_EQ(tileFiles(),
            (std::set<std::string>{"F0x0x0T0.000000Gscan.f5", "F1x0x0T0.000000Gscan.f5"}));
  const auto tile = load("out/F0x0x0T0.000000Gscan.f5");
  const auto tileGrid = (*(*tile)[0.0]).findGrid("scan");
  ASSERT_TRUE(tileGrid);
  auto times = fieldValues<double>(*tileGrid, "GpsTime");
  std::sort(times.begin(), times.end());
  EXPECT_EQ(times, (std::vector<double>{10, 12, 14}));
  const auto linked = load("out.f5");
  const auto linkedGrid = (*(*linked)[0.0]).findGrid("scan");
  ASSERT_TRUE(linkedGrid);
  EXPECT_EQ(fieldValues<Point>(*linkedGrid, "Positions").size(), 5U);
}

TEST_F(RunTest, TileHasOneFragmentNamedAfterItsIndex) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  ASSERT_TRUE(operation.Run());
  const auto tile = load("out/F1x0x0T0.000000Gscan.f5");
  const auto positions = (*(*tile)[0.0]).findGrid("scan")->CartesianPositions();
  ASSERT_EQ(positions->getFragmentIDs().size(), 1U);
  EXPECT_EQ(positions->getFragmentIDs().front()->name(), "[1x0x0]");
}

TEST_F(RunTest, TwoGridsUnderMyGridShareTheFirstName) {
  CloudBuilder cloud;
  cloud.grid("a").fragment({{1, 1, 0}, {2, 2, 0}}).grid("b").fragment({{15, 1, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.StartPoint = pointHandle(0, 0, 0);
  operation.EndPoint = pointHandle(20, 10, 0);
  ASSERT_TRUE(operation.Run());
  EXPECT_EQ(operation.outputGridName, "a");
  EXPECT_EQ(tileFiles(), (std::set<std::string>{"F0x0x0T0.000000Ga.f5", "F1x0x0T0.000000Ga.f5"}));
  const auto linked = load("out.f5");
  EXPECT_EQ((*linked)[0.0]->grids().size(), 1U);
  EXPECT_EQ(fieldValues<Point>(*(*linked)[0.0]->findGrid("a"), "Positions").size(), 3U);
}

TEST_F(RunTest, InputTotalIsTheLastGridsWhileTheOutputTotalAddsUp) {
  CloudBuilder cloud;
  cloud.grid("a").fragment({{1, 1, 0}, {2, 2, 0}}).grid("b").fragment({{15, 1, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.StartPoint = pointHandle(0, 0, 0);
  operation.EndPoint = pointHandle(20, 10, 0);
  ASSERT_TRUE(operation.Run());
  EXPECT_EQ(console.messages().back(),
            "\t!!!!! Warning, Out file (3) has viewer points than in file (1) !!!!! ");
}

TEST_F(RunTest, SecondRunKeepsEveryFileAndLinksAgain) {
  const auto cloud = twoTiles();
  RefragmentAndSplit first;
  prepare(first, cloud.bundle());
  ASSERT_TRUE(first.Run());
  const std::string linked = readFile("out.f5");
  // A marked file shows that it is neither rebuilt nor overwritten.
  const auto tile = folder.path() / "out" / "F0x0x0T0.000000Gscan.f5";
  const auto stamp = std::filesystem::file_time_type::clock::now() - std::chrono::hours(24);
  std::filesystem::last_write_time(tile, stamp);
  const auto before = std::filesystem::last_write_time(tile);
  std::filesystem::remove(folder / "out.f5");

  RefragmentAndSplit second;
  prepare(second, cloud.bundle());
  ASSERT_TRUE(second.Run());
  EXPECT_EQ(std::filesystem::last_write_time(tile), before);
  const auto again = load("out.f5");
  EXPECT_EQ(fieldValues<Point>(*(*again)[0.0]->findGrid("scan"), "Positions").size(), 5U);
}

TEST_F(RunTest, TileOfExactlyMinPointNumberIsDropped) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  operation.MinPointNumber = 2;
  ASSERT_TRUE(operation.Run());
  EXPECT_EQ(tileFiles(), (std::set<std::string>{"F0x0x0T0.000000Gscan.f5"}));
  EXPECT_TRUE(console.contains("Fragment will be dumped. Low Point Size=2"));
  EXPECT_EQ(console.messages().back(),
            "\t!!!!! Warning, Out file (3) has viewer points than in file (5) !!!!! ");
}

TEST_F(RunTest, TileWithoutSelectedPointsIsDroppedSilently) {
  // The fragment's box spans three tiles; the middle one holds no point.
  CloudBuilder cloud;
  cloud.grid("g").fragment({{0, 0, 0}, {25, 0, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  ASSERT_TRUE(operation.Run());
  EXPECT_EQ(tileFiles(), (std::set<std::string>{"F0x0x0T0.000000Gg.f5", "F2x0x0T0.000000Gg.f5"}));
  EXPECT_FALSE(console.contains("dumped"));
}

TEST_F(RunTest, ProgressThatRefusesFromTheStartLeavesNoTile) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  const auto progress = MemCore::makeStrong<RecordingProgress>(false);
  operation.tileProgress = progress;
  ASSERT_TRUE(operation.Run());
  EXPECT_TRUE(tileFiles().empty());
  EXPECT_EQ(operation.messages, (std::list<std::string>{"Interrupted", "Interrupted"}));
  EXPECT_TRUE(std::filesystem::exists(folder / "out.f5"));
  EXPECT_EQ(progress->calls.size(), 2U);
}

TEST_F(RunTest, ProgressIsAskedPerTileWithData) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  const auto progress = MemCore::makeStrong<RecordingProgress>(true);
  operation.tileProgress = progress;
  ASSERT_TRUE(operation.Run());
  ASSERT_EQ(progress->calls.size(), 2U);
  for (const std::string& call : progress->calls) {
    EXPECT_EQ(call.rfind("Tiling # ", 0), 0U) << call;
    EXPECT_EQ(call.substr(call.size() - 2), "/2") << call;
  }
}

TEST_F(RunTest, TimeStandsInEveryFileName) {
  CloudBuilder cloud;
  cloud.time(1.5).grid("g").fragment({{0, 0, 0}, {15, 0, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  ASSERT_TRUE(operation.Run());
  EXPECT_EQ(tileFiles(), (std::set<std::string>{"F0x0x0T1.500000Gg.f5", "F1x0x0T1.500000Gg.f5"}));
}

TEST_F(RunTest, StemOfTheOutputNamesTheFolderOfTheTiles) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  operation.outputFileName = folder / "scan.part.f5";
  ASSERT_TRUE(operation.Run());
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "scan.part" / "F0x0x0T0.000000Gscan.f5"));
}

TEST_F(RunTest, FolderOfTheStemIsMadeInTheWorkingDirectory) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  operation.outputDirectory = folder / "elsewhere";
  ASSERT_TRUE(operation.Run());
  EXPECT_TRUE(std::filesystem::is_directory(folder / "out"));
  EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
  EXPECT_EQ(operation.messages.size(), 2U) << "each tile tells that it could not be written";
}

TEST_F(RunTest, TilesAndOutputCarryTheTilingAttributes) {
  RefragmentAndSplit operation;
  auto cloud = twoTiles();
  cloud.gridAttribute<unsigned int>("FragDims", {9, 9, 9}).gridAttribute<double>("Own", {2.5});
  prepare(operation, cloud.bundle());
  operation.NormalizedOverlap = 0.1;
  ASSERT_TRUE(operation.Run());
  for (const char* file : {"out.f5", "out/F0x0x0T0.000000Gscan.f5"}) {
    const auto bundle = load(file);
    const auto& attributes = (*bundle)[0.0]->findGrid("scan")->attributes();
    const auto dims = MemCore::chunkCast<unsigned int>(attributes.getAttribute(kFragDimsAttribute));
    ASSERT_TRUE(dims) << file;
    EXPECT_EQ(std::vector<unsigned int>(dims->begin(), dims->end()),
              (std::vector<unsigned int>{2, 1, 1}));
    const auto length = MemCore::chunkCast<Point>(attributes.getAttribute(kFragLengthAttribute));
    ASSERT_TRUE(length) << file;
    EXPECT_EQ((*length)[0], (Point{10, 10, 3}));
    const auto overlap = MemCore::chunkCast<double>(attributes.getAttribute(kOverlapAttribute));
    ASSERT_TRUE(overlap) << file;
    EXPECT_EQ((*overlap)[0], 0.1);
    const auto own = MemCore::chunkCast<double>(attributes.getAttribute("Own"));
    ASSERT_TRUE(own) << file;
    EXPECT_EQ((*own)[0], 2.5);
  }
}

TEST_F(RunTest, OutputPositionsCarryTheTiledBox) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  operation.FragmentLength = {{12.0, 12.0, 0.0}};
  ASSERT_TRUE(operation.Run());
  const auto linked = load("out.f5");
  const auto positions = (*linked)[0.0]->findGrid("scan")->CartesianPositions();
  const auto box = positions->findInterface<Eagle::BoundingBox>();
  ASSERT_TRUE(box);
  EXPECT_EQ(box->min(), (Point{0, 0, 0}));
  EXPECT_EQ(box->max(), (Point{24, 12, 3}));
}

TEST_F(RunTest, TilePositionsHaveNoCellSize) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  ASSERT_TRUE(operation.Run());
  const auto tile = load("out/F0x0x0T0.000000Gscan.f5");
  const auto creator = (*tile)[0.0]->findGrid("scan")->CartesianPositions()->getFirstCreator();
  ASSERT_TRUE(creator);
  const auto size = MemCore::chunkCast<double>(creator->attributes().getAttribute("CellSize"));
  ASSERT_TRUE(size);
  EXPECT_EQ((*size)[0], -1.0);
}

TEST_F(RunTest, RejectedFieldIsNotCopied) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  operation.fieldFilter = {"Positions"};
  ASSERT_TRUE(operation.Run());
  const auto tile = load("out/F0x0x0T0.000000Gscan.f5");
  const auto grid = (*tile)[0.0]->findGrid("scan");
  EXPECT_FALSE(grid->getCartesianRepresentation("")->findField("GpsTime"));
  EXPECT_EQ(fieldValues<Point>(*grid, "Positions").size(), 3U);
}

TEST_F(RunTest, ConsoleNamesTheGridFirst) {
  RefragmentAndSplit operation;
  prepare(operation, twoTiles().bundle());
  ASSERT_TRUE(operation.Run());
  ASSERT_FALSE(console.messages().empty());
  EXPECT_EQ(console.messages().front(), "RefragmentAndSplit2: Grid: scan");
}

TEST_F(RunTest, TimesAreSelectedByTheFilter) {
  CloudBuilder cloud;
  cloud.time(0.0).grid("g").fragment({{0, 0, 0}, {5, 5, 0}});
  cloud.time(2.0).grid("g").fragment({{0, 0, 0}, {5, 5, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.timeFilter = {2.0};
  ASSERT_TRUE(operation.Run());
  EXPECT_EQ(tileFiles(), (std::set<std::string>{"F0x0x0T2.000000Gg.f5"}));
}

}  // namespace LidarLib::TestSupport
