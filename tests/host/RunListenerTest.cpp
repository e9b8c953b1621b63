// SPDX-License-Identifier: Apache-2.0

#include "host/RunListener.hpp"

#include <gtest/gtest.h>

namespace Host {
namespace {

/// A listener whose messages go into a text.
struct Rig {
  std::string shown;
  std::vector<std::size_t> begun;
  std::unique_ptr<Messages> messages =
      Messages::make({}, Terminal(), [this](std::string_view text) { shown += text; }).value();
  RunListener listener{*messages, [this](std::size_t grid) { begun.push_back(grid); }};
};

TEST(RunListener, DroppedTilesAreCountedPerGrid) {
  Rig rig;
  rig.listener.hear("RefragmentAndSplit2: Grid: a");
  rig.listener.hear("Fragment will be dumped. Low Point Size=3");
  rig.listener.hear("Fragment will be dumped. Low Point Size=4");
  rig.listener.hear("RefragmentAndSplit2: Grid: b");
  rig.listener.hear("Fragment will be dumped. Low Point Size=10");
  ASSERT_EQ(rig.listener.dropped().size(), 2U);
  EXPECT_EQ(rig.listener.dropped()[0].tiles, 2U);
  EXPECT_EQ(rig.listener.dropped()[0].points, 7U);
  EXPECT_EQ(rig.listener.dropped()[1].points, 10U);
  EXPECT_EQ(rig.begun, (std::vector<std::size_t>{0, 1}));
}

TEST(RunListener, MalformedLinesCountNothing) {
  Rig rig;
  rig.listener.hear("Fragment will be dumped. Low Point Size=3");
  rig.listener.hear("RefragmentAndSplit2: Grid: a");
  rig.listener.hear("Fragment will be dumped. Low Point Size=");
  rig.listener.hear("Fragment will be dumped. Low Point Size=3x");
  EXPECT_EQ(rig.listener.dropped()[0].tiles, 0U);
}

TEST(RunListener, WarningsAreShownOtherLinesAreDetails) {
  Rig rig;
  rig.listener.hear("\nNeeded time for bbox mapping: 0.1[s].");
  EXPECT_EQ(rig.shown, "");
  rig.listener.hear("Warning: Estimated Fraglength < 1!");
  EXPECT_EQ(rig.shown, "refragment: warning: Estimated Fraglength < 1!\n");
}

}  // namespace
}  // namespace Host
