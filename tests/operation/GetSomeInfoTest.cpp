// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "operation/RefragmentAndSplit.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/ConsoleCapture.hpp"

namespace LidarLib {

using TestSupport::CloudBuilder;
using TestSupport::ConsoleCapture;

namespace {

const std::vector<TestSupport::Point> kCorners = {{0, 0, 0}, {1000, 500, 30}};

const char* const kInfoOfCorners =
    "Fragment Length: 300.000000 x 300.000000 x 0.000000\n"
    "Input Global Bounding Box: Min: 0.000000 x 0.000000 x 0.000000 Max: 1000.000000 x 500.000000 "
    "x 30.000000\n"
    "Input Diagonal of Global Box: 1000.000000 x 500.000000 x 30.000000\n"
    "Number of Out-Fragments: 4 x 2 x 1\n";

void configure(RefragmentAndSplit& operation, const Fiber::BundlePtr& input) {
  operation.inputBundle = input;
  operation.FragmentLength = {{300.0, 300.0, 0.0}};
}

}  // namespace

TEST(GetSomeInfo, WithoutInputIsEmpty) { EXPECT_EQ(RefragmentAndSplit().GetSomeInfo(), ""); }

TEST(GetSomeInfo, ReportsTimesInOrderAndGridsByName) {
  CloudBuilder cloud;
  cloud.time(1.5).grid("b").fragment(kCorners).grid("a").fragment(kCorners);
  cloud.time(0.0).grid("c").fragment(kCorners);
  RefragmentAndSplit operation;
  configure(operation, cloud.bundle());
  EXPECT_EQ(operation.GetSomeInfo(), std::string("Time: 0.000000 Grid: c\n") + kInfoOfCorners +
                                         "Time: 1.500000 Grid: a\n" + kInfoOfCorners +
                                         " Grid: b\n" + kInfoOfCorners);
}

TEST(GetSomeInfo, FiltersSelectTimesAndGrids) {
  CloudBuilder cloud;
  cloud.time(0.0).grid("a").fragment(kCorners).grid("b").fragment(kCorners);
  cloud.time(2.0).grid("a").fragment(kCorners);
  RefragmentAndSplit operation;
  configure(operation, cloud.bundle());
  operation.timeFilter = {0.0};
  operation.gridFilter = {"b"};
  EXPECT_EQ(operation.GetSomeInfo(), std::string("Time: 0.000000 Grid: b\n") + kInfoOfCorners);
}

TEST(GetSomeInfo, SurveyFailureGoesToTheConsole) {
  CloudBuilder cloud;
  cloud.grid("bare").currentGrid();
  RefragmentAndSplit operation;
  configure(operation, cloud.bundle());
  const ConsoleCapture console;
  EXPECT_EQ(operation.GetSomeInfo(), "Time: 0.000000 Grid: bare\n");
  EXPECT_EQ(console.only(), "Warning: Some grid(s) have no input positions");
}

TEST(GetSomeInfo, LayoutFailureIsNotReported) {
  CloudBuilder cloud;
  cloud.grid("g").fragment(kCorners);
  RefragmentAndSplit operation;
  configure(operation, cloud.bundle());
  operation.FragmentLength = {{0.001, 0.001, 0.001}};
  const std::string report = operation.GetSomeInfo();
  EXPECT_NE(report.find("Number of Out-Fragments: 1000000 x 500000 x 30000\n"), std::string::npos);
  EXPECT_EQ(report.find("50 Million"), std::string::npos);
  EXPECT_TRUE(operation.messages.empty());
}

TEST(GetSomeInfo, WritesNothingAndLeavesTheParameters) {
  CloudBuilder cloud;
  cloud.grid("g").fragment(kCorners);
  RefragmentAndSplit operation;
  configure(operation, cloud.bundle());
  operation.GetSomeInfo();
  EXPECT_EQ(operation.outputGridName, "myGrid");
  EXPECT_EQ(operation.FragmentLength[0], 300.0);
}

}  // namespace LidarLib
