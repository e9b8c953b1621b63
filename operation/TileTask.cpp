// SPDX-License-Identifier: Apache-2.0

#include "operation/TileTask.hpp"

#include <exception>
#include <new>

#include "datamodel/fiber/Bundle.hpp"
#include "datamodel/memcore/Console.hpp"
#include "operation/TileCopy.hpp"

namespace LidarLib {

using MemCore::Console;
using MemCore::StrongPtr;

namespace {

/// Asks the host whether to go on.
bool mayContinue(SplitContext& context) {
  const auto& progress = context.operation.tileProgress;
  if (!progress) return true;
  const int done = context.progressCounter.load(std::memory_order_relaxed);
  context.progressCounter.store(done + 1, std::memory_order_relaxed);
  if (progress->report("Tiling #", static_cast<std::uint64_t>(done),
                       context.plan.mapping.tilesWithData)) {
    return true;
  }
  context.operation.appendMessage("Interrupted");
  return false;
}

void finishPositions(Fiber::Grid& tileGrid) {
  const auto positions = tileGrid.CartesianPositions();
  if (!positions) return;
  const auto ids = positions->getFragmentIDs();
  // Deliberate: the text names another routine.
  if (ids.size() != 1) Console() << "copyCreators: Have no ID !?!";
  if (ids.empty()) return;
  const Fiber::CreatorHandle creator = positions->getCreator(ids.front());
  finishTilePositions(creator, positions);
  if (creator) creator->finish();
}

/// A bundle holding one empty grid that carries the input grid's properties and the tiling's.
struct TileBundle {
  Fiber::BundlePtr bundle{new Fiber::Bundle};
  StrongPtr<Fiber::Grid> grid;

  explicit TileBundle(const SplitContext& context)
      : grid((*bundle)[context.time]->newGrid(context.operation.outputGridName)) {
    grid->attributes() = context.inputGrid->attributes();
    grid->propertyBits = context.inputGrid->propertyBits;
    addTilingAttributes(context.plan.layout, *grid);
  }
};

/// Fills and saves a tile with enough points; returns the failure text.
std::string writeTile(SplitContext& context, TileBundle& tile, const FieldCopy& copy,
                      const std::string& fileName) {
  const auto vertices = context.inputGrid->skeletons().findVertices(-1);
  if (!vertices) return std::string();
  copyFieldsIntoTile(copy, *vertices);
  // A tile without some of its values must not pass for a finished one.
  const std::string unreadable = readFailure(*vertices, copy.fragments);
  if (!unreadable.empty()) return fileName + ": not written: " + unreadable;
  finishPositions(*tile.grid);
  const auto saved = tile.bundle->save(fileName, context.operation.saveProgress, nullptr);
  return saved.ok() ? std::string() : saved.error();
}

/// Selects the tile's points and writes the tile if there are enough; returns the failure text.
std::string buildTile(SplitContext& context, const TileCell& cell,
                      const Fiber::MultiIndex<3>& index, const std::string& fileName) {
  TileBundle tile(context);
  if (!tile.grid->makeCartesianRepresentation(3, "", 0)) return "no outputfrag representation";
  RefragmentAndSplit& operation = context.operation;
  const TilePoints points = selectTilePoints(operation, context.plan, cell, index);
  if (!points.unreadable.empty()) return fileName + ": not written: " + points.unreadable;
  if (!hasEnoughPoints(operation, points.selection)) return std::string();
  FieldCopy copy =
      fieldCopyFor(operation, context.plan, cell, *context.inputGrid, points.selection);
  copy.tileIndex = index;
  copy.outputGrid = tile.grid;
  return writeTile(context, tile, copy, fileName);
}

}  // namespace

void splitTile(SplitContext& context, std::uint64_t t) {
  const TileCell& cell = (*context.plan.mapping.tileCells)[t];
  if (cell.first.empty()) return;
  const Fiber::MultiIndex<3> index = context.plan.tileIndex(t);
  const std::string fileName = context.files.fileName(index);
  try {
    if (!mayContinue(context)) return;
    if (canBeOpened(fileName)) return;
    const std::string failure = buildTile(context, cell, index, fileName);
    if (!failure.empty()) context.operation.appendMessage(failure);
  } catch (const std::bad_alloc&) {
    context.operation.appendMessage(fileName + ": not written: not enough memory for the tile");
  } catch (const std::exception& error) {
    context.operation.appendMessage(fileName + ": not written: " + error.what());
  }
}

}  // namespace LidarLib
