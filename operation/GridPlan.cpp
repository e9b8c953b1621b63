// SPDX-License-Identifier: Apache-2.0

#include "operation/GridPlan.hpp"

namespace LidarLib {

PlanOutcome planTiling(RefragmentAndSplit& operation, Fiber::Grid& inputGrid, GridPlan& plan) {
  std::string message;
  plan.survey = surveyGrid(inputGrid, operation.StartPoint, operation.EndPoint, message);
  if (!plan.survey.positions) {
    operation.appendMessage(message);
    return PlanOutcome::SkipGrid;
  }
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
  plan.mapping = mapFragmentBoxes(plan.layout, *plan.view, operation.NormalizedOverlap,
                                  positions->getFragmentIDs(), positions);
  return PlanOutcome::Ready;
}

void settleOutputGridName(RefragmentAndSplit& operation, const std::string& inputGridName) {
  if (operation.outputGridName == "myGrid") operation.outputGridName = inputGridName;
}

}  // namespace LidarLib
