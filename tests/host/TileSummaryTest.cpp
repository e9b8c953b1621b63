// SPDX-License-Identifier: Apache-2.0

#include "host/TileSummary.hpp"

#include <gtest/gtest.h>

#include "host/Reports.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;

SplitPlan planOf(std::uint64_t tiles, std::uint64_t points) {
  SplitPlan plan;
  GridForecast forecast;
  forecast.source.name = "points";
  forecast.layout.nx = tiles;
  forecast.pointCount = points;
  plan.grids.push_back(forecast);
  return plan;
}

TEST(TileSummary, MessagesAreSortedByWhatTheyAreAbout) {
  const RunMessages sorted =
      sortMessages({"Interrupted", "/out/t/F0x0x0T0.000000Ga.f5: disk full", "Interrupted",
                    "no outputfrag representation", "/out/t.f5: disk full"},
                   "/out/t/");
  EXPECT_EQ(sorted.interrupted, 2U);
  EXPECT_EQ(sorted.tileFailures.size(), 2U);
  EXPECT_EQ(sorted.failures, (std::vector<std::string>{"/out/t.f5: disk full"}));
}

TEST(TileSummary, WhatIsNeitherWrittenNorFailedWasDropped) {
  RunMessages messages;
  messages.tileFailures = {"a"};
  const TileSummary tiles = summariseTiles(planOf(20, 0), {15, 4, 10}, messages, {{1, 5}});
  EXPECT_EQ(tiles.total, 20U);
  EXPECT_EQ(tiles.withData, 15U);
  EXPECT_EQ(tiles.kept, 4U);
  EXPECT_EQ(tiles.written, 6U);
  EXPECT_EQ(tiles.failed, 1U);
  EXPECT_EQ(tiles.dropped, 4U);
  EXPECT_EQ(tiles.pending, 0U);
}

TEST(TileSummary, CancelledRunLeavesTheRestPending) {
  RunMessages messages;
  messages.interrupted = 9;
  const TileSummary tiles = summariseTiles(planOf(20, 0), {15, 4, 8}, messages, {{1, 5}});
  EXPECT_EQ(tiles.dropped, 1U);
  EXPECT_EQ(tiles.pending, 6U);
}

TEST(TileSummary, BalanceComparesGridsOfTheSameTime) {
  SplitPlan plan = planOf(1, 10);
  plan.grids[0].outsidePoints = 3;
  const auto output = CloudBuilder().grid("out").fragment({{0, 0, 0}, {1, 1, 1}}).bundle();
  const auto balances = balancePoints(plan, {{1, 5}}, output, "out");
  ASSERT_EQ(balances.size(), 1U);
  EXPECT_EQ(balances[0].input, 10U);
  EXPECT_EQ(balances[0].expected(), 2U);
  EXPECT_EQ(balances[0].output, 2U);
  EXPECT_EQ(balancePoints(plan, {}, output, "other")[0].output, 0U);
  EXPECT_EQ(balancePoints(plan, {}, Fiber::BundlePtr(), "out")[0].output, 0U);
}

TEST(TileSummary, TotalsDifferOnlyWhereTheyHaveToAgree) {
  SplitReport report;
  report.balances = {{"a", 0.0, 10, 0, 0, 10}, {"a", 1.0, 10, 0, 0, 9}};
  EXPECT_FALSE(differs(report));
  report.isCompared = true;
  EXPECT_TRUE(differs(report));
  report.balances[1].dropped = 1;
  EXPECT_FALSE(differs(report)) << "what was dropped is accounted for";
  // One grid too many and one too few are two differences, not none.
  report.balances[0].output = 11;
  report.balances[1].output = 8;
  EXPECT_TRUE(differs(report));
  EXPECT_EQ(inputPoints(report), 20U);
  EXPECT_EQ(outputPoints(report), 19U);
}

}  // namespace
}  // namespace Host
