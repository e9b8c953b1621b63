// SPDX-License-Identifier: Apache-2.0
//
// The linked-file update: a bundle over tile files that were written earlier, without looking at
// their points. The first file is the template of times, attributes and tile counts.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <unordered_set>

#include "datamodel/memcore/Console.hpp"
#include "linked/FragmentIndex.hpp"
#include "operation/Linking.hpp"
#include "operation/RefragmentAndSplit.hpp"
#include "operation/TileFiles.hpp"
#include "planning/TilingAttributes.hpp"

namespace LidarLib {

using Fiber::MultiIndex;
using MemCore::Console;
using MemCore::StrongPtr;

namespace {

constexpr const char* kLinkedGrid = "LinkedGrid";

/// The bundle being built, and what the first file says of it.
struct LinkedBundle {
  Fiber::BundlePtr bundle{new Fiber::Bundle};
  StrongPtr<Fiber::Grid> grid;         ///< the grid to fill: the last one accepted
  StrongPtr<MemCore::ChunkBase> dims;  ///< its "FragDims"; empty when it has none
};

// Deliberate: a name without an index ends the process.
MultiIndex<3> indexOf(const std::string& file) {
  const std::string baseName = fileStem(file);
  const auto index = parseFragmentIndex(baseName);
  if (index) return *index;
  Console() << "Error: Cannot parse FragIdx: BaseName is " << baseName;
  std::exit(EXIT_FAILURE);  // NOLINT(concurrency-mt-unsafe): no other thread runs
}

Fiber::BundlePtr loadFirst(const std::vector<std::string>& files) {
  if (files.empty()) return Fiber::BundlePtr();
  bool ok = false;
  return Fiber::Bundle::load(ok,
                             MemCore::makeStrong<MemCore::LoaderParameters>(
                                 MemCore::LoaderParameters{{files.front()}, false}),
                             nullptr);
}

/// Every accepted grid of every accepted time gets a linked grid of its time.
void adoptGrids(const RefragmentAndSplit& operation, const Fiber::Bundle& first,
                LinkedBundle& linked) {
  for (const auto& [time, slice] : first.slices()) {
    if (!slice) continue;
    slice->accessSlice();
    if (!operation.UseThisTime(time)) continue;
    for (const auto& [name, grid] : slice->grids()) {
      if (!grid || !operation.UseThisGrid(name)) continue;
      linked.grid = (*(*linked.bundle)[time])[kLinkedGrid];
      linked.grid->attributes() = grid->attributes();
      linked.dims = grid->attributes().getAttribute(kFragDimsAttribute);
    }
  }
}

/// One more than the largest index on each axis.
MultiIndex<3> countsOfNames(const std::vector<std::string>& files) {
  MultiIndex<3> largest;
  for (const std::string& file : files) {
    const MultiIndex<3> index = indexOf(file);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      largest[axis] = std::max(largest[axis], index[axis]);
    }
  }
  return {{largest[0] + 1, largest[1] + 1, largest[2] + 1}};
}

MultiIndex<3> countsOf(const LinkedBundle& linked, const std::vector<std::string>& files) {
  const auto dims = MemCore::handleCast<MemCore::Chunk<unsigned int>>(linked.dims);
  if (!dims || dims->size() < 3) return countsOfNames(files);
  return {{(*dims)[0], (*dims)[1], (*dims)[2]}};
}

/// Deliberate: an index that occurs twice ends the process.
void requireUnused(std::unordered_set<std::uint64_t>& used, const MultiIndex<3>& index,
                   const MultiIndex<3>& counts, const std::string& file) {
  const std::uint64_t position = index[0] + counts[0] * index[1] + counts[0] * counts[1] * index[2];
  if (used.insert(position).second) return;
  Console() << "Error: Fragment exist already for file: " << fileStem(file) << " with FragIdx "
            << Fiber::tileIndexText(index);
  std::exit(EXIT_FAILURE);  // NOLINT(concurrency-mt-unsafe): no other thread runs
}

/// False after an interruption.
bool linkFiles(RefragmentAndSplit& operation, const std::vector<std::string>& files,
               const MultiIndex<3>& counts, RegularPositions& positions, Fiber::Grid& grid) {
  const auto total = static_cast<std::uint32_t>(counts[0] * counts[1] * counts[2]);
  std::unordered_set<std::uint64_t> used;
  std::uint64_t points = 0;  // not reported
  for (std::size_t n = 0; n < files.size(); ++n) {
    if (operation.tileProgress && !operation.tileProgress->report("Updateing #", n, total)) {
      operation.appendMessage("Interrupted");
      return false;
    }
    const MultiIndex<3> index = indexOf(files[n]);
    requireUnused(used, index, counts, files[n]);
    copyCreators(files[n], grid, positions, index, points);
  }
  return true;
}

bool refuse(RefragmentAndSplit& operation, const std::string& text) {
  operation.appendMessage(text);
  return false;
}

bool linkDeclaredFiles(RefragmentAndSplit& operation, const std::vector<std::string>& files) {
  const Fiber::BundlePtr first = loadFirst(files);
  if (!first) {
    Console() << "UpdateLinked: No first file";
    return false;
  }
  LinkedBundle linked;
  adoptGrids(operation, *first, linked);
  if (!linked.grid) return refuse(operation, files.front() + ": no grid is selected");
  const MultiIndex<3> counts = countsOf(linked, files);
  RegularPositions positions = makeRegularPositions(*linked.grid, counts);
  if (!positions) return refuse(operation, "no output positions");
  if (!linkFiles(operation, files, counts, positions, *linked.grid)) return false;
  addFieldAttributes(*linked.grid);
  const auto saved = saveLinking(operation, *linked.bundle, operation.storageTransformations);
  return saved.empty() || refuse(operation, saved);
}

}  // namespace

bool RefragmentAndSplit::UpdateLinked() {
  printParameters();
  if (!inputFiles) {
    Console() << "UpdateLinked: No files declared";
    return false;
  }
  return linkDeclaredFiles(*this, *inputFiles);
}

}  // namespace LidarLib
