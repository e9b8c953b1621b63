// SPDX-License-Identifier: Apache-2.0

#include "host/DensityCheck.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "planning/DensityEstimate.hpp"
#include "planning/Narrowing.hpp"

namespace Host {

using MemCore::StrongPtr;

namespace {

constexpr std::size_t kCells = LidarLib::DensityGrid::kCellsPerAxis;
constexpr double kHighestCounted = 255.0;

/// Sums of densities in the cells of the estimate, as doubles.
class CellSums {
 public:
  explicit CellSums(const Eagle::BoundingBox& box) : box_(box), cells_(kCells * kCells, 0.0) {}

  void add(const Eagle::BoundingBox& box, double pointCount) {
    const auto edge = box.diagonal();
    const double density = pointCount / (edge[0] * edge[1]);
    if (!std::isfinite(density)) return;
    for (std::size_t y = cell(box.min(), 1); y < cell(box.max(), 1); ++y) {
      for (std::size_t x = cell(box.min(), 0); x < cell(box.max(), 0); ++x) {
        cells_[y * kCells + x] += density;
      }
    }
  }

  DensityFigures figures() const {
    DensityFigures result;
    std::size_t filled = 0;
    for (const double value : cells_) {
      result.peak = std::max(result.peak, value);
      result.mean += value;
      filled += value > 0.0 ? 1 : 0;
    }
    if (filled != 0) result.mean /= static_cast<double>(filled);
    return result;
  }

 private:
  std::size_t cell(const Eagle::PhysicalSpace::point& place, std::size_t axis) const {
    const double scale = static_cast<double>(kCells - 1) / (box_.max()[axis] - box_.min()[axis]);
    return LidarLib::clampedCell((place[axis] - box_.min()[axis]) * scale, kCells);
  }

  Eagle::BoundingBox box_;
  std::vector<double> cells_;
};

}  // namespace

DensityFigures measureDensity(const StrongPtr<Fiber::Field>& positions) {
  StrongPtr<Eagle::BoundingBox> cloudBox;
  if (!positions || !Fiber::expandBoundingBox(positions, cloudBox)) return {};
  CellSums sums(*cloudBox);
  for (const Fiber::FragmentHandle& id : positions->getFragmentIDs()) {
    const Fiber::CreatorHandle creator = positions->getCreator(id);
    StrongPtr<Eagle::BoundingBox> box;
    if (!creator || !Fiber::ExpandBBox(box, *creator, Fiber::DataCreationMode::KnownOrCreate)) {
      continue;
    }
    sums.add(*box, static_cast<double>(Fiber::pointCountOf(*creator)));
  }
  return sums.figures();
}

std::string densityWarning(const LidarLib::TilingLayout& layout, bool wantsEstimate) {
  if (!wantsEstimate) return {};
  if (!layout.isEstimated) {
    return "too few points per square unit to estimate a tile length, so that one tile spans the "
           "cloud; --points-per-tile or --fragment-length sets one";
  }
  const DensityFigures density = measureDensity(layout.positions);
  if (density.peak > kHighestCounted) {
    return fmt::format(
        "up to {:.0f} points per square unit, above 255 the estimate of the tile length is wrong; "
        "--points-per-tile or --fragment-length sets one",
        density.peak);
  }
  const double ratio = layout.estimatedDensity / density.mean;
  if (ratio > 0.5 && ratio < 2.0) return {};
  return fmt::format(
      "the tile length is estimated from {:.3g} points per square unit where there are {:.3g}; "
      "--points-per-tile or --fragment-length sets one",
      layout.estimatedDensity, density.mean);
}

}  // namespace Host
