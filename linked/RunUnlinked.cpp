// SPDX-License-Identifier: Apache-2.0
//
// The unlinked run: the tiles become fragments of one output bundle, one after the other on the
// calling thread. A finished tile leaves memory for the file that the bundle is bound to, so that
// memory holds one tile beside the cache, however large the output is.

#include <exception>
#include <unordered_set>
#include <vector>

#include "operation/GridPlan.hpp"
#include "operation/Linking.hpp"
#include "operation/PointTotals.hpp"
#include "operation/RefragmentAndSplit.hpp"
#include "operation/TileCopy.hpp"

namespace LidarLib {

using Fiber::FragmentHandle;
using MemCore::StrongPtr;

namespace {

/// What one run carries from grid to grid.
struct UnlinkedRun {
  RefragmentAndSplit& operation;
  Fiber::BundlePtr output;
  std::uint64_t inputPoints = 0;
  std::uint64_t outputPoints = 0;
};

/// One grid on its way.
struct GridRun {
  UnlinkedRun& run;
  StrongPtr<Fiber::Grid> inputGrid;
  StrongPtr<Fiber::Grid> outputGrid;
  GridPlan plan;
  std::int32_t visited = 0;  ///< tiles with data so far
};

template <class Visit>
void forEachField(const Fiber::Grid& grid, const Visit& visit) {
  const auto vertices = grid.skeletons().findVertices(-1);
  if (!vertices) return;
  std::unordered_set<unsigned long long> visited;
  vertices->iterate_fields(
      [&](const MemCore::WeakPtr<Fiber::BaseSpace>&, Fiber::Representation&, const Fiber::FieldID&,
          const StrongPtr<Fiber::Field>& field) {
        visit(*field);
        return true;
      },
      visited);
}

/// Asks the host whether to go on.
bool mayContinue(GridRun& grid) {
  RefragmentAndSplit& operation = grid.run.operation;
  const auto done = static_cast<std::uint64_t>(grid.visited++);
  if (!operation.tileProgress ||
      operation.tileProgress->report("Tiling #", done, grid.plan.mapping.tilesWithData)) {
    return true;
  }
  operation.appendMessage("Interrupted");
  return false;
}

/// Takes what an earlier grid put into the tile back into memory: this grid's values go over it.
void bringBack(GridRun& grid, const FragmentHandle& fragment) {
  if (!grid.run.output->binding) return;
  forEachField(*grid.outputGrid, [&](Fiber::Field& field) {
    if (const auto data = field.getData(fragment)) {
      field.setPersistentData(data, fragment, MemCore::Cache::MemCache(), "");
    }
  });
}

/// Moves a finished tile into the file of the output bundle, if it has one.
std::string storeTile(GridRun& grid, const FragmentHandle& fragment) {
  const auto& binding = grid.run.output->binding;
  std::string failure;
  if (!binding) return failure;
  forEachField(*grid.outputGrid, [&](Fiber::Field& field) {
    if (!failure.empty()) return;
    const auto stored = binding->store(field, fragment);
    if (!stored.ok()) failure = stored.error();
  });
  return failure;
}

/// Completes a tile whose fields are filled, and counts its points.
void finishTile(GridRun& grid, const FragmentHandle& fragment) {
  const RegularPositions& positions = grid.plan.output.positions;
  const Fiber::CreatorHandle creator = positions->getCreator(fragment);
  if (!creator) return;
  grid.run.outputPoints += Fiber::pointCountOf(*creator);
  finishTilePositions(creator, positions);
  creator->finish();
}

/// Fills a tile's fragment; returns the failure text.
std::string fillTile(GridRun& grid, const TileCell& cell, const Fiber::MultiIndex<3>& index,
                     const TilePoints& points) {
  FieldCopy copy =
      fieldCopyFor(grid.run.operation, grid.plan, cell, *grid.inputGrid, points.selection);
  copy.tileIndex = index;
  copy.outputGrid = grid.outputGrid;
  copy.outputFragment = points.outputFragment;
  copy.templateField = grid.plan.output.positions;
  grid.outputGrid->makeCartesianChart(Fiber::kCartesianChart, 0);
  if (const auto vertices = grid.inputGrid->skeletons().findVertices(-1)) {
    bringBack(grid, points.outputFragment);
    copyFieldsIntoTile(copy, *vertices);
    std::string unreadable = readFailure(*vertices, cell.first);
    if (!unreadable.empty()) return unreadable;
  }
  finishTile(grid, points.outputFragment);
  return storeTile(grid, points.outputFragment);
}

/// A tile without some of its values must not pass for a finished one.
void dropTile(GridRun& grid, const FragmentHandle& fragment) {
  forEachField(*grid.outputGrid, [&](Fiber::Field& field) { field.setCreator(fragment, nullptr); });
}

void buildTile(GridRun& grid, const TileCell& cell, const Fiber::MultiIndex<3>& index) {
  RefragmentAndSplit& operation = grid.run.operation;
  std::string failure;
  try {
    const TilePoints points = selectTilePoints(operation, grid.plan, cell, index);
    failure = points.unreadable;
    if (failure.empty() && !hasEnoughPoints(operation, points.selection)) return;
    if (failure.empty()) failure = fillTile(grid, cell, index, points);
  } catch (const std::bad_alloc&) {
    failure = "not enough memory for the tile";
  } catch (const std::exception& error) {
    failure = error.what();
  }
  if (failure.empty()) return;
  dropTile(grid, grid.plan.output.positions->fragmentAt(index));
  operation.appendMessage(operation.outputFileName + ": tile " + Fiber::tileIndexText(index) +
                          ": not written: " + failure);
}

/// Builds the tiles of a grid, x fastest; false after an interruption.
bool buildTiles(GridRun& grid) {
  for (std::uint64_t t = 0; t < grid.plan.tileCount(); ++t) {
    const TileCell& cell = (*grid.plan.mapping.tileCells)[t];
    if (cell.first.empty()) continue;
    if (!mayContinue(grid)) return false;
    buildTile(grid, cell, grid.plan.tileIndex(t));
  }
  return true;
}

PlanOutcome tileGrid(UnlinkedRun& run, double time, const StrongPtr<Fiber::Grid>& inputGrid) {
  RefragmentAndSplit& operation = run.operation;
  GridRun grid{run, inputGrid, nullptr, {}};
  PlanOutcome outcome = planTiling(operation, *inputGrid, grid.plan);
  if (outcome != PlanOutcome::Ready) return outcome;
  settleOutputGridName(operation, inputGrid->name());
  grid.outputGrid = (*(*run.output)[time])[operation.outputGridName];
  outcome = planOutput(operation, *inputGrid, grid.outputGrid, grid.plan);
  if (outcome != PlanOutcome::Ready) return outcome;
  run.inputPoints += grid.plan.mapping.inputPointTotal;
  operation.addInfoToGrid(operation.provenanceSource, *grid.outputGrid,
                          operation.provenanceDescription, nullptr, 0, 1);
  // Deliberate: an interruption leaves out the rest of the slice, and the next slice asks again.
  if (!buildTiles(grid)) return PlanOutcome::SkipSlice;
  addFieldAttributes(*grid.outputGrid);
  grid.plan.output.positions->addInterface(grid.plan.layout.tiledBox);
  return PlanOutcome::Ready;
}

void tileSlice(UnlinkedRun& run, double time, const Fiber::Slice& slice) {
  // When the output is the input bundle itself, the walk is over what was there before.
  std::vector<StrongPtr<Fiber::Grid>> inputGrids;
  for (const auto& [name, grid] : slice.grids()) {
    if (grid && run.operation.UseThisGrid(name)) inputGrids.push_back(grid);
  }
  for (const auto& grid : inputGrids) {
    if (tileGrid(run, time, grid) == PlanOutcome::SkipSlice) return;
  }
}

void tileBundle(RefragmentAndSplit& operation) {
  UnlinkedRun run{operation, Fiber::BundlePtr(new Fiber::Bundle)};
  if (operation.outputFileName.empty()) {
    run.output = operation.inputBundle;
  } else {
    const auto bound =
        run.output->bindToNew(operation.outputFileName, operation.storageTransformations);
    if (!bound.ok()) return operation.appendMessage(bound.error());
  }
  operation.printParameters();
  for (const auto& [time, slice] : operation.inputBundle->slices()) {
    if (!slice) continue;
    slice->accessSlice();
    if (operation.UseThisTime(time)) tileSlice(run, time, *slice);
  }
  if (run.output->binding) {
    const auto completed = run.output->binding->complete(*run.output);
    if (!completed.ok()) operation.appendMessage(completed.error());
  }
  comparePointCounts(run.outputPoints, run.inputPoints, operation.NormalizedOverlap);
}

}  // namespace

bool RefragmentAndSplit::RunUnlinked() {
  if (!inputBundle) {
    appendMessage("bundleptr is null");
    return false;
  }
  try {
    tileBundle(*this);
  } catch (const std::exception& error) {
    // What the tiles catch never gets here: memory ran out while planning or writing.
    appendMessage(outputFileName + ": not written: " + error.what());
  }
  return true;
}

}  // namespace LidarLib
