// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticPulse.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <vector>

namespace Synth {
namespace {

constexpr std::uint64_t kSeed = 1;
constexpr double kAircraftHeight = 715.0;

/// A beam from 600 m above the mean ground, slanted to the north.
Beam beamTo(double x, double y) {
  const double angle = 0.3;
  const double behind = std::tan(angle) * (kAircraftHeight - Terrain::kMeanHeight);
  return {{x, y - behind, kAircraftHeight}, {0, std::sin(angle), -std::cos(angle)}};
}

/// Follows beams over a square kilometre and hands each with its returns to `visit`.
template <class Visit>
void traceMany(double rangeNoise, const Visit& visit) {
  const Terrain terrain(kSeed);
  const auto tracer =
      std::make_unique<PulseTracer>(terrain, kSeed, ReceiverModel{.rangeNoise = rangeNoise});
  std::uint64_t number = 0;
  for (double x = -500; x < 500; x += 7.3) {
    double groundHeight = Terrain::kMeanHeight;
    for (double y = -500; y < 500; y += 1.1) {
      const Beam beam = beamTo(x, y);
      visit(terrain, beam, tracer->trace(beam, RandomStream(kSeed, 0, ++number), groundHeight));
    }
  }
}

TEST(PulseTracer, ReturnsAreOrderedAndApart) {
  constexpr double kNoise = 0.1;
  const double least = kLeastSeparation - 2 * kNoise * RandomStream::kLargestNormal;
  std::array<int, kMostReturns + 1> pulsesByReturns{};
  traceMany(kNoise, [&](const Terrain&, const Beam&, const PulseReturns& returns) {
    ++pulsesByReturns[returns.count()];
    for (std::size_t i = 1; i < returns.count(); ++i) {
      ASSERT_GE(returns.all()[i].range - returns.all()[i - 1].range, least);
    }
  });
  for (std::size_t count = 0; count <= 4; ++count) EXPECT_GT(pulsesByReturns[count], 0) << count;
}

TEST(PulseTracer, SoilAndStreetsLieOnTheTerrain) {
  int found = 0;
  traceMany(0.0, [&](const Terrain& terrain, const Beam& beam, const PulseReturns& returns) {
    for (const PulseReturn& each : returns.all()) {
      const Vector3 place = beam.at(each.range);
      const double above = place.z - terrain.heightAt(place.x, place.y);
      if (each.classification == kGround || each.classification == kRoad ||
          each.classification == kWater) {
        ++found;
        ASSERT_NEAR(above, 0.0, 0.005);
      } else {
        // A roof may lie low where the ground rises beside the middle of the house.
        ASSERT_GT(above, -0.01);
        ASSERT_LT(above, kSearchHeight);
      }
    }
  });
  EXPECT_GT(found, 50000);
}

TEST(PulseTracer, EveryClassIsMetAndCoversAgree) {
  std::array<int, 16> pointsByClass{};
  traceMany(0.0, [&](const Terrain& terrain, const Beam& beam, const PulseReturns& returns) {
    for (const PulseReturn& each : returns.all()) {
      ++pointsByClass.at(each.classification);
      const Vector3 place = beam.at(each.range);
      if (each.classification == kBuilding) {
        EXPECT_NE(terrain.coverAt(place.x, place.y), LandCover::Water);
      }
    }
  });
  for (const PointClass each :
       {kGround, kLowVegetation, kMediumVegetation, kHighVegetation, kBuilding, kWater, kRoad}) {
    EXPECT_GT(pointsByClass.at(each), 50) << "class " << static_cast<int>(each);
  }
}

TEST(PulseTracer, DoesNotDependOnThePulsesBefore) {
  std::vector<double> inOrder;
  traceMany(0.02, [&](const Terrain&, const Beam&, const PulseReturns& returns) {
    inOrder.push_back(returns.count() == 0 ? 0.0 : returns.all().back().range);
  });
  const Terrain terrain(kSeed);
  const auto tracer =
      std::make_unique<PulseTracer>(terrain, kSeed, ReceiverModel{.rangeNoise = 0.02});
  // The first pulse of each row starts from the mean height too.
  const auto perRow = static_cast<std::size_t>(std::ceil(1000 / 1.1));
  double x = -500;
  for (std::size_t row = 0; row * perRow < inOrder.size(); ++row, x += 7.3) {
    double groundHeight = Terrain::kMeanHeight;
    const auto returns =
        tracer->trace(beamTo(x, -500), RandomStream(kSeed, 0, row * perRow + 1), groundHeight);
    EXPECT_EQ(returns.count() == 0 ? 0.0 : returns.all().back().range, inOrder[row * perRow]);
  }
}

}  // namespace
}  // namespace Synth
