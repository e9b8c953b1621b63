// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticTerrain.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

namespace Synth {
namespace {

TEST(Terrain, IsAFunctionOfSeedAndPlace) {
  EXPECT_EQ(Terrain(3).heightAt(812.5, -77.25), Terrain(3).heightAt(812.5, -77.25));
  EXPECT_NE(Terrain(3).heightAt(812.5, -77.25), Terrain(4).heightAt(812.5, -77.25));
}

TEST(Terrain, SlopesStayBelowOneInOne) {
  const Terrain terrain(1);
  constexpr double kStep = 0.25;
  for (double y = -400; y < 400; y += 13.7) {
    for (double x = -400; x < 400; x += 3.1) {
      const double here = terrain.heightAt(x, y);
      ASSERT_LT(std::abs(terrain.heightAt(x + kStep, y) - here), kStep) << x << ' ' << y;
      ASSERT_LT(std::abs(terrain.heightAt(x, y + kStep) - here), kStep) << x << ' ' << y;
    }
  }
}

TEST(Terrain, WaterIsLevelAcrossTheRiver) {
  const Terrain terrain(1);
  std::size_t found = 0;
  for (double y = -150; y < 150; y += 25) {
    double level = 0;
    for (double x = -120; x < 120; x += 1) {
      if (terrain.coverAt(x, y) != LandCover::Water) continue;
      if (++found > 1 && level != 0) {
        EXPECT_DOUBLE_EQ(terrain.heightAt(x, y), level);
      }
      level = terrain.heightAt(x, y);
    }
  }
  EXPECT_GT(found, 100U);
}

TEST(Terrain, EveryCoverLiesNearTheMiddle) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    const Terrain terrain(seed);
    std::map<LandCover, int> found;
    for (double y = -200; y <= 200; y += 2) {
      for (double x = -200; x <= 200; x += 2) ++found[terrain.coverAt(x, y)];
    }
    for (const LandCover cover : {LandCover::Meadow, LandCover::Forest, LandCover::Town,
                                  LandCover::Road, LandCover::Water}) {
      EXPECT_GT(found[cover], 0) << "seed " << seed << " cover " << static_cast<int>(cover);
    }
  }
}

TEST(Terrain, StreetAxesTurnBack) {
  const Terrain terrain(6);
  const StreetPosition street = terrain.toStreets(123.5, -45.25);
  EXPECT_NEAR(terrain.eastOf(street), 123.5, 1e-9);
  EXPECT_NEAR(terrain.northOf(street), -45.25, 1e-9);
}

}  // namespace
}  // namespace Synth
