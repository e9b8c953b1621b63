// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticPulse.hpp"

#include <algorithm>
#include <cmath>

namespace Synth {

namespace {

/// Counts of a full return from a white surface at the reference range.
constexpr double kFullScale = 3000.0;

/// Weaker returns drown in the noise.
constexpr double kDetectionThreshold = 50.0;

constexpr double kLeastEnergy = 0.12;
constexpr double kRoofReflectance = 0.35;
constexpr double kLeafReflectance = 0.55;
constexpr int kGroundSteps = 4;
constexpr double kGroundTolerance = 0.001;
constexpr std::size_t kMostCrowns = 8;

struct Material {
  double reflectance;
  std::uint8_t classification;
};

Material materialOf(LandCover cover) {
  switch (cover) {
    case LandCover::Road:
      return {0.15, kRoad};
    case LandCover::Water:
      return {0.06, kWater};
    case LandCover::Forest:
      return {0.35, kGround};
    case LandCover::Town:
      return {0.4, kGround};
    case LandCover::Meadow:
      break;
  }
  return {0.5, kGround};
}

/// Share of ground returns that grass or undergrowth sends back before the soil is reached.
double growthShare(LandCover cover) {
  if (cover == LandCover::Meadow) return 0.2;
  return cover == LandCover::Forest ? 0.15 : 0.0;
}

std::uint8_t vegetationClass(double heightAboveGround) {
  if (heightAboveGround < 1.0) return kLowVegetation;
  return heightAboveGround < 4.0 ? kMediumVegetation : kHighVegetation;
}

/// The cells, in one direction, that lie between two coordinates. Range: closed.
struct CellRange {
  std::int64_t first;
  std::int64_t last;
};

CellRange cellsBetween(double a, double b, double cellLength) {
  return {static_cast<std::int64_t>(std::floor(std::min(a, b) / cellLength)),
          static_cast<std::int64_t>(std::floor(std::max(a, b) / cellLength))};
}

/// The tree stands in the object memory, which holds all cells below one beam at the same time.
struct CrossedCrown {
  const Tree* tree;
  RangeInterval inside;
};

/// The crowns that a beam crosses, nearest first; what exceeds the array is left out.
class CrossedCrowns {
 public:
  void add(const Tree& tree, const RangeInterval& inside) {
    if (count_ < kMostCrowns) crowns_[count_++] = {&tree, inside};
  }
  std::span<const CrossedCrown> sorted() {
    std::sort(crowns_.begin(), crowns_.begin() + static_cast<std::ptrdiff_t>(count_),
              [](const CrossedCrown& a, const CrossedCrown& b) {
                return a.inside.begin < b.inside.begin;
              });
    return {crowns_.data(), count_};
  }

 private:
  std::array<CrossedCrown, kMostCrowns> crowns_{};
  std::size_t count_ = 0;
};

}  // namespace

PulseReturns PulseTracer::trace(const Beam& beam, RandomStream random, double& groundHeight) {
  const Surface ground = findGround(beam, random, groundHeight);
  const Surface end = findRoof(beam, ground);
  PulseReturns returns;
  const double energy = addCrowns(beam, end, random, returns);
  if (energy >= kLeastEnergy) addReturn(end, energy, random, returns);
  return returns;
}

PulseTracer::Surface PulseTracer::findGround(const Beam& beam, RandomStream& random,
                                             double& groundHeight) const {
  // Each step moves the place by the error of the height times the tangent of the scan angle, so
  // that on slopes below one in one the error shrinks to less than a third.
  Vector3 place;
  for (int step = 0; step < kGroundSteps; ++step) {
    place = beam.at(beam.rangeAtHeight(groundHeight));
    const double height = terrain_.heightAt(place.x, place.y);
    const double error = std::abs(height - groundHeight);
    groundHeight = height;
    if (error < kGroundTolerance) break;
  }
  const LandCover cover = terrain_.coverAt(place.x, place.y);
  const Material material = materialOf(cover);
  Surface ground{beam.rangeAtHeight(groundHeight), material.reflectance, -beam.direction.z,
                 material.classification};
  if (cover == LandCover::Water) {
    // Still water is a mirror: it shines close to the nadir and is black elsewhere.
    const double slant = (1.0 - ground.cosine) / 0.01;
    ground.reflectance *= random.uniform(0.2, 1.0) + 6.0 / (1.0 + slant * slant);
  } else if (random.uniform() < growthShare(cover)) {
    ground.range -= random.uniform(0.08, 0.6) / ground.cosine;
    ground.classification = kLowVegetation;
  }
  return ground;
}

PulseTracer::Surface PulseTracer::findRoof(const Beam& beam, const Surface& ground) {
  const auto turned = [&](const Vector3& vector) {
    const StreetPosition street = terrain_.toStreets(vector.x, vector.y);
    return Vector3{street.u, street.v, vector.z};
  };
  const Beam streetBeam{turned(beam.origin), turned(beam.direction)};
  const Vector3 foot = streetBeam.at(ground.range);
  const Vector3 top = streetBeam.at(streetBeam.rangeAtHeight(foot.z + kSearchHeight));
  const CellRange lotsU = cellsBetween(foot.x, top.x, kLotLengthU);
  const CellRange lotsV = cellsBetween(foot.y, top.y, kLotLengthV);
  Surface end = ground;
  for (std::int64_t lotU = lotsU.first; lotU <= lotsU.last; ++lotU) {
    for (std::int64_t lotV = lotsV.first; lotV <= lotsV.last; ++lotV) {
      const auto& building = objects_.building(lotU, lotV);
      const auto hit = building ? hitBuilding(*building, streetBeam) : std::nullopt;
      if (hit && hit->range < end.range) {
        end = {hit->range, kRoofReflectance, hit->cosine, kBuilding};
      }
    }
  }
  return end;
}

double PulseTracer::addCrowns(const Beam& beam, const Surface& end, RandomStream& random,
                              PulseReturns& returns) {
  const Vector3 foot = beam.at(end.range);
  const double topRange = beam.rangeAtHeight(foot.z + kSearchHeight);
  const Vector3 top = beam.at(topRange);
  const CellRange columns = cellsBetween(foot.x, top.x, kTreeSpacing);
  const CellRange rows = cellsBetween(foot.y, top.y, kTreeSpacing);
  CrossedCrowns crowns;
  for (std::int64_t column = columns.first; column <= columns.last; ++column) {
    for (std::int64_t row = rows.first; row <= rows.last; ++row) {
      const auto& tree = objects_.tree(column, row);
      const auto inside = tree ? crossCrown(*tree, beam) : std::nullopt;
      if (inside && inside->begin > topRange && inside->begin < end.range) {
        crowns.add(*tree, *inside);
      }
    }
  }
  double energy = 1.0;
  for (const CrossedCrown& crown : crowns.sorted()) {
    const RangeInterval inside{crown.inside.begin,
                               std::min(crown.inside.end, end.range - kLeastSeparation)};
    energy = addCrown(*crown.tree, inside, energy, random, returns);
  }
  return energy;
}

double PulseTracer::addCrown(const Tree& tree, RangeInterval inside, double energy,
                             RandomStream& random, PulseReturns& returns) const {
  const double depth = inside.end - inside.begin;
  double range = inside.begin + 0.2 * depth * random.uniform();
  if (returns.count() > 0) {
    range = std::max(range, returns.all().back().range + kLeastSeparation);
  }
  while (range < inside.end && energy > kLeastEnergy && returns.count() + 1 < kMostReturns) {
    const double share = energy * std::min(1.0, tree.leafShare * random.uniform(0.7, 1.4));
    // Height along the beam's own slope is close enough to tell the class.
    const double aboveGround =
        tree.crownCentre.z - tree.groundHeight + 0.5 * (inside.begin + inside.end) - range;
    const Surface leaf{range, kLeafReflectance, 1.0, vegetationClass(aboveGround)};
    if (addReturn(leaf, share, random, returns)) energy -= share;
    range += kLeastSeparation + depth * random.uniform(0.1, 0.9);
  }
  return energy;
}

bool PulseTracer::addReturn(const Surface& surface, double energy, RandomStream& random,
                            PulseReturns& returns) const {
  const double nearness = receiver_.referenceRange / surface.range;
  const double speckle = 1.0 + 0.08 * random.normal();
  const double counts = kFullScale * surface.reflectance * std::abs(surface.cosine) * energy *
                        nearness * nearness * speckle;
  if (counts < kDetectionThreshold || returns.isFull()) return false;
  returns.add({surface.range + receiver_.rangeNoise * random.normal(),
               static_cast<std::uint16_t>(std::min(counts, 60000.0)), surface.classification});
  return true;
}

}  // namespace Synth
