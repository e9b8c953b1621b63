// SPDX-License-Identifier: Apache-2.0

#include "host/Restart.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/TempDir.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::TempDir;
namespace fs = std::filesystem;

class RestartTest : public testing::Test {
 protected:
  RestartTest() : place_(*settleOutputPlace(folder_ / "out.f5", "")) {}

  std::string make(const std::string& name) {
    const std::string path = folder_ / name;
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << "x";
    return path;
  }
  void leavePlan(const PlanRecord& record) {
    fs::create_directories(place_.tileFolder);
    ASSERT_TRUE(writePlanFile(planFilePath(place_.tileFolder), record).ok());
  }
  ExitCode safety(const std::string& inputFile) const {
    const Check check = checkInputIsSafe(place_, {InputKind::Bundles, {inputFile}});
    return check.ok() ? ExitCode::Done : check.stop().code;
  }

  TempDir folder_;
  OutputPlace place_;
  const std::string tile_ = "out/F0x0x0T0.000000Gpoints.f5";
  const PlanRecord wanted_{"out.f5", {{"overlap", "0"}}};
  const PlanRecord other_{"out.f5", {{"overlap", "0.5"}}};
};

TEST_F(RestartTest, EmptyPlaceIsAFreshStart) {
  EXPECT_EQ(*judgeExisting(place_, wanted_), StartKind::Fresh);
}

TEST_F(RestartTest, TilesOfTheSamePlanAreResumed) {
  make(tile_);
  make("out.f5");
  leavePlan(wanted_);
  EXPECT_EQ(*judgeExisting(place_, wanted_), StartKind::Resumed);
}

TEST_F(RestartTest, TilesOfAnotherPlanAreRefusedWithTheDifference) {
  make(tile_);
  leavePlan(other_);
  const auto start = judgeExisting(place_, wanted_);
  ASSERT_FALSE(start.ok());
  EXPECT_EQ(start.stop().text, place_.tileFolder +
                                   ": holds 1 tile of another plan (overlap: 0.5 there, 0 now); "
                                   "--force deletes them, or choose another --output");
}

TEST_F(RestartTest, TilesWithoutAPlanAreRefused) {
  make(tile_);
  EXPECT_FALSE(judgeExisting(place_, wanted_).ok());
}

TEST_F(RestartTest, AnotherPlanWithoutTilesIsNoObstacle) {
  leavePlan(other_);
  EXPECT_EQ(*judgeExisting(place_, wanted_), StartKind::Fresh);
}

TEST_F(RestartTest, ForeignOutputFileIsRefused) {
  make("out.f5");
  EXPECT_EQ(judgeExisting(place_, wanted_).stop().text,
            place_.file + ": exists already; --force replaces it");
}

TEST_F(RestartTest, DeletionTakesTilesPlanAndOutputOnly) {
  make(tile_);
  make("out.f5");
  leavePlan(other_);
  const std::string notes = make("out/notes.txt");
  const std::string other = make("other.f5");
  ASSERT_TRUE(deleteExisting(place_).ok());
  EXPECT_FALSE(fs::exists(folder_ / tile_));
  EXPECT_FALSE(fs::exists(place_.file));
  EXPECT_FALSE(fs::exists(planFilePath(place_.tileFolder)));
  EXPECT_TRUE(fs::exists(notes));
  EXPECT_TRUE(fs::exists(other));
  EXPECT_TRUE(deleteExisting(place_).ok()) << "nothing there is nothing wrong";
}

TEST_F(RestartTest, InputThatWouldBeOverwrittenIsRefused) {
  EXPECT_EQ(safety(make("out.f5")), ExitCode::Usage);
  EXPECT_EQ(safety(make(tile_)), ExitCode::Usage);
  EXPECT_EQ(safety(make("in.f5")), ExitCode::Done);
}

TEST_F(RestartTest, BundleWhoseTilesAreThereIsNoInput) {
  make(tile_);
  // Its tiles have the usual place beside it, which is where the new ones would go.
  place_ = *settleOutputPlace(folder_ / "new/out.f5", folder_.path().string());
  EXPECT_EQ(safety(make("out.f5")), ExitCode::Usage);
}

TEST_F(RestartTest, CloudMayHaveTheNameOfItsTiles) {
  make(tile_);
  const ResolvedInput cloud{InputKind::PointClouds, {make("out.las")}};
  EXPECT_TRUE(checkInputIsSafe(place_, cloud).ok());
}

TEST_F(RestartTest, BundleNamedByThePlanIsNoInput) {
  const std::string input = make("moved/elsewhere.f5");
  make(tile_);
  leavePlan({input, {}});
  EXPECT_EQ(safety(input), ExitCode::Usage);
}

}  // namespace
}  // namespace Host
