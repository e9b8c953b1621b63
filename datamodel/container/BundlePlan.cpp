// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/BundlePlan.hpp"

#include <fmt/format.h>

#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/RepresentationPlan.hpp"
#include "datamodel/container/StoredName.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

/// Walks the model down to the representations.
class Planner {
 public:
  Planner(const std::string& file, bool linkFragments)
      : file_(file), linkFragments_(linkFragments) {}

  Outcome<BundlePlan> plan(const Bundle& bundle) {
    BundlePlan plan;
    plan.file = file_;
    for (const auto& [time, slice] : bundle.slices()) {
      if (!slice) continue;
      PlannedSlice planned{time, timeText(time), {}};
      for (const auto& [name, grid] : slice->grids()) {
        if (!grid) continue;
        auto plannedGrid =
            planGrid(grid, planned.group + "/" + storedName(name, kRepresentationWords));
        if (!plannedGrid.ok()) {
          return Failure{fmt::format("{}: grid {}: {}", file_, name, plannedGrid.error())};
        }
        planned.grids.push_back(std::move(plannedGrid).value());
      }
      plan.slices.push_back(std::move(planned));
    }
    return plan;
  }

 private:
  Outcome<PlannedGrid> planGrid(const StrongPtr<Grid>& grid, const std::string& group) const {
    PlannedGrid planned{grid, group, {}};
    for (const auto& [id, skeleton] : grid->skeletons().all()) {
      PlannedSkeleton plannedSkeleton;
      plannedSkeleton.id = id;
      plannedSkeleton.group = fmt::format("{}/skeleton_{}_{}", group, id.dimension, id.refinement);
      for (const auto& [chart, entry] : skeleton->representations().all()) {
        auto representation = planRepresentation(*entry.representation, file_, linkFragments_);
        if (!representation.ok()) return representation.failure();
        representation->chart = chart;
        representation->group =
            plannedSkeleton.group + "/" + storedName(chart, kRepresentationWords);
        plannedSkeleton.representations.push_back(std::move(representation).value());
      }
      planned.skeletons.push_back(std::move(plannedSkeleton));
    }
    return planned;
  }

  const std::string& file_;
  bool linkFragments_;
};

}  // namespace

Outcome<BundlePlan> planBundle(const Bundle& bundle, const std::string& file, bool linkFragments) {
  return Planner(file, linkFragments).plan(bundle);
}

}  // namespace Fiber::Container
