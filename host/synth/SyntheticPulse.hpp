// SPDX-License-Identifier: Apache-2.0
//
// SyntheticPulse: what comes back of a laser pulse: a few returns out of tree crowns, and the rest
// of its energy from the first roof, wall, road, water or soil behind them. Returns are ordered by
// distance and at least kLeastSeparation apart, as a receiver would tell them apart.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "host/synth/SyntheticBeam.hpp"
#include "host/synth/SyntheticNoise.hpp"
#include "host/synth/SyntheticObjects.hpp"
#include "host/synth/SyntheticTerrain.hpp"

namespace Synth {

/// The classes of the points, as the LAS standard numbers them.
enum PointClass : std::uint8_t {
  kGround = 2,
  kLowVegetation = 3,
  kMediumVegetation = 4,
  kHighVegetation = 5,
  kBuilding = 6,
  kWater = 9,
  kRoad = 11
};

inline constexpr std::size_t kMostReturns = 5;

/// Metres between the surfaces of two returns of a pulse, before the noise of the measurement.
inline constexpr double kLeastSeparation = 0.9;

/// Height above the ground from which on a beam is looked at: a tallest object that stands uphill.
inline constexpr double kSearchHeight = kTallestObject + 6.0;

/// One return. Units: metres from the aircraft; intensity in counts of the waveform.
struct PulseReturn {
  double range = 0;
  std::uint16_t intensity = 0;
  std::uint8_t classification = 0;
};

/// The returns of one pulse, nearest first; none where the pulse is lost.
class PulseReturns {
 public:
  std::span<const PulseReturn> all() const { return {returns_.data(), count_}; }
  std::size_t count() const { return count_; }
  bool isFull() const { return count_ == kMostReturns; }

  /// Requires: not full; the range beyond that of the last one.
  void add(const PulseReturn& pulseReturn) { returns_[count_++] = pulseReturn; }

 private:
  std::array<PulseReturn, kMostReturns> returns_{};
  std::size_t count_ = 0;
};

/// How strong returns are and how exactly they are measured.
struct ReceiverModel {
  double referenceRange = 600;  ///< Distance at which reflectances are not corrected.
  double rangeNoise = 0;        ///< Deviation in metres. Range: 0 to 0.1.
};

/// Follows pulses through a scene. Threads: one object per thread. Its memory of the objects is
/// large: keep it off the stack.
class PulseTracer {
 public:
  /// Requires: the terrain outlives the tracer.
  PulseTracer(const Terrain& terrain, std::uint64_t seed, const ReceiverModel& receiver)
      : terrain_(terrain), objects_(terrain, seed), receiver_(receiver) {}

  /// The returns of a pulse. `groundHeight` is a guess of the ground's height where the beam comes
  /// down and becomes what was found: neighbouring pulses hand it on. Depends on nothing else, in
  /// particular not on the pulses traced before. Rounding: returns lie exactly on the beam; the
  /// ground itself is met to about a millimetre.
  PulseReturns trace(const Beam& beam, RandomStream random, double& groundHeight);

 private:
  /// The end of a beam.
  struct Surface {
    double range = 0;
    double reflectance = 0;
    double cosine = 1;
    std::uint8_t classification = 0;
  };

  Surface findGround(const Beam& beam, RandomStream& random, double& groundHeight) const;
  Surface findRoof(const Beam& beam, const Surface& ground);
  double addCrowns(const Beam& beam, const Surface& end, RandomStream& random,
                   PulseReturns& returns);
  double addCrown(const Tree& tree, RangeInterval inside, double energy, RandomStream& random,
                  PulseReturns& returns) const;
  bool addReturn(const Surface& surface, double energy, RandomStream& random,
                 PulseReturns& returns) const;

  const Terrain& terrain_;
  ObjectLookup objects_;
  ReceiverModel receiver_;
};

}  // namespace Synth
