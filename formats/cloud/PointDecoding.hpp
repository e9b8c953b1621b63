// SPDX-License-Identifier: Apache-2.0
//
// PointDecoding: from the point records of a file to the columns of a fragment, positions first. A
// single pass: records go, block by block, into all columns at once. PointSurvey is what the
// planning of tiles asks of the positions, found without making any column.

#pragma once

#include <memory>
#include <span>
#include <vector>

#include "datamodel/eagle/BoundingBox.hpp"
#include "datamodel/fiber/PointPart.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/ColumnTypes.hpp"
#include "formats/cloud/DecodedFragment.hpp"
#include "formats/cloud/RecordSource.hpp"
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

/// Where a fragment's points lie.
struct PointSurvey {
  MemCore::StrongPtr<Eagle::BoundingBox> box;  ///< Closed; empty only without points.
  std::vector<Fiber::PointBox> blocks;         ///< Of every Fiber::kBlockPoints points.
};

/// Finds the boxes of points that come in pieces.
class PointSurveyor {
 public:
  /// `firstPoint`: where in the fragment the points begin.
  explicit PointSurveyor(const PointColumns& columns, std::uint64_t firstPoint = 0);

  /// Adds whole records.
  void add(std::span<const std::byte> records);
  /// Adds what another one found of the points that follow. Requires: it began there.
  void append(const PointSurveyor& next);
  PointSurvey finish();

 private:
  void addToBlock(const PositionBounds& bounds);

  const PointColumns& columns_;
  PointSurvey survey_;
  bool beginsWithinBlock_ = false;  ///< The first block has points before ours.
  std::size_t openPoints_ = 0;      ///< In the last block, as long as it is not full.
};

/// Reads a fragment's records for their survey alone. Errors: those of the records.
MemCore::Outcome<PointSurvey> surveyPoints(const PointColumns& columns, RecordView& records);

/// Writes one column of records. Requires: room for one element of the column per record.
void extractColumn(const PointColumns& columns, std::size_t column,
                   std::span<const std::byte> records, std::span<std::byte> out);

/// The grid that a file has its coordinates on.
Fiber::CoordinateGrid gridOf(const PointColumns& columns);

/// What positions are wanted as.
enum class PositionForm { Points, GridPoints };

/// Makes all columns of a fragment, and shows the records to a surveyor if there is one. Threads
/// that have nothing else to do may help.
/// Errors: unreadable or damaged records, naming file and points. May throw std::bad_alloc.
MemCore::Outcome<DecodedHandle> decodePoints(const PointColumns& columns, RecordView& records,
                                             PositionForm form, PointSurveyor* surveyor);

}  // namespace Formats
