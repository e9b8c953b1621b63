// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/Grid.hpp"

namespace Fiber {

using MemCore::handleCast;
using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

constexpr int kSpaceDimension = 3;

const std::string& standardIfEmpty(const std::string& chart) {
  static const std::string standard = kCartesianChart;
  return chart.empty() ? standard : chart;
}

}  // namespace

StrongPtr<ChartID> Grid::makeCartesianChart(const std::string& name, unsigned short /*reserved*/) {
  const std::string& chart = standardIfEmpty(name);
  const std::lock_guard lock(chartMutex_);
  auto& space = charts_[chart];
  if (!space) space = makeStrong<BaseSpace>(chart);
  return makeStrong<ChartID>(ChartID{chart});
}

StrongPtr<ChartID> Grid::findCartesianChart(const std::string& name) const {
  const std::string& chart = standardIfEmpty(name);
  const std::lock_guard lock(chartMutex_);
  return charts_.count(chart) != 0 ? makeStrong<ChartID>(ChartID{chart}) : nullptr;
}

StrongPtr<BaseSpace> Grid::baseSpace(const std::string& chart) const {
  const std::lock_guard lock(chartMutex_);
  const auto found = charts_.find(standardIfEmpty(chart));
  return found == charts_.end() ? nullptr : found->second;
}

StrongPtr<Representation> Grid::makeCartesianRepresentation(int dimension, const std::string& chart,
                                                            unsigned short reserved) {
  if (dimension != kSpaceDimension) return nullptr;
  makeCartesianChart(chart, reserved);
  return (*skeletons_[SkeletonID{}])[baseSpace(chart)];
}

StrongPtr<Representation> Grid::getCartesianRepresentation(const std::string& chart) const {
  const auto vertices = skeletons_.findVertices(-1);
  return vertices ? getCartesianRepresentation(*vertices, chart) : nullptr;
}

StrongPtr<Representation> Grid::getCartesianRepresentation(const Skeleton& skeleton,
                                                           const std::string& chart) const {
  return skeleton.representations().find(standardIfEmpty(chart));
}

StrongPtr<Field> Grid::CartesianPositions() const {
  const auto representation = getCartesianRepresentation("");
  return representation ? representation->findField("Positions") : nullptr;
}

StrongPtr<Field> Grid::getField(const StrongPtr<ChartID>& chart, const std::string& name,
                                const StrongPtr<Skeleton>& skeleton) const {
  if (!chart || !skeleton) return nullptr;
  const auto representation = skeleton->representations().find(chart->name);
  return representation ? representation->findField(name) : nullptr;
}

GridWithCartesianVertices::GridWithCartesianVertices(const StrongPtr<Grid>& grid,
                                                     const StrongPtr<Field>& positions)
    : TypedGrid(grid) {
  if (!grid) return;
  grid->makeCartesianRepresentation(kSpaceDimension, "", 0)->setPositions(positions);
}

FragmentedUniformGrid3D::FragmentedUniformGrid3D(const StrongPtr<Grid>& grid)
    : TypedGrid(grid),
      positions_(grid ? handleCast<RegularlyFragmentedField<3>>(grid->CartesianPositions())
                      : nullptr) {}

MultiIndex<3> FragmentedUniformGrid3D::counts() const {
  return positions_ ? positions_->counts() : MultiIndex<3>{};
}

FragmentHandle FragmentedUniformGrid3D::fragmentAt(const MultiIndex<3>& index) const {
  return positions_ ? positions_->fragmentAt(index) : nullptr;
}

std::vector<FragmentHandle> FragmentedUniformGrid3D::fragmentsFrom(const MultiIndex<3>& first,
                                                                   std::uint64_t count) const {
  return positions_ ? positions_->fragmentsFrom(first, count) : std::vector<FragmentHandle>(count);
}

}  // namespace Fiber
