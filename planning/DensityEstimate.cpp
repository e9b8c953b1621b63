// SPDX-License-Identifier: Apache-2.0

#include "planning/DensityEstimate.hpp"

#include <array>
#include <cmath>

#include "datamodel/memcore/Console.hpp"
#include "planning/Narrowing.hpp"

namespace LidarLib {

using Eagle::BoundingBox;
using MemCore::StrongPtr;

namespace {

constexpr std::uint64_t kPointsPerTile = 5'000'000;
constexpr double kShortestLength = 1.0;
constexpr double kLongestLength = 10'000.0;

double cellsPerUnit(double extent) {
  return static_cast<double>(DensityGrid::kCellsPerAxis - 1) / extent;
}

std::size_t cellOf(double offsetInCells) {
  return clampedCell(offsetInCells, DensityGrid::kCellsPerAxis);
}

LengthEstimate clampedLength(double length) {
  if (length < kShortestLength) {
    MemCore::Console() << "Warning: Estimated Fraglength < 1!";
    return {kShortestLength, kShortestLength};
  }
  if (length > kLongestLength) {
    MemCore::Console() << "Warning: Estimated Fraglength > 10000!";
    return {kLongestLength, kLongestLength};
  }
  return {std::round(length), length};
}

}  // namespace

DensityGrid::DensityGrid(const BoundingBox& box)
    : originX_(box.min().x),
      originY_(box.min().y),
      cellsPerUnitX_(cellsPerUnit(box.max().x - box.min().x)),
      cellsPerUnitY_(cellsPerUnit(box.max().y - box.min().y)),
      cells_(std::array<std::uint64_t, 3>{kCellsPerAxis, kCellsPerAxis, 1}) {}

void DensityGrid::addFragment(const BoundingBox& box, double pointCount) {
  const std::size_t beginX = cellOf((box.min().x - originX_) * cellsPerUnitX_);
  const std::size_t endX = cellOf((box.max().x - originX_) * cellsPerUnitX_);
  const std::size_t beginY = cellOf((box.min().y - originY_) * cellsPerUnitY_);
  const std::size_t endY = cellOf((box.max().y - originY_) * cellsPerUnitY_);
  const double density = pointCount / ((box.max().x - box.min().x) * (box.max().y - box.min().y));
  for (std::size_t iy = beginY; iy < endY; ++iy) {
    for (std::size_t ix = beginX; ix < endX; ++ix) {
      unsigned char& cell = cells_[index(ix, iy)];
      cell = truncateToLowByte(static_cast<double>(cell) + density);
    }
  }
}

double DensityGrid::density() const {
  std::uint64_t sum = 0;
  std::uint64_t filledCells = 0;
  for (const unsigned char cell : cells_.span()) {
    sum += cell;
    filledCells += cell != 0 ? 1 : 0;
  }
  return filledCells == 0 ? 0.0 : static_cast<double>(sum) / static_cast<double>(filledCells);
}

double estimateDensity(const StrongPtr<Fiber::Field>& positions) {
  StrongPtr<BoundingBox> cloudBox;
  if (!Fiber::expandBoundingBox(positions, cloudBox)) return 0.0;  // then no fragment has a box
  DensityGrid grid(*cloudBox);
  for (const Fiber::FragmentHandle& id : positions->getFragmentIDs()) {
    const Fiber::CreatorHandle creator = positions->getCreator(id);
    if (!creator) continue;
    const auto pointCount = static_cast<double>(Fiber::pointCountOf(*creator));
    StrongPtr<BoundingBox> box;
    if (!Fiber::ExpandBBox(box, *creator, Fiber::DataCreationMode::KnownOrCreate)) continue;
    grid.addFragment(*box, pointCount);
  }
  return grid.density();
}

LengthEstimate lengthForDensity(double density, bool hasWaveforms) {
  const double area = static_cast<double>(kPointsPerTile) / density;
  const double length = std::sqrt(area) * (hasWaveforms ? 0.5 : 1.0);
  const LengthEstimate estimate = clampedLength(length);
  MemCore::Console() << "New Fraglength=" << estimate.unroundedLength
                     << " estimated density [points/m2]=" << density
                     << " (TargetSize=" << kPointsPerTile << ")"
                     << " Area " << area << " "
                     << (hasWaveforms ? "Have FWFs! Fragment length / 2.0!" : "");
  return estimate;
}

}  // namespace LidarLib
