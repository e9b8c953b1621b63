// SPDX-License-Identifier: Apache-2.0

#include "operation/TileCopy.hpp"

#include <unordered_set>

#include "datamodel/memcore/Console.hpp"
#include "operation/ReadFailures.hpp"

namespace LidarLib {

using MemCore::StrongPtr;

TilePoints selectTilePoints(const RefragmentAndSplit& operation, const GridPlan& plan,
                            const TileCell& cell, const Fiber::MultiIndex<3>& index) {
  const TileEntry entry = tileEntry(*plan.view, index, plan.layout, operation.NormalizedOverlap);
  const auto& positions = plan.survey.positions;
  TilePoints points;
  points.outputFragment = entry.first;
  points.selection = selectPointsInTile(cell.first, positions, entry.second, index);
  points.unreadable = readFailure(*positions, cell.first);
  return points;
}

bool hasEnoughPoints(const RefragmentAndSplit& operation, const TileSelection& selection) {
  if (selection.pointCount > operation.MinPointNumber) return true;
  if (selection.pointCount != 0) {
    MemCore::Console() << "Fragment will be dumped. Low Point Size=" << selection.pointCount;
  }
  return false;
}

FieldCopy fieldCopyFor(RefragmentAndSplit& operation, const GridPlan& plan, const TileCell& cell,
                       Fiber::Grid& inputGrid, const TileSelection& selection) {
  FieldCopy copy;
  copy.inputPositions = plan.survey.positions;
  copy.operation = &operation;
  copy.selection = selection;
  copy.fragments = cell.first;
  copy.waveformLengths = scanWaveformLengths(inputGrid, cell.first, *selection.indexLists);
  return copy;
}

std::string readFailure(Fiber::Skeleton& vertices, const FragmentSet& fragments) {
  std::string failure;
  std::unordered_set<unsigned long long> visited;
  vertices.iterate_fields(
      [&](const MemCore::WeakPtr<Fiber::BaseSpace>&, Fiber::Representation&, const Fiber::FieldID&,
          const StrongPtr<Fiber::Field>& field) {
        failure = readFailure(*field, fragments);
        return failure.empty();
      },
      visited);
  return failure;
}

}  // namespace LidarLib
