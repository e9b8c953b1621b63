// SPDX-License-Identifier: Apache-2.0
//
// SyntheticFlight: where the aircraft of a synthetic survey is and where its laser points, pulse by
// pulse. Flight lines run east and west in turn; an oscillating mirror sweeps to the right and back
// to the left at an even speed while the aircraft moves on and sways a little, so that the pulses
// on the ground form a zigzag. Small surveys are flown low and with a narrow sweep, so that their
// area is roughly square; from about half a million points per line on, the sweep has its full
// width and the lines grow longer instead.
// Units: metres, seconds, radians, unless a name says otherwise.

#pragma once

#include <cstdint>

#include "datamodel/memcore/Outcome.hpp"
#include "host/synth/SyntheticBeam.hpp"
#include "host/synth/SyntheticOptions.hpp"

namespace Synth {

/// The plan of all flight lines. Pulses of a line are numbered from 0; every scan line but the last
/// has pulsesPerScanLine of them.
struct FlightPlan {
  std::uint64_t seed = 0;
  std::uint32_t lineCount = 0;
  std::uint64_t pulsesPerLine = 0;
  std::uint64_t pulsesPerScanLine = 0;
  double swathWidth = 0;
  double lineLength = 0;
  double lineSpacing = 0;   ///< Between neighbouring lines, less than the swath.
  double flyingHeight = 0;  ///< Above the mean ground.
  double largestAngle = 0;  ///< Of the mirror, to either side.
  double speed = 0;         ///< Metres per second.
  double pulseRate = 0;     ///< Pulses per second.

  std::uint64_t pulseCount() const { return lineCount * pulsesPerLine; }
  std::uint64_t scanLinesPerLine() const {
    return (pulsesPerLine + pulsesPerScanLine - 1) / pulsesPerScanLine;
  }
  std::uint64_t pulsesInScanLine(std::uint64_t scanLine) const;

  /// North coordinate of a line; the lines lie evenly about 0.
  double lineNorth(std::uint32_t line) const;

  /// Adjusted standard GPS time (seconds since 1980-01-06, less 10^9) of a line's first pulse.
  double lineStartTime(std::uint32_t line) const;
};

/// Plans a survey that is to have so many returns per pulse.
/// Requires: checked options, returnsPerPulse > 0. Errors: flight lines beyond 200 km.
MemCore::Outcome<FlightPlan> planFlight(const SurveyOptions& options, double returnsPerPulse);

/// How the aircraft is away from its line.
struct AircraftState {
  double roll = 0;     ///< To the right.
  double pitch = 0;    ///< Of the beam, forwards.
  double heading = 0;  ///< Away from the line, to the right.
  double offLine = 0;  ///< Metres to the right.
  double climb = 0;    ///< Metres above the planned height.
};

/// One pulse as it leaves the aircraft.
struct Shot {
  Beam beam;
  double gpsTime = 0;
  double scanAngleDegrees = 0;      ///< From straight down, positive to the right, roll included.
  bool isScanningRight = false;     ///< The scan direction flag.
  bool isEdgeOfFlightLine = false;  ///< The last pulse before the mirror turns.
};

/// The pulses of one scan line; the sway is found at both ends and interpolated between.
class ScanLine {
 public:
  /// Requires: line and scan line of the plan.
  ScanLine(const FlightPlan& plan, std::uint32_t line, std::uint64_t scanLine);

  std::uint64_t firstPulse() const { return firstPulse_; }
  std::uint64_t pulseCount() const { return pulseCount_; }

  /// Requires: number < pulseCount().
  Shot shotAt(const FlightPlan& plan, std::uint64_t number) const;

 private:
  AircraftState stateAt(double share) const;

  std::uint32_t line_;
  std::uint64_t firstPulse_;
  std::uint64_t pulseCount_;
  bool isScanningRight_;
  AircraftState begin_;
  AircraftState end_;
};

}  // namespace Synth
