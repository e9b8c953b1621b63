// SPDX-License-Identifier: Apache-2.0
//
// What a bundle file will hold, settled before anything is written: the datasets of every field,
// where in them each fragment goes, and which fragments stay in the files they are in and are only
// linked. Making the plan needs the extents of all data, but not the data.

#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/CoordinateGrid.hpp"
#include "datamodel/container/StoredCreator.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace Fiber::Container {

/// One field's part of one fragment that goes into the file.
struct PlannedPart {
  CreatorHandle creator;    ///< empty: the field has no data for the fragment
  std::uint64_t start = 0;  ///< first row in the dataset
  std::uint64_t rows = 0;
  DynamicSize size;
};

/// The range of values that are not known, as the table has it.
inline constexpr ValueRange kUnknownRange{std::numeric_limits<double>::quiet_NaN(),
                                          std::numeric_limits<double>::quiet_NaN()};

/// One field's part of one fragment that is only linked: what the table will say of it. There may
/// be millions, so their creators are asked once and let go.
struct LinkedPart {
  bool isPresent = false;
  ValueRange range = kUnknownRange;
};

/// More about such a part.
struct LinkedDetails {
  std::uint64_t start = 0;  ///< first row in the dataset of the linked file
  std::uint64_t rows = 0;
  /// Only where the table says more: attributes, a checksum, or more than one extent.
  MemCore::StrongPtr<StoredCreator> creator;
};

/// One fragment.
struct PlannedRow {
  FragmentHandle fragment;
  std::shared_ptr<const StoredSource> link;  ///< empty: its data go into this file
  std::uint64_t start = 0;
  std::uint64_t pointCount = 0;
  std::vector<PlannedPart> parts;  ///< per field; of a linked fragment: none
  std::size_t linkedAt = 0;        ///< place of its linked parts
  /// Per field; none where all parts have start and point count of the fragment, and no creator is
  /// to be kept.
  std::vector<LinkedDetails> linkedDetails;
  /// Of linked positions; empty: not known, or not on a grid of their own.
  MemCore::StrongPtr<const Eagle::BoundingBox> linkedBox;
  std::shared_ptr<const CoordinateGrid> linkedGrid;
  bool sharesExtents = true;  ///< all parts have its point count as rows, and one start
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
  /// Of linked fragments, in blocks of kLinkedBlock fragments; per field.
  std::vector<std::vector<LinkedPart>> linkedParts;

  static constexpr std::size_t kLinkedBlock = 256;
  const LinkedPart& linkedPart(const PlannedRow& row, std::size_t field) const {
    return linkedParts[row.linkedAt / kLinkedBlock]
                      [row.linkedAt % kLinkedBlock * fields.size() + field];
  }
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
