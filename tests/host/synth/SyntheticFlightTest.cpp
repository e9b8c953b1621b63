// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticFlight.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "host/synth/SyntheticTerrain.hpp"

namespace Synth {
namespace {

FlightPlan planOf(std::uint64_t pointCount, double returnsPerPulse = 1.0) {
  SurveyOptions options;
  options.pointCount = pointCount;
  const auto plan = planFlight(options, returnsPerPulse);
  EXPECT_TRUE(plan.ok());
  return plan.value();
}

/// Where the pulse comes down on level ground at the mean height, from the line and to its right.
double rightOfLine(const FlightPlan& plan, std::uint32_t line, const Shot& shot) {
  const double north = shot.beam.at(shot.beam.rangeAtHeight(Terrain::kMeanHeight)).y;
  return (plan.lineNorth(line) - north) * (line % 2 == 0 ? 1.0 : -1.0);
}

TEST(FlightPlan, PulsesTimesReturnsGiveThePoints) {
  EXPECT_EQ(planOf(1000).pulseCount(), 1000U);
  EXPECT_EQ(planOf(3'000'000, 1.5).pulseCount(), 2'000'000U);
  EXPECT_GE(planOf(1).pulseCount(), 1U);
}

TEST(FlightPlan, ScanLinesHoldEveryPulseOnce) {
  const FlightPlan plan = planOf(12345);
  std::uint64_t pulses = 0;
  for (std::uint64_t i = 0; i < plan.scanLinesPerLine(); ++i) {
    EXPECT_EQ(ScanLine(plan, 0, i).firstPulse(), pulses);
    pulses += plan.pulsesInScanLine(i);
  }
  EXPECT_EQ(pulses, plan.pulsesPerLine);
}

TEST(FlightPlan, NeighbouringLinesOverlap) {
  for (const std::uint64_t count : {1000U, 5'000'000U, 100'000'000U}) {
    const FlightPlan plan = planOf(count);
    EXPECT_NEAR(plan.lineSpacing / plan.swathWidth, 0.7, 1e-12);
    EXPECT_NEAR(plan.lineNorth(1) - plan.lineNorth(0), plan.lineSpacing, 1e-9);
    EXPECT_LE(plan.largestAngle * 180.0 / M_PI, 20.0 + 1e-9);
    EXPECT_GT(plan.lineStartTime(1), plan.lineStartTime(0) + plan.lineLength / plan.speed);
  }
}

TEST(FlightPlan, TooManyPointsForTheLinesAreRefused) {
  SurveyOptions options;
  options.pointCount = 10'000'000'000;
  const auto plan = planFlight(options, 1.0);
  ASSERT_FALSE(plan.ok());
  EXPECT_EQ(plan.error(),
            "synthetic survey: 2 flight lines are too few for 10000000000 points, found lines of "
            "1431 km, expected at most 200 km");
  options.flightLines = 100;
  EXPECT_TRUE(planFlight(options, 1.0).ok());
}

TEST(ScanLine, MirrorSweepsRightAndBack) {
  const FlightPlan plan = planOf(200'000);
  for (const std::uint32_t line : {0U, 1U}) {
    for (const std::uint64_t number : {10U, 11U}) {
      const ScanLine scanLine(plan, line, number);
      const Shot first = scanLine.shotAt(plan, 0);
      const Shot last = scanLine.shotAt(plan, scanLine.pulseCount() - 1);
      EXPECT_EQ(first.isScanningRight, number % 2 == 0);
      const double towards = first.isScanningRight ? 1.0 : -1.0;
      EXPECT_LT(towards * rightOfLine(plan, line, first), -0.4 * plan.swathWidth);
      EXPECT_GT(towards * rightOfLine(plan, line, last), 0.4 * plan.swathWidth);
      EXPECT_GT(towards * (last.scanAngleDegrees - first.scanAngleDegrees), 0.0);
      EXPECT_FALSE(first.isEdgeOfFlightLine);
      EXPECT_TRUE(last.isEdgeOfFlightLine);
    }
  }
}

TEST(ScanLine, ScanAngleIsThatOfTheBeam) {
  const FlightPlan plan = planOf(200'000);
  const ScanLine scanLine(plan, 0, 20);
  for (std::uint64_t number = 0; number < scanLine.pulseCount(); number += 7) {
    const Shot shot = scanLine.shotAt(plan, number);
    const Vector3& direction = shot.beam.direction;
    EXPECT_NEAR(std::hypot(direction.x, direction.y, direction.z), 1.0, 1e-12);
    const double angle = std::atan2(-direction.y, -direction.z) * 180.0 / M_PI;
    EXPECT_NEAR(shot.scanAngleDegrees, angle, 0.05);
  }
}

TEST(ScanLine, TimeAndPlaceGoOnFromOneToTheNext) {
  const FlightPlan plan = planOf(50'000);
  for (const std::uint32_t line : {0U, 1U}) {
    const ScanLine here(plan, line, 4);
    const ScanLine next(plan, line, 5);
    const Shot last = here.shotAt(plan, here.pulseCount() - 1);
    const Shot first = next.shotAt(plan, 0);
    EXPECT_NEAR(first.gpsTime - last.gpsTime, 1.0 / plan.pulseRate, 1e-6);
    EXPECT_GT(first.gpsTime, last.gpsTime);
    const double course = line == 0 ? 1.0 : -1.0;
    const double step = course * (first.beam.origin.x - last.beam.origin.x);
    EXPECT_NEAR(step, plan.speed / plan.pulseRate, 1e-6);
    EXPECT_NEAR(first.beam.origin.z, last.beam.origin.z, 0.01);
  }
}

}  // namespace
}  // namespace Synth
