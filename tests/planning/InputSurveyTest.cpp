// SPDX-License-Identifier: Apache-2.0

#include "planning/InputSurvey.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/planning/PlanningScene.hpp"
#include "tests/support/ConsoleCapture.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib {

namespace {

using MemCore::makeStrong;
using TestSupport::BoxHandle;
using TestSupport::CloudBuilder;
using TestSupport::ConsoleCapture;
using TestSupport::Point;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
const std::string kNegative = "Length for bounding box is negative. Wrong input";

PointHandle at(double x, double y, double z) {
  return makeStrong<MemCore::Chunk<Point>>(1, Point{x, y, z});
}

/// The survey together with its message, which held something before.
struct Surveyed {
  GridSurvey survey;
  std::string message;
};

Surveyed surveyed(CloudBuilder& cloud, const PointHandle& start = nullptr,
                  const PointHandle& end = nullptr) {
  std::string message = "before";
  const GridSurvey survey = surveyGrid(*cloud.currentGrid(), start, end, message);
  return {survey, message};
}

void expectFailed(const Surveyed& result, const std::string& message) {
  EXPECT_EQ(result.message, message);
  EXPECT_FALSE(result.survey.hasWaveforms);
  EXPECT_FALSE(result.survey.globalBox);
  EXPECT_FALSE(result.survey.representation);
  EXPECT_FALSE(result.survey.positions);
}

CloudBuilder smallCloud() {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}, {10, 20, 30}}).fragment({{-5, 4, 4}});
  return cloud;
}

Fiber::CreatorHandle rasterCreator() {
  return makeStrong<Fiber::MemoryCreator>(makeStrong<Fiber::UniformCartesianArray>(
      std::array<std::uint64_t, 3>{4, 4, 1}, Point{0, 0, 0},
      Eagle::FixedArray<double, 3>{{1, 1, 1}}));
}

}  // namespace

TEST(InputSurvey, CloudGivesPositionsRepresentationAndBox) {
  CloudBuilder cloud = smallCloud();
  const Surveyed result = surveyed(cloud);
  EXPECT_EQ(result.message, "before");
  EXPECT_EQ(result.survey.positions, cloud.positions());
  EXPECT_EQ(result.survey.representation, cloud.currentGrid()->getCartesianRepresentation(""));
  EXPECT_TRUE(result.survey.representation);
  EXPECT_EQ(result.survey.globalBox->min(), (Point{-5, 0, 0}));
  EXPECT_EQ(result.survey.globalBox->max(), (Point{10, 20, 30}));
  EXPECT_FALSE(result.survey.hasWaveforms);
}

TEST(InputSurvey, GridWithoutPositionsIsRefused) {
  CloudBuilder cloud;
  cloud.grid("bare");
  expectFailed(surveyed(cloud), "Warning: Some grid(s) have no input positions");
}

TEST(InputSurvey, PositionsInAnotherChartDoNotCount) {
  CloudBuilder cloud;
  const auto other = cloud.currentGrid()->makeCartesianRepresentation(3, "OtherChart", 0);
  other->setPositions(TestSupport::positionsOf({{{1, 2, 3}}}));
  expectFailed(surveyed(cloud), "Warning: Some grid(s) have no input positions");
}

TEST(InputSurvey, RasterIsRefused) {
  CloudBuilder cloud;
  cloud.fragmentOf(rasterCreator());
  expectFailed(surveyed(cloud), "Error: This grid is a raster");
}

TEST(InputSurvey, RasterIsRefusedEvenWithBothPointsGiven) {
  CloudBuilder cloud;
  cloud.fragmentOf(rasterCreator());
  expectFailed(surveyed(cloud, at(0, 0, 0), at(1, 1, 1)), "Error: This grid is a raster");
}

TEST(InputSurvey, RasterMadeOnDemandIsRefused) {
  CloudBuilder cloud;
  cloud.fragmentOf(
      makeStrong<TestSupport::WatchedCreator>(Fiber::ArrayFacts{}, rasterCreator()->data()));
  expectFailed(surveyed(cloud), "Error: This grid is a raster");
}

TEST(InputSurvey, OnlyTheFirstCreatorTellsARaster) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}, {1, 1, 1}}).fragmentOf(rasterCreator());
  EXPECT_TRUE(surveyed(cloud).survey.positions);
}

TEST(InputSurvey, FieldWithoutCreatorPassesTheRasterTest) {
  CloudBuilder cloud;
  cloud.fragmentOf(nullptr);
  expectFailed(surveyed(cloud), "no global bbox for");
  EXPECT_TRUE(surveyed(cloud, at(0, 0, 0), at(1, 1, 1)).survey.positions);
}

TEST(InputSurvey, CloudWithoutABoxIsRefused) {
  CloudBuilder empty;
  empty.fragment({}).fragment({{kNaN, 1, 1}});
  expectFailed(surveyed(empty), "no global bbox for");
}

TEST(InputSurvey, UnreadablePositionsAreRefused) {
  CloudBuilder cloud;
  cloud.fragmentOf(makeStrong<TestSupport::WatchedCreator>(Fiber::ArrayFacts{}));
  expectFailed(surveyed(cloud), "no global bbox for");
}

TEST(InputSurvey, StartBeyondTheDataIsRefusedAndSaidOnTheConsole) {
  const ConsoleCapture console;
  CloudBuilder cloud = smallCloud();
  expectFailed(surveyed(cloud, at(0, 20.5, 0)), "no global bbox for");
  EXPECT_EQ(console.only(), kNegative);
}

TEST(InputSurvey, StartAboveEndIsRefused) {
  const ConsoleCapture console;
  CloudBuilder cloud = smallCloud();
  expectFailed(surveyed(cloud, at(0, 0, 2), at(9, 9, 1)), "no global bbox for");
  EXPECT_EQ(console.only(), kNegative);
}

TEST(InputSurvey, NoBoxIsNoNegativeEdge) {
  const ConsoleCapture console;
  CloudBuilder cloud;
  cloud.fragment({});
  surveyed(cloud);
  EXPECT_TRUE(console.messages().empty());
}

TEST(InputSurvey, WaveformsOfEitherNameAreNoted) {
  CloudBuilder plain = smallCloud();
  plain.waveforms<unsigned short>("Waveforms", 2, {1, 2});
  EXPECT_TRUE(surveyed(plain).survey.hasWaveforms);
  CloudBuilder hp = smallCloud();
  hp.waveforms<unsigned short>("Waveforms_hp", 2, {1, 2});
  EXPECT_TRUE(surveyed(hp).survey.hasWaveforms);
  CloudBuilder lengthsOnly = smallCloud();
  lengthsOnly.field<unsigned short>("FWFLength", {2});
  EXPECT_FALSE(surveyed(lengthsOnly).survey.hasWaveforms);
}

TEST(GridBox, BothPointsAreTakenAsTheyAreAndNoDataAreRead) {
  const auto creator = TestSupport::lazyPoints({{0, 0, 0}, {1, 1, 1}});
  const auto positions = CloudBuilder().fragmentOf(creator).positions();
  const BoxHandle box = computeGridBox(at(100, 100, 100), at(101, 102, 103), positions);
  EXPECT_EQ(box->min(), (Point{100, 100, 100}));
  EXPECT_EQ(box->max(), (Point{101, 102, 103}));
  EXPECT_EQ(creator->createCalls, 0);
}

TEST(GridBox, BothPointsNeedNoPositions) {
  EXPECT_TRUE(computeGridBox(at(0, 0, 0), at(1, 1, 1), nullptr));
  EXPECT_FALSE(computeGridBox(at(0, 0, 0), nullptr, nullptr));
}

TEST(GridBox, OnePointReplacesItsCornerAndTheSphereFollows) {
  CloudBuilder cloud = smallCloud();
  const BoxHandle fromStart = computeGridBox(at(4, 16, 30), nullptr, cloud.positions());
  EXPECT_EQ(fromStart->min(), (Point{4, 16, 30}));
  EXPECT_EQ(fromStart->max(), (Point{10, 20, 30}));
  EXPECT_EQ(fromStart->ballCentre(), (Point{7, 18, 30}));
  EXPECT_DOUBLE_EQ(fromStart->ballRadius(), std::sqrt(52.0) / 2);
  const BoxHandle toEnd = computeGridBox(nullptr, at(-5, 3, 4), cloud.positions());
  EXPECT_EQ(toEnd->min(), (Point{-5, 0, 0}));
  EXPECT_EQ(toEnd->max(), (Point{-5, 3, 4}));
  EXPECT_DOUBLE_EQ(toEnd->ballRadius(), 2.5);
}

TEST(GridBox, ChunkWithoutPointIsNoPoint) {
  CloudBuilder cloud = smallCloud();
  const auto nothing = makeStrong<MemCore::Chunk<Point>>();
  EXPECT_EQ(computeGridBox(nothing, nothing, cloud.positions())->max(), (Point{10, 20, 30}));
}

TEST(GridBox, FlatCloudPasses) {
  const BoxHandle box =
      computeGridBox(nullptr, nullptr, TestSupport::positionsOf({{{0, 0, 7}, {1, 1, 7}}}));
  EXPECT_EQ(box->diagonal()[2], 0.0);
}

TEST(GridBox, EdgeThatIsNoNumberPasses) {
  const ConsoleCapture console;
  EXPECT_TRUE(computeGridBox(at(0, 0, kNaN), at(1, 1, 1), nullptr));
  EXPECT_TRUE(console.messages().empty());
}

TEST(GridBox, CornerReplacementLeavesTheDatasOwnBoxAlone) {
  CloudBuilder cloud = smallCloud();
  computeGridBox(at(1, 1, 1), nullptr, cloud.positions());
  EXPECT_EQ(computeGridBox(nullptr, nullptr, cloud.positions())->min(), (Point{-5, 0, 0}));
}

TEST(GridBox, RandomCloudsAgreeWithThePlainBox) {
  std::mt19937_64 random(TestSupport::testSeed());
  std::uniform_real_distribution<double> coordinate(-50.0, 120.0);
  const auto maybePoint = [&]() -> PointHandle {
    if (random() % 2 == 0) return nullptr;
    return at(coordinate(random), coordinate(random), coordinate(random));
  };
  const ConsoleCapture console;
  for (int n = 0; n < 100 && !testing::Test::HasFailure(); ++n) {
    const auto fragments = TestSupport::randomCloud(random, true);
    const PointHandle start = maybePoint();
    const PointHandle end = maybePoint();
    BoxHandle plain = start && end ? TestSupport::makeBox((*start)[0], (*end)[0])
                                   : TestSupport::boxOfPoints(fragments);
    if (plain && start) plain->setMin((*start)[0]);
    if (plain && end) plain->setMax((*end)[0]);
    const auto edge = plain ? plain->diagonal() : Eagle::FixedArray<double, 3>{};
    if (edge[0] < 0 || edge[1] < 0 || edge[2] < 0) plain.reset();
    const BoxHandle box = computeGridBox(start, end, TestSupport::positionsOf(fragments));
    ASSERT_EQ(bool(box), bool(plain));
    if (!plain) continue;
    EXPECT_EQ(box->min(), plain->min());
    EXPECT_EQ(box->max(), plain->max());
  }
}

}  // namespace LidarLib
