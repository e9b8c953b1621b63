// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticBlock.hpp"

#include <gtest/gtest.h>

#include <memory>

namespace Synth {
namespace {

struct Scene {
  explicit Scene(const SurveyOptions& chosen) : options(chosen), terrain(chosen.seed) {
    const auto planned = planFlight(options, 1.2);
    EXPECT_TRUE(planned.ok());
    plan = planned.value();
    maker = std::make_unique<BlockMaker>(options, plan, terrain);
  }

  SurveyOptions options;
  Terrain terrain;
  FlightPlan plan;
  std::unique_ptr<BlockMaker> maker;
};

SurveyOptions smallSurvey(bool hasWaveforms) {
  SurveyOptions options;
  options.pointCount = 60'000;
  options.pulsesPerSquareMetre = 1.0;
  options.hasWaveforms = hasWaveforms;
  return options;
}

TEST(BlockPlan, CoversEveryScanLineOnceInOrder) {
  const Scene scene(smallSurvey(false));
  const BlockPlan blocks(scene.plan);
  ASSERT_GT(blocks.blockCount(), 2U);
  std::uint32_t line = 0;
  std::uint64_t next = 0;
  for (std::uint64_t number = 0; number < blocks.blockCount(); ++number) {
    const BlockPlace place = blocks.placeOf(number);
    if (place.line != line) {
      EXPECT_EQ(next, scene.plan.scanLinesPerLine());
      line = place.line;
      next = 0;
    }
    EXPECT_EQ(place.firstScanLine, next);
    EXPECT_GT(place.scanLineCount, 0U);
    next += place.scanLineCount;
  }
  EXPECT_EQ(line + 1, scene.plan.lineCount);
  EXPECT_EQ(next, scene.plan.scanLinesPerLine());
}

TEST(BlockMaker, MakesABlockAlikeWhateverItMadeBefore) {
  const Scene scene(smallSurvey(true));
  const Scene same(smallSurvey(true));
  const BlockPlan blocks(scene.plan);
  for (std::uint64_t number = 0; number + 1 < blocks.blockCount(); ++number) {
    const SurveyBlock earlier = scene.maker->make(blocks.placeOf(number));
    EXPECT_GT(earlier.points.count(), 0U);
  }
  const BlockPlace last = blocks.placeOf(blocks.blockCount() - 1);
  const SurveyBlock after = scene.maker->make(last);
  const SurveyBlock alone = same.maker->make(last);
  EXPECT_EQ(after.points.position, alone.points.position);
  EXPECT_EQ(after.points.waveOffset, alone.points.waveOffset);
  EXPECT_EQ(after.packets, alone.packets);
}

TEST(BlockMaker, WaveformColumnsComeOnlyWithWaveforms) {
  const Scene with(smallSurvey(true));
  const Scene without(smallSurvey(false));
  const BlockPlace place = BlockPlan(with.plan).placeOf(0);
  const SurveyBlock full = with.maker->make(place);
  const SurveyBlock plain = without.maker->make(place);
  EXPECT_EQ(full.points.position, plain.points.position);
  EXPECT_EQ(full.points.waveOffset.size(), full.points.count());
  EXPECT_TRUE(plain.packets.empty());
  EXPECT_TRUE(plain.points.waveOffset.empty());
}

TEST(BlockMaker, RecordsHoldTheColumns) {
  const Scene scene(smallSurvey(true));
  SurveyBlock block = scene.maker->make(BlockPlan(scene.plan).placeOf(0));
  const auto layout = Formats::PointLayout::make(9, 59, {});
  ASSERT_TRUE(layout.ok());
  const std::uint64_t firstOffset = block.points.waveOffset.front();
  const auto records = block.toRecords(layout.value(), 60);
  ASSERT_EQ(records.size(), block.points.count() * 59);
  EXPECT_EQ(block.points.waveOffset.front(), firstOffset + 60);
  // Intensity stands at byte 12 of every point format.
  for (std::size_t point = 0; point < block.points.count(); point += 101) {
    const auto* record = records.data() + point * 59;
    const auto intensity = static_cast<unsigned>(record[12]) | static_cast<unsigned>(record[13])
                                                                   << 8U;
    EXPECT_EQ(intensity, block.points.intensity[point]);
  }
}

}  // namespace
}  // namespace Synth
