// SPDX-License-Identifier: Apache-2.0

#include "operation/GridPlan.hpp"

#include <fmt/format.h>

#include <new>

#include "operation/ReadFailures.hpp"

namespace LidarLib {

namespace {

/// A fragment that cannot be read has no box and would be missing from every tile.
PlanOutcome refuseUnreadable(RefragmentAndSplit& operation, const GridPlan& plan) {
  const std::string failure = readFailure(*plan.survey.positions);
  if (failure.empty()) return PlanOutcome::Ready;
  operation.appendMessage(failure);
  return PlanOutcome::SkipGrid;
}

PlanOutcome refuseTooMany(RefragmentAndSplit& operation, std::uint64_t tileCount,
                          std::uint64_t neededBytes) {
  constexpr double kGigabyte = 1e9;
  operation.appendMessage(
      fmt::format("not enough memory to plan {} tiles, expected about {:.1f} GB", tileCount,
                  static_cast<double>(neededBytes) / kGigabyte));
  return PlanOutcome::SkipSlice;
}

}  // namespace

PlanOutcome planTiling(RefragmentAndSplit& operation, Fiber::Grid& inputGrid, GridPlan& plan) {
  std::string message;
  plan.survey = surveyGrid(inputGrid, operation.StartPoint, operation.EndPoint, message);
  if (!plan.survey.positions) {
    operation.appendMessage(message);
    return PlanOutcome::SkipGrid;
  }
  if (refuseUnreadable(operation, plan) != PlanOutcome::Ready) return PlanOutcome::SkipGrid;
  const bool hasWaveforms = plan.survey.hasWaveforms && (operation.UseThisField("Waveforms") ||
                                                         operation.UseThisField("Waveforms_hp"));
  Eagle::FixedArray<double, 3> fragmentLength = operation.FragmentLength;
  plan.layout = estimateTiling(plan.survey.globalBox, fragmentLength, operation.NormalizedOverlap,
                               plan.survey.positions, hasWaveforms);
  if (plan.layout.message.empty()) return PlanOutcome::Ready;
  operation.appendMessage(plan.layout.message);
  return PlanOutcome::SkipSlice;
}

PlanOutcome planOutput(RefragmentAndSplit& operation, const Fiber::Grid& inputGrid,
                       const MemCore::StrongPtr<Fiber::Grid>& outputGrid, GridPlan& plan) {
  std::string message;
  plan.output = buildOutputGrid(inputGrid, *outputGrid, plan.layout, message);
  if (!message.empty()) {
    operation.appendMessage(message);
    return PlanOutcome::SkipSlice;
  }
  plan.view.emplace(outputGrid);
  const auto& positions = plan.survey.positions;
  try {
    plan.mapping = mapFragmentBoxes(plan.layout, *plan.view, operation.NormalizedOverlap,
                                    positions->getFragmentIDs(), positions);
  } catch (const MappingTooLarge& refusal) {
    return refuseTooMany(operation, plan.tileCount(), refusal.neededBytes());
  } catch (const std::bad_alloc&) {
    return refuseTooMany(operation, plan.tileCount(), plan.tileCount() * kPlanBytesPerTile);
  }
  // With both corners given nothing was read before the mapping.
  return refuseUnreadable(operation, plan);
}

void settleOutputGridName(RefragmentAndSplit& operation, const std::string& inputGridName) {
  if (operation.outputGridName == "myGrid") operation.outputGridName = inputGridName;
}

}  // namespace LidarLib
