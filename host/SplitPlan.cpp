// SPDX-License-Identifier: Apache-2.0

#include "host/SplitPlan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "datamodel/memcore/Allocator.hpp"
#include "datamodel/memcore/Console.hpp"
#include "host/DensityCheck.hpp"
#include "host/FaceCover.hpp"
#include "host/LengthChoice.hpp"
#include "host/NumberText.hpp"
#include "host/OutsidePoints.hpp"
#include "host/TileBound.hpp"
#include "planning/FragmentMapping.hpp"

namespace Host {

using LidarLib::RefragmentAndSplit;
using Lengths = Eagle::FixedArray<double, 3>;

namespace {

constexpr std::uint64_t kPointLimit = std::numeric_limits<std::uint32_t>::max();

LidarLib::PointHandle pointHandle(const std::optional<Eagle::PhysicalSpace::point>& point) {
  if (!point) return nullptr;
  return MemCore::makeStrong<MemCore::Chunk<Eagle::PhysicalSpace::point>>(1, *point);
}

bool hasGivenBox(const TilingOptions& tiling) { return tiling.start || tiling.end; }

/// The survey's failures, for a reader who knows flags and files.
std::string surveyFailure(const std::string& message, const TilingOptions& tiling) {
  if (message != "no global bbox for") return message;
  return hasGivenBox(tiling) ? "no box to tile, --start lies beyond the cloud or --end before it"
                             : "no points";
}

LidarLib::TilingLayout layoutFor(const LidarLib::GridSurvey& survey,
                                 RefragmentAndSplit& operation) {
  const bool hasWaveforms = survey.hasWaveforms && (operation.UseThisField("Waveforms") ||
                                                    operation.UseThisField("Waveforms_hp"));
  Lengths length = operation.FragmentLength;
  return LidarLib::estimateTiling(survey.globalBox, length, operation.NormalizedOverlap,
                                  survey.positions, hasWaveforms);
}

/// Points that no tile can receive, and how many the fullest might: what needs a valid layout.
void examinePoints(GridForecast& forecast, const TilingOptions& tiling) {
  const auto& layout = forecast.layout;
  if (hasGivenBox(tiling)) {
    const auto outside = countPointsOutside(*layout.positions, *layout.tiledBox);
    if (!outside.ok()) {
      forecast.failure = outside.error();
      return;
    }
    forecast.outsidePoints = *outside;
  }
  if (forecast.pointCount <= kPointLimit) return;
  const std::uint64_t bound = fullestTileBound(layout);
  if (bound <= kPointLimit) return;
  forecast.failure = fmt::format(
      "a tile may receive {} points, expected at most {}; give shorter "
      "--fragment-length",
      countText(bound), countText(kPointLimit));
}

GridForecast forecastGrid(const SelectedGrid& selected, const TilingOptions& tiling,
                          RefragmentAndSplit& operation) {
  GridForecast forecast;
  forecast.source = selected;
  if (const auto positions = selected.grid->CartesianPositions()) {
    forecast.pointCount = countPoints(*positions);
  }
  std::string message;
  const LidarLib::GridSurvey survey =
      LidarLib::surveyGrid(*selected.grid, operation.StartPoint, operation.EndPoint, message);
  if (!survey.positions) {
    forecast.failure = surveyFailure(message, tiling);
    return forecast;
  }
  forecast.layout = layoutFor(survey, operation);
  if (!forecast.layout.message.empty()) {
    forecast.failure = forecast.layout.message + " Give longer --fragment-length";
  } else {
    forecast.failure = memoryShortage(forecast.tileCount(), MemCore::usableMemory());
  }
  return forecast;
}

std::vector<GridForecast> forecastGrids(const std::vector<SelectedGrid>& grids,
                                        const TilingOptions& tiling,
                                        RefragmentAndSplit& operation) {
  std::vector<GridForecast> forecasts;
  forecasts.reserve(grids.size());
  for (const SelectedGrid& grid : grids) {
    forecasts.push_back(forecastGrid(grid, tiling, operation));
  }
  return forecasts;
}

/// The length for a wished number of points per tile that suits the densest grid.
double lengthForAll(const std::vector<GridForecast>& forecasts, std::uint64_t pointsPerTile) {
  double shortest = 0.0;
  for (const GridForecast& forecast : forecasts) {
    if (!forecast.layout.globalBox || !forecast.layout.positions) continue;
    const auto outside = countPointsOutside(*forecast.layout.positions, *forecast.layout.globalBox);
    const std::uint64_t inside = forecast.pointCount - (outside.ok() ? *outside : 0);
    const double length = lengthForPointsPerTile(*forecast.layout.globalBox, inside, pointsPerTile);
    if (length > 0.0 && (shortest == 0.0 || length < shortest)) shortest = length;
  }
  return shortest;
}

std::string inGrid(const GridForecast& forecast, const std::string& text) {
  return fmt::format("grid {} at time {}: {}", forecast.source.name,
                     exactText(forecast.source.time), text);
}

void warnOf(SplitPlan& plan, const GridForecast& forecast, bool wantsEstimate) {
  if (!forecast.failure.empty()) return;
  const std::string density = densityWarning(forecast.layout, wantsEstimate);
  if (!density.empty()) plan.warnings.push_back(inGrid(forecast, density));
  if (forecast.outsidePoints != 0) {
    plan.notes.push_back(inGrid(
        forecast, countText(forecast.outsidePoints, "point") + " outside the tiles are left out"));
  }
}

}  // namespace

std::string memoryShortage(std::uint64_t tileCount, std::uint64_t memoryBytes) {
  const std::uint64_t needed = tileCount * LidarLib::kPlanBytesPerTile;
  if (needed <= memoryBytes) return {};
  constexpr double kGigabyte = 1e9;
  return fmt::format(
      "{} need about {:.1f} GB of memory to plan, found {:.1f} GB; give longer --fragment-length",
      countText(tileCount, "tile"), static_cast<double>(needed) / kGigabyte,
      static_cast<double>(memoryBytes) / kGigabyte);
}

double GridForecast::boxDensity() const {
  if (!layout.globalBox) return 0.0;
  const auto edge = layout.globalBox->diagonal();
  const double area = edge[0] * edge[1];
  const std::uint64_t inside = pointCount - std::min(pointCount, outsidePoints);
  return area > 0.0 ? static_cast<double>(inside) / area : 0.0;
}

std::string SplitPlan::failure() const {
  for (const GridForecast& forecast : grids) {
    if (!forecast.failure.empty()) return inGrid(forecast, forecast.failure);
  }
  return {};
}

void applyOptions(const TilingOptions& tiling, const FilterOptions& filters,
                  RefragmentAndSplit& operation) {
  operation.FragmentLength = tiling.fragmentLength;
  operation.NormalizedOverlap = tiling.overlap;
  operation.MinPointNumber = tiling.minPoints;
  operation.StartPoint = pointHandle(tiling.start);
  operation.EndPoint = pointHandle(tiling.end);
  operation.timeFilter = filters.times;
  operation.gridFilter = filters.grids;
  operation.fieldFilter = filters.fields;
  // A tile without positions is no tile.
  if (!operation.fieldFilter.empty()) operation.fieldFilter.insert("Positions");
}

SplitPlan makePlan(const std::vector<SelectedGrid>& grids, const TilingOptions& tiling,
                   RefragmentAndSplit& operation) {
  const MemCore::ConsoleRedirection silence([](const std::string&) {});
  SplitPlan plan;
  plan.grids = forecastGrids(grids, tiling, operation);
  if (tiling.pointsPerTile) {
    const double length = lengthForAll(plan.grids, *tiling.pointsPerTile);
    operation.FragmentLength[0] = length;
    operation.FragmentLength[1] = length;
    plan.grids = forecastGrids(grids, tiling, operation);
  }
  const bool wantsEstimate = operation.FragmentLength[0] <= 0.0;
  coverLastFaces(plan, operation, [&] { return forecastGrids(grids, tiling, operation); });
  for (GridForecast& forecast : plan.grids) {
    if (forecast.failure.empty()) examinePoints(forecast, tiling);
    warnOf(plan, forecast, wantsEstimate);
  }
  return plan;
}

}  // namespace Host
