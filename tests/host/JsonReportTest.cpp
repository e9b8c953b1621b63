// SPDX-License-Identifier: Apache-2.0

#include "host/JsonReport.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using Json = nlohmann::json;

SplitPlan somePlan() {
  const auto bundle = CloudBuilder().fragment({{0, 0, 0}, {25, 15, 5}}).bundle();
  LidarLib::RefragmentAndSplit operation;
  TilingOptions tiling;
  tiling.fragmentLength = {{10.0, 10.0, 0.0}};
  applyOptions(tiling, {}, operation);
  return makePlan(*selectGrids(*bundle, {}), tiling, operation);
}

TEST(JsonReport, InfoHasTheKeysOfTheContract) {
  const Json json = Json::parse(infoJson(somePlan()));
  const Json& grid = json.at("grids").at(0);
  EXPECT_EQ(grid.at("time"), 0.0);
  EXPECT_EQ(grid.at("name"), "points");
  EXPECT_EQ(grid.at("points"), 2);
  EXPECT_EQ(grid.at("box"), Json::parse(R"({"min": [0.0,0.0,0.0], "max": [25.0,15.0,5.0]})"));
  EXPECT_EQ(grid.at("fragmentLength"), Json::parse("[10.0, 10.0, 5.0]"));
  EXPECT_EQ(grid.at("tiles"), Json::parse("[3, 2, 1]"));
  EXPECT_EQ(grid.at("tiledBox").at("max"), Json::parse("[30.0, 20.0, 5.0]"));
  EXPECT_EQ(grid.at("estimated"), false);
  EXPECT_DOUBLE_EQ(grid.at("density").get<double>(), 2.0 / 375.0);
  EXPECT_EQ(grid.at("message"), "");
}

TEST(JsonReport, GridThatCannotBeSplitHasNoBoxes) {
  SplitPlan plan;
  plan.grids.emplace_back();
  plan.grids[0].failure = "no points";
  const Json json = Json::parse(infoJson(plan));
  EXPECT_TRUE(json["grids"][0]["box"].is_null());
  EXPECT_TRUE(json["grids"][0]["tiledBox"].is_null());
  EXPECT_EQ(json["grids"][0]["message"], "no points");
}

TEST(JsonReport, SplitHasTheKeysOfTheContract) {
  SplitReport report;
  report.output = "/out.f5";
  report.plan = somePlan();
  report.tiles = {6, 5, 3, 1, 1, 0, 0};
  report.balances = {{"points", 0.0, 10, 1, 2, 7}};
  report.isCompared = true;
  report.messages = {"m"};
  report.use = {1.5, 4096};
  const Json json = Json::parse(splitJson(report));
  EXPECT_EQ(json.at("output"), "/out.f5");
  EXPECT_EQ(json.at("plan").at("grids").size(), 1U);
  EXPECT_EQ(json.at("tiles"), Json::parse(R"({"total": 6, "withData": 5, "written": 3, "kept": 1,
                                    "dropped": 1, "failed": 0, "pending": 0})"));
  EXPECT_EQ(json.at("points").at("input"), 10);
  EXPECT_EQ(json.at("points").at("output"), 7);
  EXPECT_EQ(json.at("points").at("agree"), true);
  EXPECT_EQ(json.at("messages"), Json::parse(R"(["m"])"));
  EXPECT_EQ(json.at("seconds"), 1.5);
  EXPECT_EQ(json.at("peakMemoryBytes"), 4096);
}

GridFacts someFacts(double time) {
  GridFacts grid;
  grid.name = "points";
  grid.time = time;
  grid.pointCount = 3;
  grid.fields = {{"GpsTime", "double", 1, Fiber::ValueRange{-1.0, 2.0}}, {"Odd", "", 0, {}}};
  FragmentFacts tile{"[1x2x0]", Fiber::MultiIndex<3>{{1, 2, 0}}, 3, nullptr, "out/tile.f5"};
  grid.fragments = {tile, {"0-0", {}, 0, nullptr, ""}};
  return grid;
}

TEST(JsonReport, ShowHasTheKeysOfTheContract) {
  const Json json =
      Json::parse(showJson(std::vector<ShowReport>{{"a.f5", {someFacts(0), someFacts(1)}}}));
  EXPECT_EQ(json.at("file"), "a.f5");
  ASSERT_EQ(json.at("slices").size(), 2U);
  const Json& grid = json["slices"][1].at("grids").at(0);
  EXPECT_EQ(grid.at("points"), 3);
  EXPECT_TRUE(grid.at("box").is_null());
  EXPECT_EQ(grid.at("attributes"),
            Json::parse(R"({"FragLength": null, "FragDims": null, "NormalizeOverlap": null})"));
  EXPECT_EQ(grid.at("fields").at(0),
            Json::parse(R"({"name":"GpsTime","type":"double","rank":1,"min":-1.0,"max":2.0})"));
  EXPECT_TRUE(grid["fields"][1].at("min").is_null());
  EXPECT_EQ(grid.at("fragments").at(0).at("index"), Json::parse("[1,2,0]"));
  EXPECT_EQ(grid["fragments"][0].at("file"), "out/tile.f5");
  EXPECT_TRUE(grid["fragments"][1].at("index").is_null());
  EXPECT_TRUE(grid["fragments"][1].at("file").is_null());
}

TEST(JsonReport, GridsOfOneTimeShareASlice) {
  const Json json =
      Json::parse(showJson(std::vector<ShowReport>{{"a.f5", {someFacts(0), someFacts(0)}}}));
  ASSERT_EQ(json["slices"].size(), 1U);
  EXPECT_EQ(json["slices"][0]["grids"].size(), 2U);
}

TEST(JsonReport, NumbersThatAreNotFiniteAreNull) {
  SplitReport report;
  report.use.seconds = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(Json::parse(splitJson(report))["seconds"].is_null());
}

TEST(JsonReport, NamesThatAreNoUtf8DoNotBreakIt) {
  SynthReport report;
  report.output = "/out\xff.las";
  EXPECT_TRUE(Json::accept(synthJson(report)));
}

TEST(JsonReport, ImportSumsUpItsGrids) {
  ImportReport report;
  report.inputs = {"/a.las"};
  report.grids = {someFacts(0), someFacts(1)};
  const Json json = Json::parse(importJson(report));
  EXPECT_EQ(json.at("points"), 6);
  EXPECT_EQ(json.at("inputs"), Json::parse(R"(["/a.las"])"));
  EXPECT_EQ(json.at("grids").at(0).at("fragments"), 2);
}

}  // namespace
}  // namespace Host
