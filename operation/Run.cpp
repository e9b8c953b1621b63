// SPDX-License-Identifier: Apache-2.0
//
// The split run. Slices and grids are visited by the calling thread; per grid one parallel region
// hands out the tiles one by one, because their point counts differ widely. Memory holds at most
// one tile per thread beside the cache. The run ends when the files are linked and the output
// bundle is saved.

#include <omp.h>
#include <sys/stat.h>

#include <exception>

#include "datamodel/memcore/Console.hpp"
#include "operation/GridPlan.hpp"
#include "operation/Linking.hpp"
#include "operation/PointTotals.hpp"
#include "operation/RefragmentAndSplit.hpp"
#include "operation/TileTask.hpp"

namespace LidarLib {

using MemCore::StrongPtr;

namespace {

/// What one run carries from grid to grid.
struct SplitRun {
  RefragmentAndSplit& operation;
  Fiber::BundlePtr output{new Fiber::Bundle};
  std::uint64_t inputPoints = 0;
  std::uint64_t outputPoints = 0;
};

void buildTiles(SplitContext& context) {
  // Deliberate: the loop counts in 32 bits, as many tiles as a tiling may have by far.
  const auto tileCount = static_cast<std::uint32_t>(context.plan.tileCount());
#pragma omp parallel num_threads(omp_get_max_threads())
  {
#pragma omp for schedule(nonmonotonic : dynamic, 1) nowait
    for (std::uint32_t t = 0; t < tileCount; ++t) splitTile(context, t);
  }
}

/// Links every tile with data, whether written now, written earlier or dropped: what has no file
/// contributes nothing.
void linkTiles(SplitRun& run, SplitContext& context, GridPlan& plan, Fiber::Grid& outputGrid) {
  const std::uint64_t tileCount = plan.tileCount();
  for (std::uint64_t t = 0; t < tileCount; ++t) {
    if ((*plan.mapping.tileCells)[t].first.empty()) continue;
    const Fiber::MultiIndex<3> index = plan.tileIndex(t);
    copyCreators(context.files.fileName(index), outputGrid, plan.output.positions, index,
                 run.outputPoints);
  }
}

PlanOutcome splitGrid(SplitRun& run, double time, const StrongPtr<Fiber::Grid>& inputGrid) {
  RefragmentAndSplit& operation = run.operation;
  MemCore::Console() << "RefragmentAndSplit2: Grid: " << inputGrid->name();
  settleOutputGridName(operation, inputGrid->name());
  GridPlan plan;
  PlanOutcome outcome = planTiling(operation, *inputGrid, plan);
  if (outcome != PlanOutcome::Ready) return outcome;

  const auto outputGrid = (*(*run.output)[time])[operation.outputGridName];
  operation.addInfoToGrid(operation.provenanceSource, *outputGrid, operation.provenanceDescription,
                          nullptr, 0, 1);
  outcome = planOutput(operation, *inputGrid, outputGrid, plan);
  if (outcome != PlanOutcome::Ready) return outcome;
  // Deliberate: assigned, while the output total adds up over the grids.
  run.inputPoints = plan.mapping.inputPointTotal;

  const std::string stem = fileStem(operation.outputFileName);
  // Deliberate: relative to the working directory, not under the output directory. An existing
  // directory is normal, and where it cannot be made the tiles' own messages tell.
  ::mkdir(stem.c_str(), 0777);
  SplitContext context{operation,
                       inputGrid,
                       time,
                       plan,
                       {operation.outputDirectory, stem, time, operation.outputGridName}};
  buildTiles(context);
  linkTiles(run, context, plan, *outputGrid);
  addFieldAttributes(*outputGrid);
  plan.output.positions->addInterface(plan.layout.tiledBox);
  return PlanOutcome::Ready;
}

void splitSlice(SplitRun& run, double time, const Fiber::Slice& slice) {
  for (const auto& [name, grid] : slice.grids()) {
    if (!grid || !run.operation.UseThisGrid(name)) continue;
    if (splitGrid(run, time, grid) == PlanOutcome::SkipSlice) return;
  }
}

void splitBundle(RefragmentAndSplit& operation) {
  operation.printParameters();
  SplitRun run{operation};
  for (const auto& [time, slice] : operation.inputBundle->slices()) {
    if (!slice) continue;
    slice->accessSlice();
    if (operation.UseThisTime(time)) splitSlice(run, time, *slice);
  }
  const auto transformations = MemCore::makeStrong<Fiber::StorageTransformations>();
  const std::string failure = saveLinking(operation, *run.output, transformations);
  if (!failure.empty()) operation.appendMessage(failure);
  comparePointCounts(run.outputPoints, run.inputPoints, operation.NormalizedOverlap);
}

}  // namespace

bool RefragmentAndSplit::Run() {
  if (!inputBundle) {
    appendMessage("bundleptr is null");
    return false;
  }
  try {
    splitBundle(*this);
    return true;
  } catch (const std::exception& error) {
    // What the tiles catch never gets here: memory ran out while planning or linking.
    appendMessage(outputFileName + ": not written: " + error.what());
    return false;
  }
}

}  // namespace LidarLib
