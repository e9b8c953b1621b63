// SPDX-License-Identifier: Apache-2.0

#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "tests/operation/SplitFixture.hpp"
#include "tests/operation/UnreadablePositions.hpp"
#include "tests/support/MemoryLimit.hpp"

namespace LidarLib::TestSupport {

namespace {

class RunFailureTest : public SplitFixture {};

const std::string kExpected = "not enough memory to plan 4000000 tiles, expected about 1.0 GB";

const std::vector<Point> kCorners = {{0, 0, 0}, {5, 5, 1}};

/// Unreadable positions without a box that was known beforehand.
class UnsurveyedPositions final : public Fiber::CreativeArrayBase {
 public:
  UnsurveyedPositions()
      : CreativeArrayBase({Fiber::FiberTypeBase::find(typeid(Point)), Fiber::DynamicSize{2},
                           nullptr, std::nullopt}) {}

 protected:
  MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> create() override {
    return MemCore::Failure{"survey.laz: chunk 3 is damaged"};
  }
};

/// Asks for more memory than there is.
class HugePositions final : public Fiber::CreativeArrayBase {
 public:
  HugePositions() : CreativeArrayBase(UnreadablePositions().facts()) {}

 protected:
  MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> create() override { throw std::bad_alloc(); }
};

}  // namespace

TEST_F(RunFailureTest, WithoutInputBundleNothingIsDone) {
  RefragmentAndSplit operation;
  prepare(operation, Fiber::BundlePtr());
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(operation.messages, std::list<std::string>{"bundleptr is null"});
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(RunFailureTest, MoreTilesThanMemoryHoldsAreRefusedWithTheirNeed) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}, {1999.5, 1999.5, 1}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.FragmentLength = {{1, 1, 0}};
  const auto refuse = [&] {
    if (!leaveMemory(300'000'000)) std::exit(2);
    operation.Run();
    std::exit(operation.messages.size() == 1 && operation.messages.front() == kExpected ? 0 : 1);
  };
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a forked process has no OpenMP threads
  EXPECT_EXIT(refuse(), testing::ExitedWithCode(0), "");
}

TEST_F(RunFailureTest, GridWithoutPositionsIsSkippedAndTheNextProcessed) {
  CloudBuilder cloud;
  cloud.grid("a").grid("b").fragment(kCorners);
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.outputGridName = "out";
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(operation.messages,
            std::list<std::string>{"Warning: Some grid(s) have no input positions"});
  EXPECT_EQ(tileFiles(), (std::set<std::string>{"F0x0x0T0.000000Gout.f5"}));
}

TEST_F(RunFailureTest, FailedTilingSkipsTheRestOfTheSliceButNotLaterOnes) {
  CloudBuilder cloud;
  cloud.time(0).grid("a").fragment({{0, 0, 0}, {1e9, 1e9, 0}}).grid("b").fragment(kCorners);
  cloud.time(1).grid("c").fragment(kCorners);
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.outputGridName = "out";
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(operation.messages, std::list<std::string>{"Number of fragments is over 50 Million!"});
  EXPECT_EQ(tileFiles(), (std::set<std::string>{"F0x0x0T1.000000Gout.f5"}));
}

TEST_F(RunFailureTest, FailedOutputGridSkipsTheRestOfTheSlice) {
  // The second grid needs other tile counts than the output grid already has.
  CloudBuilder cloud;
  cloud.grid("a").fragment(kCorners).grid("b").fragment({{0, 0, 0}, {25, 5, 0}});
  cloud.grid("c").fragment(kCorners);
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(operation.messages, std::list<std::string>{"no output positions"});
}

TEST_F(RunFailureTest, UnreadableFragmentFailsItsTileInsteadOfLosingPoints) {
  CloudBuilder cloud;
  cloud.grid("g").fragmentOf(MemCore::makeStrong<UnreadablePositions>());
  cloud.fragment({{15, 1, 0}, {16, 1, 0}});
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  EXPECT_TRUE(operation.Run());
  ASSERT_EQ(operation.messages.size(), 1U);
  EXPECT_NE(operation.messages.front().find("not written: survey.laz: chunk 3 is damaged"),
            std::string::npos);
  EXPECT_EQ(tileFiles(), (std::set<std::string>{"F1x0x0T0.000000Gg.f5"}));
}

TEST_F(RunFailureTest, FragmentThatFailsInTheSurveyRefusesTheGrid) {
  CloudBuilder cloud;
  cloud.grid("a").fragment(kCorners).fragmentOf(MemCore::makeStrong<UnsurveyedPositions>());
  cloud.grid("b").fragment(kCorners);
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.outputGridName = "out";
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(operation.messages, std::list<std::string>{"survey.laz: chunk 3 is damaged"});
  EXPECT_EQ(tileFiles(), (std::set<std::string>{"F0x0x0T0.000000Gout.f5"})) << "grid b alone";
}

TEST_F(RunFailureTest, FragmentThatFailsInTheMappingRefusesTheGrid) {
  CloudBuilder cloud;
  cloud.grid("a").fragment(kCorners).fragmentOf(MemCore::makeStrong<UnsurveyedPositions>());
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  operation.StartPoint = MemCore::makeStrong<MemCore::Chunk<Point>>(1, Point{0, 0, 0});
  operation.EndPoint = MemCore::makeStrong<MemCore::Chunk<Point>>(1, Point{20, 10, 1});
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(operation.messages, std::list<std::string>{"survey.laz: chunk 3 is damaged"});
  EXPECT_TRUE(tileFiles().empty());
}

TEST_F(RunFailureTest, ExhaustedMemoryEndsTheTileWithAText) {
  CloudBuilder cloud;
  cloud.grid("g").fragmentOf(MemCore::makeStrong<HugePositions>());
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  EXPECT_TRUE(operation.Run());
  ASSERT_EQ(operation.messages.size(), 1U);
  EXPECT_NE(operation.messages.front().find("memory"), std::string::npos);
  EXPECT_TRUE(tileFiles().empty());
}

TEST_F(RunFailureTest, ExistingFileIsKeptWhateverItHolds) {
  std::filesystem::create_directory(folder / "out");
  std::ofstream(folder / "out/F0x0x0T0.000000Gg.f5") << "not a bundle";
  CloudBuilder cloud;
  cloud.grid("g").fragment(kCorners);
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(readFile("out/F0x0x0T0.000000Gg.f5"), "not a bundle");
  EXPECT_EQ(console.messages().back(),
            "\t!!!!! Warning, Out file (0) has viewer points than in file (2) !!!!! ");
}

TEST_F(RunFailureTest, OutputThatCannotBeSavedIsReportedAndTheRunStillReturnsTrue) {
  CloudBuilder cloud;
  cloud.grid("g").fragment(kCorners);
  RefragmentAndSplit operation;
  prepare(operation, cloud.bundle());
  std::filesystem::create_directory(folder / "tiles");
  std::filesystem::create_directory(folder / "tiles/out");
  operation.outputDirectory = folder / "tiles";
  operation.outputFileName = folder / "absent/out.f5";
  EXPECT_TRUE(operation.Run());
  ASSERT_EQ(operation.messages.size(), 1U);
  EXPECT_NE(operation.messages.front().find("absent/out.f5"), std::string::npos);
}

TEST_F(RunFailureTest, MessagesOfEarlierRunsStay) {
  RefragmentAndSplit operation;
  prepare(operation, Fiber::BundlePtr());
  EXPECT_FALSE(operation.Run());
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(operation.messages.size(), 2U);
}

}  // namespace LidarLib::TestSupport
