// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticObjects.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace Synth {
namespace {

constexpr Building kGabled{.centre = {0, 0}, .halfU = 6, .halfV = 4, .eavesHeight = 10, .rise = 2};
constexpr Building kFlat{.centre = {0, 0}, .halfU = 6, .halfV = 4, .eavesHeight = 10, .rise = 0};

Beam downwardsAt(double x, double y) { return {{x, y, 100}, {0, 0, -1}}; }

TEST(Building, FlatRoofIsHitAtItsEaves) {
  const auto hit = hitBuilding(kFlat, downwardsAt(5.9, -3.9));
  ASSERT_TRUE(hit);
  EXPECT_NEAR(hit->range, 90.0, 1e-9);
  EXPECT_NEAR(hit->cosine, 1.0, 1e-9);
}

TEST(Building, GableRisesToItsRidge) {
  EXPECT_NEAR(hitBuilding(kGabled, downwardsAt(0, 0))->range, 88.0, 1e-9);
  EXPECT_NEAR(hitBuilding(kGabled, downwardsAt(3, 2))->range, 89.0, 1e-9);
  EXPECT_NEAR(hitBuilding(kGabled, downwardsAt(3, -2))->range, 89.0, 1e-9);
  EXPECT_NEAR(hitBuilding(kGabled, downwardsAt(0, 2))->cosine, 1.0 / std::sqrt(1.25), 1e-9);
}

TEST(Building, WallIsHitFromTheSide) {
  const double half = std::sqrt(0.5);
  const Beam slanted{{-20, 0, 20}, {half, 0, -half}};
  const auto hit = hitBuilding(kFlat, slanted);
  ASSERT_TRUE(hit);
  EXPECT_NEAR(slanted.at(hit->range).x, -6.0, 1e-9);
  EXPECT_NEAR(slanted.at(hit->range).z, 6.0, 1e-9);
  EXPECT_NEAR(hit->cosine, half, 1e-9);
}

TEST(Building, BeamBesideItMisses) {
  EXPECT_FALSE(hitBuilding(kFlat, downwardsAt(6.1, 0)));
  EXPECT_FALSE(hitBuilding(kGabled, downwardsAt(0, -4.1)));
}

TEST(Crown, IsCrossedFromTopToBottom) {
  const Tree tree{.crownCentre = {1, 2, 10}, .crownRadius = 3, .crownHalfHeight = 5};
  const auto middle = crossCrown(tree, downwardsAt(1, 2));
  ASSERT_TRUE(middle);
  EXPECT_NEAR(middle->begin, 85.0, 1e-9);
  EXPECT_NEAR(middle->end, 95.0, 1e-9);
  const auto aside = crossCrown(tree, downwardsAt(1 + 3 * 0.6, 2));
  ASSERT_TRUE(aside);
  EXPECT_NEAR(aside->begin, 90 - 5 * 0.8, 1e-9);
  EXPECT_FALSE(crossCrown(tree, downwardsAt(4.01, 2)));
}

TEST(Scene, TreesStandInTheirCellsAndBelowTheTallestObject) {
  const Terrain terrain(1);
  int found = 0;
  for (std::int64_t column = -30; column < 30; ++column) {
    for (std::int64_t row = -30; row < 30; ++row) {
      const auto tree = treeInCell(terrain, 1, column, row);
      if (!tree) continue;
      ++found;
      const double left = static_cast<double>(column) * kTreeSpacing;
      const double lower = static_cast<double>(row) * kTreeSpacing;
      EXPECT_GE(tree->crownCentre.x - tree->crownRadius, left - 1e-9);
      EXPECT_LE(tree->crownCentre.x + tree->crownRadius, left + kTreeSpacing + 1e-9);
      EXPECT_GE(tree->crownCentre.y - tree->crownRadius, lower - 1e-9);
      EXPECT_LE(tree->crownCentre.y + tree->crownRadius, lower + kTreeSpacing + 1e-9);
      EXPECT_LE(tree->crownCentre.z + tree->crownHalfHeight - tree->groundHeight, kTallestObject);
    }
  }
  EXPECT_GT(found, 300);
}

TEST(Scene, BuildingsKeepClearOfStreetsAndTrees) {
  const Terrain terrain(1);
  int found = 0;
  for (std::int64_t lotU = -12; lotU < 12; ++lotU) {
    for (std::int64_t lotV = -12; lotV < 12; ++lotV) {
      const auto building = buildingInLot(terrain, 1, lotU, lotV);
      if (!building) continue;
      ++found;
      const double lowU = static_cast<double>(lotU) * kLotLengthU;
      const double lowV = static_cast<double>(lotV) * kLotLengthV;
      EXPECT_GT(building->centre.u - building->halfU, lowU + kStreetHalfWidth);
      EXPECT_LT(building->centre.u + building->halfU, lowU + kLotLengthU - kStreetHalfWidth);
      EXPECT_GT(building->centre.v - building->halfV, lowV + kStreetHalfWidth);
      EXPECT_LT(building->centre.v + building->halfV, lowV + kLotLengthV - kStreetHalfWidth);
      const double x = terrain.eastOf(building->centre);
      const double y = terrain.northOf(building->centre);
      const auto tree =
          treeInCell(terrain, 1, static_cast<std::int64_t>(std::floor(x / kTreeSpacing)),
                     static_cast<std::int64_t>(std::floor(y / kTreeSpacing)));
      if (!tree) continue;
      const StreetPosition foot = terrain.toStreets(tree->crownCentre.x, tree->crownCentre.y);
      const double besideU = std::abs(foot.u - building->centre.u) - building->halfU;
      const double besideV = std::abs(foot.v - building->centre.v) - building->halfV;
      EXPECT_GE(std::max(besideU, besideV), tree->crownRadius);
    }
  }
  EXPECT_GT(found, 50);
}

TEST(ObjectLookup, AnswersLikeTheSceneAlsoAfterEviction) {
  const Terrain terrain(2);
  const auto lookup = std::make_unique<ObjectLookup>(terrain, 2);
  // Cells 8 columns or 128 rows apart share a place in the memory.
  for (int round = 0; round < 2; ++round) {
    for (std::int64_t column = 0; column < 24; ++column) {
      for (const std::int64_t row : {-128, 0, 128}) {
        const auto expected = treeInCell(terrain, 2, column, row);
        const auto& answer = lookup->tree(column, row);
        ASSERT_EQ(answer.has_value(), expected.has_value());
        if (expected) {
          EXPECT_EQ(answer->crownCentre.x, expected->crownCentre.x);
        }
      }
    }
  }
}

}  // namespace
}  // namespace Synth
