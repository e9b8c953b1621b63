// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticFlight.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/synth/SyntheticNoise.hpp"
#include "host/synth/SyntheticTerrain.hpp"

namespace Synth {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr double kRadian = std::numbers::pi / 180.0;
constexpr double kWidestAngle = 20.0 * kRadian;
constexpr double kLowestFlight = 80.0;
constexpr double kHighestFlight = 600.0;
constexpr double kSideOverlap = 0.3;
constexpr double kLongestLine = 200e3;
constexpr double kTurnSeconds = 180.0;

/// 2023-06-14 09:30 UTC as adjusted standard GPS time.
constexpr double kSurveyStart = 370770218.0;

constexpr std::uint64_t kSwayStream = 0x5A1;

double swathAt(double flyingHeight, double angle) { return 2.0 * flyingHeight * std::tan(angle); }

/// A slow and a faster swing of random phase. Range: within `size` of 0.
double swing(RandomStream& random, double time, double size) {
  const double slow = 2.0 * std::numbers::pi * (time / 11.0 + random.uniform());
  const double fast = 2.0 * std::numbers::pi * (time / 2.7 + random.uniform());
  return size * (0.75 * std::sin(slow) + 0.25 * std::sin(fast));
}

AircraftState swayAt(const FlightPlan& plan, std::uint32_t line, double time) {
  RandomStream random(plan.seed, kSwayStream, line);
  AircraftState state;
  state.roll = swing(random, time, 0.8 * kRadian);
  state.pitch = swing(random, time, 0.5 * kRadian);
  state.heading = swing(random, time, 0.6 * kRadian);
  state.offLine = swing(random, time, 0.003 * plan.flyingHeight);
  state.climb = swing(random, time, 0.002 * plan.flyingHeight);
  return state;
}

}  // namespace

std::uint64_t FlightPlan::pulsesInScanLine(std::uint64_t scanLine) const {
  return std::min(pulsesPerScanLine, pulsesPerLine - scanLine * pulsesPerScanLine);
}

double FlightPlan::lineNorth(std::uint32_t line) const {
  return (static_cast<double>(line) - 0.5 * (lineCount - 1.0)) * lineSpacing;
}

double FlightPlan::lineStartTime(std::uint32_t line) const {
  return kSurveyStart + line * (lineLength / speed + kTurnSeconds);
}

Outcome<FlightPlan> planFlight(const SurveyOptions& options, double returnsPerPulse) {
  const double density = options.pulsesPerSquareMetre;
  const double pulses =
      static_cast<double>(options.pointCount) / returnsPerPulse / options.flightLines;
  FlightPlan plan;
  plan.seed = options.seed;
  plan.lineCount = options.flightLines;
  plan.pulsesPerLine = std::max<std::uint64_t>(1, static_cast<std::uint64_t>(std::llround(pulses)));
  const double area = static_cast<double>(plan.pulsesPerLine) / density;
  plan.swathWidth = std::min(std::sqrt(area), swathAt(kHighestFlight, kWidestAngle));
  plan.lineLength = area / plan.swathWidth;
  if (plan.lineLength > kLongestLine) {
    return Failure{fmt::format(
        "synthetic survey: {} flight lines are too few for {} points, found lines of {:.0f} km, "
        "expected at most {:.0f} km",
        options.flightLines, options.pointCount, plan.lineLength / 1e3, kLongestLine / 1e3)};
  }
  plan.flyingHeight =
      std::clamp(plan.swathWidth / swathAt(1.0, kWidestAngle), kLowestFlight, kHighestFlight);
  plan.largestAngle = std::atan(plan.swathWidth / 2.0 / plan.flyingHeight);
  plan.lineSpacing = (1.0 - kSideOverlap) * plan.swathWidth;
  plan.speed = plan.flyingHeight / 10.0;
  plan.pulseRate = density * plan.swathWidth * plan.speed;
  // As many pulses to the metre across the line as there are scan lines to the metre along it.
  plan.pulsesPerScanLine = std::max<std::uint64_t>(
      1, static_cast<std::uint64_t>(std::llround(plan.swathWidth * std::sqrt(density))));
  return plan;
}

ScanLine::ScanLine(const FlightPlan& plan, std::uint32_t line, std::uint64_t scanLine)
    : line_(line),
      firstPulse_(scanLine * plan.pulsesPerScanLine),
      pulseCount_(plan.pulsesInScanLine(scanLine)),
      isScanningRight_(scanLine % 2 == 0) {
  const double begin = static_cast<double>(firstPulse_) / plan.pulseRate;
  begin_ = swayAt(plan, line, begin);
  end_ = swayAt(plan, line, begin + static_cast<double>(plan.pulsesPerScanLine) / plan.pulseRate);
}

AircraftState ScanLine::stateAt(double share) const {
  return {std::lerp(begin_.roll, end_.roll, share), std::lerp(begin_.pitch, end_.pitch, share),
          std::lerp(begin_.heading, end_.heading, share),
          std::lerp(begin_.offLine, end_.offLine, share),
          std::lerp(begin_.climb, end_.climb, share)};
}

Shot ScanLine::shotAt(const FlightPlan& plan, std::uint64_t number) const {
  const auto perScanLine = static_cast<double>(plan.pulsesPerScanLine);
  const double share = (static_cast<double>(number) + 0.5) / perScanLine;
  const AircraftState state = stateAt(share);
  const double seconds = static_cast<double>(firstPulse_ + number) / plan.pulseRate;
  const double mirror = plan.largestAngle * (2.0 * share - 1.0) * (isScanningRight_ ? 1.0 : -1.0);
  const double angle = mirror + state.roll;

  // Forwards and to the right as seen from the aircraft; odd lines are flown to the west.
  const double course = line_ % 2 == 0 ? 1.0 : -1.0;
  const double forwards = std::tan(state.pitch);
  const double rightwards = std::tan(angle);
  const double along = course * (forwards - state.heading * rightwards);
  const double across = -course * (rightwards + state.heading * forwards);
  const double length = std::sqrt(along * along + across * across + 1.0);

  Shot shot;
  shot.beam.direction = {along / length, across / length, -1.0 / length};
  shot.beam.origin = {course * (plan.speed * seconds - plan.lineLength / 2.0),
                      plan.lineNorth(line_) - course * state.offLine,
                      Terrain::kMeanHeight + plan.flyingHeight + state.climb};
  shot.gpsTime = plan.lineStartTime(line_) + seconds;
  shot.scanAngleDegrees = angle / kRadian;
  shot.isScanningRight = isScanningRight_;
  shot.isEdgeOfFlightLine = number + 1 == plan.pulsesPerScanLine;
  return shot;
}

}  // namespace Synth
