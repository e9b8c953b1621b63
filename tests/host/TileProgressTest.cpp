// SPDX-License-Identifier: Apache-2.0

#include "host/TileProgress.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(TileProgress, RateAndRemainderFollowTheShareDone) {
  const ProgressState state{25, 100, 8000000, 10.0};
  EXPECT_DOUBLE_EQ(pointRate(state), 200000.0);
  EXPECT_DOUBLE_EQ(remainingSeconds(state), 30.0);
  EXPECT_EQ(pointRate({}), 0.0);
  EXPECT_LT(remainingSeconds({}), 0.0);
}

TEST(TileProgress, BarFillsItsShare) {
  const std::string line = barLine({50, 100, 1000000, 1.0}, 120);
  EXPECT_EQ(line,
            "[####################....................] 50/100 tiles, 500.0 thousand points/s, "
            "1.00 s left");
}

TEST(TileProgress, BarNeverExceedsTheTerminal) {
  for (int columns = 1; columns < 140; ++columns) {
    EXPECT_LT(barLine({1234, 5678, 1000000000, 100.0}, columns).size(),
              static_cast<std::size_t>(columns))
        << columns;
  }
}

TEST(TileProgress, JsonLinesAreObjects) {
  const auto json = nlohmann::json::parse(progressJson("Tiling #", {25, 100, 8000, 10.0}));
  EXPECT_EQ(json["done"], 25);
  EXPECT_EQ(json["total"], 100);
  EXPECT_EQ(json["remainingSeconds"], 30.0);
  EXPECT_TRUE(nlohmann::json::parse(progressJson("x", {}))["remainingSeconds"].is_null());
}

TEST(TileProgress, TilesAddUpOverGrids) {
  std::string shown;
  const auto messages =
      Messages::make({}, Terminal(), [&](std::string_view text) { shown += text; }).value();
  TileProgress progress(ProgressMode::Json, 80, *messages);
  progress.beginGrid(100);
  EXPECT_TRUE(progress.report("Tiling #", 0, 3));
  progress.beginGrid(100);
  EXPECT_TRUE(progress.report("Tiling #", 0, 4));
  progress.finish();
  EXPECT_EQ(progress.tilesWithData(), 7U);
  EXPECT_THAT(shown, StartsWith("{\"step\":\"Tiling #\",\"done\":0,\"total\":3"));
}

TEST(TileProgress, NoneShowsNothing) {
  std::string shown;
  const auto messages =
      Messages::make({}, Terminal(), [&](std::string_view text) { shown += text; }).value();
  TileProgress progress(ProgressMode::None, 80, *messages);
  progress.beginGrid(100);
  progress.report("Tiling #", 0, 3);
  progress.finish();
  EXPECT_EQ(shown, "");
}

TEST(TileProgress, BarNeedsSomebodyWhoWatches) {
  Terminal terminal;
  EXPECT_EQ(settleProgressMode({}, terminal), ProgressMode::None);
  terminal.isTerminal = true;
  EXPECT_EQ(settleProgressMode({}, terminal), ProgressMode::Bar);
  CommonOptions quiet;
  quiet.verbosity = Verbosity::Quiet;
  EXPECT_EQ(settleProgressMode(quiet, terminal), ProgressMode::None);
  quiet.progress = ProgressMode::Bar;
  EXPECT_EQ(settleProgressMode(quiet, Terminal()), ProgressMode::Bar);
}

}  // namespace
}  // namespace Host
