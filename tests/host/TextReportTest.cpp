// SPDX-License-Identifier: Apache-2.0

#include "host/TextReport.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::Not;

GridFacts gridOf(std::size_t fragmentCount) {
  GridFacts grid;
  grid.name = "points";
  grid.pointCount = 1000 * fragmentCount;
  for (std::size_t i = 0; i < fragmentCount; ++i) {
    grid.fragments.push_back({"[" + std::to_string(i) + "x0x0]", {}, 1000, nullptr, "t.f5"});
  }
  return grid;
}

TEST(TextReport, LongFragmentListsAreCutUnlessAllAreWanted) {
  const ShowReport report{"a.f5", {gridOf(12)}};
  EXPECT_THAT(showText(report, false), HasSubstr("... and 2 more (--all lists them)"));
  EXPECT_THAT(showText(report, false), Not(HasSubstr("[11x0x0]")));
  EXPECT_THAT(showText(report, true), HasSubstr("[11x0x0]"));
}

TEST(TextReport, UnknownRangesAreShownAsSuch) {
  GridFacts grid = gridOf(1);
  grid.fields = {{"GpsTime", "double", 1, {}}, {"Class", "uint8", 1, Fiber::ValueRange{1, 9}}};
  const std::string text = showText({"a.las", {grid}}, false);
  EXPECT_THAT(text, HasSubstr("GpsTime  double  unknown\n"));
  EXPECT_THAT(text, HasSubstr("Class    uint8   1 to 9"));
  EXPECT_THAT(text, HasSubstr("--ranges finds by reading the points"));
}

TEST(TextReport, BalanceSaysWhereThePointsWent) {
  SplitReport report;
  report.output = "/my out.f5";
  report.isCompared = true;
  report.balances = {{"points", 0.0, 1000, 4, 6, 990}};
  EXPECT_THAT(splitText(report),
              HasSubstr("1,000 in, 990 out, 4 outside, 6 in dropped tiles: all accounted for"));
  EXPECT_THAT(splitText(report), HasSubstr("refragment show '/my out.f5'"));
  report.balances[0].output = 989;
  EXPECT_THAT(splitText(report), HasSubstr("THEY DIFFER"));
}

TEST(TextReport, CancelledRunTellsWhatIsLeft) {
  SplitReport report;
  report.tiles.pending = 1200;
  EXPECT_THAT(splitText(report), HasSubstr("1,200 to do"));
}

TEST(TextReport, GridThatCannotBeSplitSaysWhy) {
  SplitPlan plan;
  plan.grids.emplace_back();
  plan.grids[0].source.name = "points";
  plan.grids[0].failure = "no points";
  EXPECT_THAT(planText(plan, {}), HasSubstr("Problem  no points"));
}

}  // namespace
}  // namespace Host
