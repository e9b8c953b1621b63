// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Console.hpp"
#include "datamodel/memcore/Text.hpp"
#include "operation/RefragmentAndSplit.hpp"
#include "planning/TilingLayout.hpp"

namespace LidarLib {

namespace {

/// The report of one grid. Deliberate: the waveform flag goes in unfiltered, unlike in a run, and
/// the layout's failure is not reported.
std::string gridInfo(const RefragmentAndSplit& operation, Fiber::Grid& grid) {
  std::string message;
  const GridSurvey survey = surveyGrid(grid, operation.StartPoint, operation.EndPoint, message);
  if (!survey.positions) {
    MemCore::Console() << message;
    return std::string();
  }
  Eagle::FixedArray<double, 3> fragmentLength = operation.FragmentLength;
  return estimateTiling(survey.globalBox, fragmentLength, operation.NormalizedOverlap,
                        survey.positions, survey.hasWaveforms)
      .info;
}

}  // namespace

std::string RefragmentAndSplit::GetSomeInfo() {
  std::string report;
  if (!inputBundle) return report;
  for (const auto& [time, slice] : inputBundle->slices()) {
    if (!slice) continue;
    slice->accessSlice();
    if (!UseThisTime(time)) continue;
    report += "Time: " + MemCore::formatFixed(time);
    for (const auto& [name, grid] : slice->grids()) {
      if (!grid || !UseThisGrid(name)) continue;
      report += " Grid: " + name + "\n";
      report += gridInfo(*this, *grid);
    }
  }
  return report;
}

}  // namespace LidarLib
