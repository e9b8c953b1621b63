// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticTerrain.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "host/synth/SyntheticNoise.hpp"

namespace Synth {

namespace {

/// Each noise of the scene has a seed of its own, at this distance from the scene's.
enum SeedOffset : std::uint64_t { kHills = 0x100, kTown = 0x200, kForest = 0x300, kShape = 0x400 };

constexpr double kHillWavelength = 400.0;
constexpr double kHillHeight = 14.0;
constexpr int kHillOctaves = 4;

constexpr double kRiverHalfWidth = 9.0;
constexpr double kRiverBankWidth = 110.0;
constexpr double kRiverDepth = 24.0;       // Below the mean height: lower than the hills around it.
constexpr double kRiverGradient = 0.0004;  // Metres per metre towards the south.
constexpr double kRiverReach = 95.0;       // How far the meanders swing from x = 0.

constexpr double kCoverWavelength = 300.0;
constexpr double kTownThreshold = 0.35;
constexpr double kForestThreshold = 0.25;
constexpr double kCentreRadius = 130.0;
constexpr double kCentreStrength = 1.6;
constexpr std::int64_t kMainStreetEvery = 4;

/// Strengthens a cover about the spot that a small survey is sure to see.
double centreStrength(double x, double y) {
  const double share = 1.0 - (x * x + y * y) / (kCentreRadius * kCentreRadius);
  return kCentreStrength * std::max(share, 0.0);
}

/// Is a coordinate on a street of this spacing? Outside towns only every fourth street exists.
bool isOnStreet(double coordinate, double spacing, bool everyStreet) {
  const double nearest = std::round(coordinate / spacing);
  if (std::abs(coordinate - nearest * spacing) > kStreetHalfWidth) return false;
  return everyStreet || static_cast<std::int64_t>(nearest) % kMainStreetEvery == 0;
}

}  // namespace

Terrain::Terrain(std::uint64_t seed) : seed_(mixBits(seed)) {
  RandomStream random(seed_, kShape, 0);
  const double angle = random.uniform(0.1, 0.5);
  streetCosine_ = std::cos(angle);
  streetSine_ = std::sin(angle);
  riverPhase_ = random.uniform(0.0, 2.0 * std::numbers::pi);
}

double Terrain::riverDistance(double x, double y) const {
  if (std::abs(x) > kRiverReach + kRiverHalfWidth + kRiverBankWidth) {
    return std::numeric_limits<double>::infinity();
  }
  // The first term runs through 0 at y = 0, so that the river always passes the middle closely.
  const double centre = 70.0 * std::sin(y / 110.0) + 12.0 * std::sin(y / 37.0 + riverPhase_) + 10.0;
  return std::abs(x - centre);
}

double Terrain::heightAt(double x, double y) const {
  const double hills = kMeanHeight + kHillHeight * fractalNoise(seed_ + kHills, x / kHillWavelength,
                                                                y / kHillWavelength, kHillOctaves);
  const double fromBank = riverDistance(x, y) - kRiverHalfWidth;
  if (fromBank >= kRiverBankWidth) return hills;
  const double water = kMeanHeight - kRiverDepth + kRiverGradient * y;
  return std::lerp(water, hills, easeBetween(std::max(fromBank, 0.0) / kRiverBankWidth));
}

double Terrain::townStrength(double x, double y) const {
  return valueNoise(seed_ + kTown, x / kCoverWavelength, y / kCoverWavelength) +
         centreStrength(x + 85.0, y);
}

double Terrain::forestStrength(double x, double y) const {
  return valueNoise(seed_ + kForest, x / kCoverWavelength, y / kCoverWavelength) +
         centreStrength(x - 110.0, y - 20.0);
}

bool Terrain::isTown(double x, double y) const {
  const double strength = townStrength(x, y);
  return strength > kTownThreshold && strength > forestStrength(x, y);
}

bool Terrain::isRoad(double x, double y) const {
  const StreetPosition street = toStreets(x, y);
  if (isOnStreet(street.u, kStreetSpacingU, false) ||
      isOnStreet(street.v, kStreetSpacingV, false)) {
    return true;
  }
  return (isOnStreet(street.u, kStreetSpacingU, true) ||
          isOnStreet(street.v, kStreetSpacingV, true)) &&
         isTown(x, y);
}

LandCover Terrain::coverAt(double x, double y) const {
  if (riverDistance(x, y) <= kRiverHalfWidth) return LandCover::Water;
  if (isRoad(x, y)) return LandCover::Road;
  if (isTown(x, y)) return LandCover::Town;
  return forestStrength(x, y) > kForestThreshold ? LandCover::Forest : LandCover::Meadow;
}

StreetPosition Terrain::toStreets(double x, double y) const {
  return {streetCosine_ * x + streetSine_ * y, streetCosine_ * y - streetSine_ * x};
}

double Terrain::eastOf(const StreetPosition& position) const {
  return streetCosine_ * position.u - streetSine_ * position.v;
}

double Terrain::northOf(const StreetPosition& position) const {
  return streetSine_ * position.u + streetCosine_ * position.v;
}

}  // namespace Synth
