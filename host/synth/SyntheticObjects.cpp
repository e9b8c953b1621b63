// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticObjects.hpp"

#include <algorithm>
#include <cmath>

#include "host/synth/SyntheticNoise.hpp"

namespace Synth {

namespace {

constexpr std::uint64_t kBuildingStream = 0xB01D;
constexpr std::uint64_t kTreeStream = 0x73EE;

constexpr double kBuiltShare = 0.85;
constexpr double kLargestHalfU = 8.0;
constexpr double kLargestHalfV = 6.0;
constexpr double kLotJitter = 1.0;

// A crown that touched the edge of its lot would still be clear of the buildings next door.
static_assert(kLotLengthV / 2 - kLargestHalfV - kLotJitter >= 4.0);
static_assert(kLotLengthU / 2 - kLargestHalfU - kLotJitter >= 4.0);

/// Would any corner of the building stand in the river?
bool isInWater(const Terrain& terrain, const Building& building) {
  for (const double u : {building.centre.u - building.halfU, building.centre.u + building.halfU}) {
    for (const double v :
         {building.centre.v - building.halfV, building.centre.v + building.halfV}) {
      const StreetPosition corner{u, v};
      if (terrain.coverAt(terrain.eastOf(corner), terrain.northOf(corner)) == LandCover::Water) {
        return true;
      }
    }
  }
  return false;
}

/// What grows on a cover: how many cells of the tree lattice hold a tree, and how high it is.
struct Growth {
  double share = 0;
  double leastHeight = 1.5;
  double mostHeight = kTallestObject - 2.5;
};

Growth growthOn(LandCover cover) {
  switch (cover) {
    case LandCover::Forest:
      return {.share = 0.95, .leastHeight = 5.0};
    case LandCover::Town:
      return {.share = 0.3, .mostHeight = 12.0};
    case LandCover::Meadow:
      return {.share = 0.08};
    case LandCover::Road:
    case LandCover::Water:
      break;
  }
  return {};
}

std::uint64_t cellKey(std::uint64_t seed, std::int64_t i) {
  return hashOf(seed, static_cast<std::uint64_t>(i), 0);
}

/// Does a crown of this radius come near the building of the lot it stands in?
bool isAtBuilding(const Terrain& terrain, std::uint64_t seed, const Tree& tree) {
  const StreetPosition foot = terrain.toStreets(tree.crownCentre.x, tree.crownCentre.y);
  const auto building =
      buildingInLot(terrain, seed, static_cast<std::int64_t>(std::floor(foot.u / kLotLengthU)),
                    static_cast<std::int64_t>(std::floor(foot.v / kLotLengthV)));
  return building && std::abs(foot.u - building->centre.u) < building->halfU + tree.crownRadius &&
         std::abs(foot.v - building->centre.v) < building->halfV + tree.crownRadius;
}

/// A half-space: what lies on the side of the plane that its normal points away from.
struct HalfSpace {
  Vector3 normal;
  double distance = 0;  // Of the plane, along the normal (not necessarily of length 1).
};

double dot(const Vector3& a, const Vector3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

/// A building is the part of space common to its walls and its roof planes; it has no floor.
std::array<HalfSpace, 6> halfSpacesOf(const Building& building) {
  const auto& [u, v] = building.centre;
  const double slope = building.rise / building.halfV;
  const double ridge = building.eavesHeight + building.rise;
  return {{{{1, 0, 0}, u + building.halfU},
           {{-1, 0, 0}, building.halfU - u},
           {{0, 1, 0}, v + building.halfV},
           {{0, -1, 0}, building.halfV - v},
           {{0, slope, 1}, ridge + slope * v},
           {{0, -slope, 1}, ridge - slope * v}}};
}

}  // namespace

std::optional<Building> buildingInLot(const Terrain& terrain, std::uint64_t seed, std::int64_t lotU,
                                      std::int64_t lotV) {
  RandomStream random(cellKey(seed, lotU), kBuildingStream, static_cast<std::uint64_t>(lotV));
  const bool isBuilt = random.uniform() < kBuiltShare;
  Building building;
  building.centre = {
      (static_cast<double>(lotU) + 0.5) * kLotLengthU + random.uniform(-kLotJitter, kLotJitter),
      (static_cast<double>(lotV) + 0.5) * kLotLengthV + random.uniform(-kLotJitter, kLotJitter)};
  const double x = terrain.eastOf(building.centre);
  const double y = terrain.northOf(building.centre);
  building.halfU = random.uniform(5.0, kLargestHalfU);
  building.halfV = random.uniform(4.0, kLargestHalfV);
  if (!isBuilt || !terrain.isTown(x, y) || isInWater(terrain, building)) return {};
  const bool isFlat = random.uniform() < 0.35;
  building.eavesHeight =
      terrain.heightAt(x, y) + (isFlat ? random.uniform(3.0, 16.0) : random.uniform(3.5, 9.0));
  building.rise = isFlat ? 0.0 : random.uniform(2.0, 4.5);
  return building;
}

std::optional<Tree> treeInCell(const Terrain& terrain, std::uint64_t seed, std::int64_t column,
                               std::int64_t row) {
  RandomStream random(cellKey(seed, column), kTreeStream, static_cast<std::uint64_t>(row));
  // The middle of the cell decides what grows there, so that the size can follow from it.
  const double middleX = (static_cast<double>(column) + 0.5) * kTreeSpacing;
  const double middleY = (static_cast<double>(row) + 0.5) * kTreeSpacing;
  const Growth growth = growthOn(terrain.coverAt(middleX, middleY));
  if (random.uniform() >= growth.share) return {};
  const double height = random.uniform(growth.leastHeight, growth.mostHeight);
  Tree tree;
  tree.crownRadius = std::clamp(0.3 * height * random.uniform(0.8, 1.25), 0.7, 4.3);
  tree.crownHalfHeight = height * random.uniform(0.3, 0.45);
  tree.leafShare = random.uniform(0.35, 0.85);
  const double play = kTreeSpacing / 2 - tree.crownRadius;
  const double x = middleX + random.uniform(-play, play);
  const double y = middleY + random.uniform(-play, play);
  if (growthOn(terrain.coverAt(x, y)).share == 0.0) return {};
  tree.groundHeight = terrain.heightAt(x, y);
  tree.crownCentre = {x, y, tree.groundHeight + height - tree.crownHalfHeight};
  if (isAtBuilding(terrain, seed, tree)) return {};
  return tree;
}

std::optional<SurfaceHit> hitBuilding(const Building& building, const Beam& streetBeam) {
  double enter = 0;
  double leave = std::numeric_limits<double>::infinity();
  double cosine = 1;
  for (const HalfSpace& side : halfSpacesOf(building)) {
    const double approach = dot(side.normal, streetBeam.direction);
    const double gap = side.distance - dot(side.normal, streetBeam.origin);
    if (approach == 0) {
      if (gap < 0) return {};
    } else if (approach > 0) {
      leave = std::min(leave, gap / approach);
    } else if (gap / approach > enter) {
      enter = gap / approach;
      cosine = -approach / std::sqrt(dot(side.normal, side.normal));
    }
  }
  if (enter >= leave) return {};
  return SurfaceHit{enter, cosine};
}

std::optional<RangeInterval> crossCrown(const Tree& tree, const Beam& beam) {
  // The ellipsoid becomes the unit sphere about the origin; the beam is stretched with it.
  const double across = 1.0 / tree.crownRadius;
  const double upwards = 1.0 / tree.crownHalfHeight;
  const Vector3 from{(beam.origin.x - tree.crownCentre.x) * across,
                     (beam.origin.y - tree.crownCentre.y) * across,
                     (beam.origin.z - tree.crownCentre.z) * upwards};
  const Vector3 along{beam.direction.x * across, beam.direction.y * across,
                      beam.direction.z * upwards};
  const double squared = dot(along, along);
  const double middle = -dot(from, along) / squared;
  const double reach = middle * middle - (dot(from, from) - 1.0) / squared;
  if (reach <= 0) return {};
  const double half = std::sqrt(reach);
  return RangeInterval{middle - half, middle + half};
}

}  // namespace Synth
