// SPDX-License-Identifier: Apache-2.0
//
// PointDecoding: from the point records of a file to the columns of a fragment, positions first. A
// single pass: records go through a buffer of one run (or some thousand records) and from there,
// block by block, into all columns at once, while the box of the positions is taken along.

#pragma once

#include <memory>
#include <vector>

#include "datamodel/eagle/BoundingBox.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/ColumnTypes.hpp"
#include "formats/cloud/DecodedFragment.hpp"
#include "formats/cloud/FragmentRanges.hpp"
#include "formats/las/LasFile.hpp"
#include "formats/las/RecordColumns.hpp"

namespace Formats {

/// Where the positions stand among the columns of a decoded fragment; fields follow in the order
/// of PointColumns::fields.
inline constexpr std::size_t kPositionColumn = 0;
inline constexpr std::size_t kFirstFieldColumn = 1;

/// What is taken out of the records of one file.
struct PointColumns {
  struct Field {
    const PointField* field = nullptr;  ///< Of the file's own layout.
    ValueConversion conversion;
  };
  std::shared_ptr<const LasFile> file;
  CoordinateScaling scaling;
  std::vector<Field> fields;
};

/// A fragment's columns and the closed box of its positions, which is empty only without points.
struct DecodedPoints {
  DecodedHandle fragment;
  MemCore::StrongPtr<Eagle::BoundingBox> box;
};

/// Decodes a range of points. Requires: the range lies within the file.
/// Threads: may be called at once. Errors: unreadable or damaged records, naming file and points.
/// May throw std::bad_alloc.
MemCore::Outcome<DecodedPoints> decodePoints(const PointColumns& columns, const PointRange& range);

}  // namespace Formats
