// SPDX-License-Identifier: Apache-2.0
//
// What a bundle file will hold, settled before anything is written: the datasets of every field,
// where in them each fragment goes, and which fragments stay in the files they are in and are only
// linked. Making the plan needs the extents of all data, but not the data.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/CoordinateGrid.hpp"
#include "datamodel/container/StoredCreator.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace Fiber::Container {

/// One field's part of one fragment.
struct PlannedPart {
  CreatorHandle creator;                ///< empty: the field has no data for the fragment
  const StoredPlace* place = nullptr;   ///< the creator's own; null: its data lie in no file
  const FiberTypeBase* type = nullptr;  ///< the creator's own
  bool hasAttributes = false;           ///< whether the creator had any when it was planned
  std::uint64_t start = 0;  ///< first row in the dataset, of this file or of the linked one
  std::uint64_t rows = 0;
  DynamicSize size;
};

/// One fragment.
struct PlannedRow {
  FragmentHandle fragment;
  std::shared_ptr<const StoredSource> link;  ///< empty: its data go into this file
  std::uint64_t start = 0;
  std::uint64_t pointCount = 0;
  std::vector<PlannedPart> parts;  ///< per field
};

/// One field; `stored` says what its dataset will be.
struct PlannedField {
  MemCore::StrongPtr<Field> field;
  std::string dataset;  ///< stored name
  StoredField stored;
  bool gridRefused = false;  ///< some of its points turned out not to lie on any grid
};

/// Fields in ascending order of stored name, rows in ascending order of fragment number.
struct PlannedRepresentation {
  std::string chart;
  std::string group;  ///< stored names from the root on, with '/' between
  std::vector<PlannedField> fields;
  std::vector<PlannedRow> rows;
  /// All parts of a fragment have the same start, and its point count as rows.
  bool sharesExtents = true;
};

struct PlannedSkeleton {
  SkeletonID id;
  std::string group;
  std::vector<PlannedRepresentation> representations;
};

struct PlannedGrid {
  MemCore::StrongPtr<Grid> grid;
  std::string group;
  std::vector<PlannedSkeleton> skeletons;
};

struct PlannedSlice {
  double time = 0.0;
  std::string group;
  std::vector<PlannedGrid> grids;
};

struct BundlePlan {
  std::string file;
  std::vector<PlannedSlice> slices;
};

/// Plans the file for a bundle. `linkFragments` off: everything is copied into it. A fragment that
/// lies in the very file to be written is copied in any case. Errors: "<file>: <field>: ..." when
/// fragments of a field differ in type or rank, or their extents cannot be had.
MemCore::Outcome<BundlePlan> planBundle(const Bundle& bundle, const std::string& file,
                                        bool linkFragments);

}  // namespace Fiber::Container
