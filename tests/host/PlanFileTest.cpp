// SPDX-License-Identifier: Apache-2.0

#include "host/PlanFile.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/CloudBuilder.hpp"
#include "tests/support/TempDir.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::TempDir;

/// A plan over a tiny cloud that is said to come from one file.
class PlanFileTest : public testing::Test {
 protected:
  PlanFileTest() {
    std::ofstream(source_) << "points";
    input_.kind = InputKind::PointClouds;
    input_.files = {source_};
    options_.tiling.fragmentLength = {{10.0, 10.0, 0.0}};
  }

  PlanRecord describe() const {
    const auto bundle = CloudBuilder().fragment({{0, 0, 0}, {25, 25, 1}}).bundle();
    LidarLib::RefragmentAndSplit operation;
    applyOptions(options_.tiling, options_.filters, operation);
    const SplitPlan plan = makePlan(*selectGrids(*bundle, {}), options_.tiling, operation);
    const auto record = describePlan(options_, input_, plan, folder_ / "out.f5");
    EXPECT_TRUE(record.ok());
    return *record;
  }

  TempDir folder_;
  std::string source_ = folder_ / "in.las";
  ResolvedInput input_;
  SplitOptions options_;
};

TEST_F(PlanFileTest, PlanReadsBackEqual) {
  const std::string path = planFilePath(folder_.path().string());
  const PlanRecord written = describe();
  ASSERT_TRUE(writePlanFile(path, written).ok());
  const auto read = readPlanFile(path);
  ASSERT_TRUE(read.ok()) << read.error();
  EXPECT_EQ(planDifference(*read, written), "");
  EXPECT_EQ(read->output, folder_ / "out.f5");
}

TEST_F(PlanFileTest, SamePlanHasNoDifference) {
  EXPECT_EQ(planDifference(describe(), describe()), "");
}

TEST_F(PlanFileTest, EveryParameterThatShapesTilesIsCompared) {
  const PlanRecord before = describe();
  const SplitOptions original = options_;
  const auto differsWith = [&](auto change) {
    options_ = original;
    change(options_);
    return planDifference(before, describe());
  };
  EXPECT_EQ(differsWith([](auto& o) { o.tiling.overlap = 0.25; }), "overlap: 0 there, 0.25 now");
  EXPECT_EQ(differsWith([](auto& o) { o.tiling.minPoints = 5; }), "min points: 0 there, 5 now");
  EXPECT_EQ(differsWith([](auto& o) { o.storage.kind = Fiber::StorageKind::Raw; }),
            "storage: grid there, raw now");
  EXPECT_EQ(differsWith([](auto& o) { o.outputGrid = "other"; }),
            "output grid: points there, other now");
  EXPECT_EQ(differsWith([](auto& o) {
              o.filters.fields = {"a", "b"};
            }),
            "fields: all there, a,b now");
  EXPECT_EQ(differsWith([](auto& o) { o.keepOrder = true; }),
            "fields: all there, all in known order now");
  EXPECT_NE(differsWith([](auto& o) { o.columns = {"x", "y", "z"}; }), "");
  EXPECT_EQ(differsWith([](auto& o) { o.tiling.fragmentLength[0] = 5.0; }),
            "grid points at time 0: 3 x 3 x 1 tiles of 10 x 10 x 1 from 0,0,0 there, "
            "5 x 3 x 1 tiles of 5 x 10 x 1 from 0,0,0 now");
  EXPECT_EQ(differsWith([](auto& o) { o.storage.durable = false; }), "")
      << "durability does not change a tile";
}

TEST_F(PlanFileTest, ChangedInputFileIsAnotherPlan) {
  const PlanRecord before = describe();
  std::ofstream(source_, std::ios::app) << "more";
  EXPECT_NE(planDifference(before, describe()), "");
}

TEST_F(PlanFileTest, MissingInputFileIsAFailure) {
  std::filesystem::remove(source_);
  const auto record = describePlan(options_, input_, SplitPlan(), "out.f5");
  EXPECT_FALSE(record.ok());
}

TEST_F(PlanFileTest, FileNamesNeedNotBeUtf8) {
  source_ = folder_ / "in\xff.las";
  std::ofstream(source_) << "points";
  input_.files = {source_};
  const std::string path = planFilePath(folder_.path().string());
  ASSERT_TRUE(writePlanFile(path, describe()).ok());
  EXPECT_EQ(planDifference(*readPlanFile(path), describe()), "");
}

TEST_F(PlanFileTest, ForeignFilesAreNoPlans) {
  const std::string path = planFilePath(folder_.path().string());
  EXPECT_FALSE(readPlanFile(path).ok());
  for (const char* content :
       {"", "{", "[]", "{}", "null", R"({"format": 3})", R"({"format": "refragment plan"})",
        R"({"format":"refragment plan","version":2,"output":"a","plan":{}})",
        R"({"format":"refragment plan","version":1,"output":"a","plan":{"x":[1]}})",
        R"({"format":"refragment plan","version":1,"output":1,"plan":{}})"}) {
    std::ofstream(path) << content;
    EXPECT_FALSE(readPlanFile(path).ok()) << content;
  }
}

TEST_F(PlanFileTest, PlanThatCannotBeWrittenLeavesNothing) {
  const auto written = writePlanFile(planFilePath(folder_ / "none"), describe());
  ASSERT_FALSE(written.ok());
  EXPECT_FALSE(std::filesystem::exists(folder_ / "none"));
}

}  // namespace
}  // namespace Host
