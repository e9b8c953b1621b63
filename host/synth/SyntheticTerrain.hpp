// SPDX-License-Identifier: Apache-2.0
//
// SyntheticTerrain: the ground of a synthetic survey: rolling hills, a river from north to south,
// a street grid, and what covers the ground where. Everything is a pure function of the place, so
// the scene has no size and needs no memory. It is composed about the origin (a town to the west
// of the river, a wood to the east), so that a survey of a hundred metres sees a bit of everything.
// Units: metres; x east, y north, both from the middle of the survey; heights above the datum.

#pragma once

#include <cstdint>

namespace Synth {

/// What the ground is covered with.
enum class LandCover : std::uint8_t { Meadow, Forest, Town, Road, Water };

/// Coordinates along the two directions of the street grid, in metres.
struct StreetPosition {
  double u = 0;
  double v = 0;
};

/// Distances between parallel streets, and half the width of a street.
inline constexpr double kStreetSpacingU = 60.0;
inline constexpr double kStreetSpacingV = 48.0;
inline constexpr double kStreetHalfWidth = 3.5;

/// The ground of one seed. Threads: const members may be called by any number of threads.
class Terrain {
 public:
  explicit Terrain(std::uint64_t seed);

  /// Mean height of the hills, the reference of the flying height.
  static constexpr double kMeanHeight = 115.0;

  /// Height of the ground or of the water table; continuous, slopes stay below one in one.
  double heightAt(double x, double y) const;

  /// What covers the place; water goes before road, road before town and forest.
  LandCover coverAt(double x, double y) const;

  /// Is the place built up (whatever covers it)?
  bool isTown(double x, double y) const;

  /// Turns directions and places into the street grid's axes and back.
  StreetPosition toStreets(double x, double y) const;
  double eastOf(const StreetPosition& position) const;
  double northOf(const StreetPosition& position) const;

 private:
  double riverDistance(double x, double y) const;
  double townStrength(double x, double y) const;
  double forestStrength(double x, double y) const;
  bool isRoad(double x, double y) const;

  std::uint64_t seed_;
  double streetCosine_;
  double streetSine_;
  double riverPhase_;
};

}  // namespace Synth
