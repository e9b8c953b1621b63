// SPDX-License-Identifier: Apache-2.0

#include "host/FaceCover.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "host/LengthChoice.hpp"
#include "host/NumberText.hpp"

namespace Host {

using LidarLib::RefragmentAndSplit;

namespace {

constexpr std::array<char, 3> kAxisNames{'x', 'y', 'z'};

TiledAxis axisOf(const LidarLib::TilingLayout& layout, std::size_t axis) {
  const std::array<std::uint64_t, 3> counts{layout.nx, layout.ny, layout.nz};
  return {layout.globalBox->min()[axis], layout.globalBox->max()[axis], counts[axis],
          layout.fragmentLength[axis]};
}

/// The length that covers the axis in every grid; 0 when all are covered.
double raisedLength(const std::vector<GridForecast>& forecasts, std::size_t axis) {
  double length = 0.0;
  bool isShort = false;
  for (const GridForecast& forecast : forecasts) {
    if (!forecast.failure.empty()) continue;
    const TiledAxis tiled = axisOf(forecast.layout, axis);
    // A cloud without extent along the axis lies on the lower face of its tiles.
    if (!(tiled.max > tiled.min)) continue;
    isShort = isShort || !coversAxis(tiled);
    length = std::max(length, coveringLength(tiled));
  }
  return isShort ? length : 0.0;
}

/// Whether estimates differ from grid to grid.
bool hasDifferentEstimates(const std::vector<GridForecast>& grids) {
  const double first = grids.front().layout.fragmentLength[0];
  return std::any_of(grids.begin(), grids.end(), [&](const GridForecast& grid) {
    return grid.layout.isEstimated && grid.layout.fragmentLength[0] != first;
  });
}

/// Raises the operation's lengths once; false when nothing had to change.
bool raiseLengths(const std::vector<GridForecast>& grids, RefragmentAndSplit& operation) {
  bool isChanged = false;
  const bool isEstimate = operation.FragmentLength[0] <= 0.0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (axis < 2 && isEstimate && hasDifferentEstimates(grids)) continue;
    const double length = raisedLength(grids, axis);
    if (length == 0.0) continue;
    if (axis < 2 && operation.FragmentLength[0] <= 0.0) {
      // The estimate settles x and y together; to correct one, both have to be given.
      operation.FragmentLength[0] = grids.front().layout.fragmentLength[0];
      operation.FragmentLength[1] = grids.front().layout.fragmentLength[1];
    }
    operation.FragmentLength[axis] = length;
    isChanged = true;
  }
  return isChanged;
}

/// Plans again without forgetting which lengths came from an estimate.
void planAnew(SplitPlan& plan, const PlanAgain& planAgain) {
  const std::vector<GridForecast> former = std::move(plan.grids);
  plan.grids = planAgain();
  for (std::size_t i = 0; i < former.size(); ++i) {
    plan.grids[i].layout.isEstimated = former[i].layout.isEstimated;
    plan.grids[i].layout.estimatedDensity = former[i].layout.estimatedDensity;
  }
}

void tellRaised(SplitPlan& plan, std::size_t axis, bool wasGiven, double length) {
  (wasGiven ? plan.notes : plan.details)
      .push_back(fmt::format("tile length along {} raised to {} against rounding, so that the "
                             "tiles reach the cloud's last face",
                             kAxisNames[axis], exactText(length)));
}

void warnOfGaps(SplitPlan& plan) {
  for (const GridForecast& forecast : plan.grids) {
    if (!forecast.failure.empty()) continue;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (coversAxis(axisOf(forecast.layout, axis))) continue;
      plan.warnings.push_back(fmt::format(
          "grid {} at time {}: the tiles end just short of the cloud along {}; a slightly longer "
          "--fragment-length takes its last points in",
          forecast.source.name, exactText(forecast.source.time), kAxisNames[axis]));
    }
  }
}

}  // namespace

void coverLastFaces(SplitPlan& plan, RefragmentAndSplit& operation, const PlanAgain& planAgain) {
  // Raising a length for one grid may leave another short; each pass raises it further.
  constexpr int kMostPasses = 8;
  const auto given = operation.FragmentLength;
  const auto former = plan.grids.front().layout.fragmentLength;
  for (int pass = 0; pass < kMostPasses; ++pass) {
    if (!raiseLengths(plan.grids, operation)) break;
    planAnew(plan, planAgain);
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double length = plan.grids.front().layout.fragmentLength[axis];
    if (length != former[axis]) tellRaised(plan, axis, given[axis] > 0.0, length);
  }
  warnOfGaps(plan);
}

}  // namespace Host
