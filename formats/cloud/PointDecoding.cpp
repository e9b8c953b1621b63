// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointDecoding.hpp"

#include <algorithm>
#include <optional>
#include <span>

namespace Formats {

using Eagle::BoundingBox;
using Eagle::PhysicalSpace;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

using Points = Fiber::MemArray<1, PhysicalSpace::point>;
using ByteChunk = MemCore::Chunk<std::byte>;

/// Records per block: positions, records and columns of a block stay in the second-level cache.
constexpr std::size_t kBlockRecords = 4 * Fiber::kBlockPoints;

/// The columns of one fragment being filled from front to back.
class ColumnFiller {
 public:
  ColumnFiller(const PointColumns& columns, PositionForm form, std::uint64_t pointCount)
      : columns_(columns) {
    const auto count = static_cast<std::size_t>(pointCount);
    if (form == PositionForm::GridPoints) {
      gridPoints_ = MemCore::makeStrong<Fiber::GridPoints>();
      gridPoints_->grid = gridOf(columns);
      for (auto& column : gridPoints_->columns) column.resize(count);
    } else {
      positions_ = Fiber::makeArray(MemCore::Chunk<PhysicalSpace::point>::uninitialised(count));
    }
    for (const PointColumns::Field& field : columns.fields) {
      fieldColumns_.push_back(makeColumn(field.conversion.to, count));
    }
    converted_.resize(columns.fields.size());
  }

  /// Appends whole records.
  void add(std::span<const std::byte> records) {
    const std::size_t recordBytes = columns_.file->recordBytes();
    const std::size_t blockBytes = kBlockRecords * recordBytes;
    for (std::size_t at = 0; at < records.size(); at += blockBytes) {
      addBlock(records.subspan(at, std::min(blockBytes, records.size() - at)), recordBytes);
    }
  }

  DecodedHandle finish() {
    std::vector<StrongPtr<Fiber::MemBase>> all{positions_};
    all.insert(all.end(), fieldColumns_.begin(), fieldColumns_.end());
    return MemCore::makeStrong<DecodedFragment>(std::move(all), gridPoints_);
  }

 private:
  void addBlock(std::span<const std::byte> records, std::size_t recordBytes) {
    const std::size_t count = records.size() / recordBytes;
    if (positions_) {
      const auto points = positions_->span().subspan(done_, count);
      extractPositions(records, recordBytes, columns_.scaling, {&points.front().x, count * 3});
    }
    outputs_.clear();
    for (std::size_t i = 0; i < columns_.fields.size(); ++i) {
      outputs_.push_back({columns_.fields[i].field, storedPlace(i, count)});
    }
    for (std::size_t axis = 0; gridPoints_ && axis < gridPoints_->columns.size(); ++axis) {
      const auto place = std::span(gridPoints_->columns[axis]).subspan(done_, count);
      outputs_.push_back({&PointLayout::axis(axis), std::as_writable_bytes(place)});
    }
    extractColumns(records, recordBytes, outputs_);
    for (std::size_t i = 0; i < columns_.fields.size(); ++i) {
      const ValueConversion& conversion = columns_.fields[i].conversion;
      if (conversion.isIdentity()) continue;
      convertElements(conversion, outputs_[i].column, columnPlace(i, count));
    }
    done_ += count;
  }

  /// Where the next values of a column go.
  std::span<std::byte> columnPlace(std::size_t i, std::size_t count) {
    const auto& elements = fieldColumns_[i]->elements();
    const std::size_t width = elements->elementSize();
    return {elements->bytes() + done_ * width, count * width};
  }

  /// Where the stored values are put: the column itself, or a block to convert from.
  std::span<std::byte> storedPlace(std::size_t i, std::size_t count) {
    const ValueConversion& conversion = columns_.fields[i].conversion;
    if (conversion.isIdentity()) return columnPlace(i, count);
    const std::size_t width = elementBytes(conversion.from);
    converted_[i].resize(kBlockRecords * width);
    return std::span(converted_[i]).first(count * width);
  }

  const PointColumns& columns_;
  StrongPtr<Points> positions_;               ///< empty: as whole numbers
  StrongPtr<Fiber::GridPoints> gridPoints_;  ///< empty: as points
  std::vector<StrongPtr<Fiber::MemBase>> fieldColumns_;
  std::vector<ColumnOutput> outputs_;
  std::vector<std::vector<std::byte>> converted_;  ///< per field: one block of stored values
  std::size_t done_ = 0;
};

/// Calls `use` with all records, piece by piece.
template <class Use>
Outcome<void> forEachPiece(RecordView& records, const Use& use) {
  for (const PointRange& range : records.pieces()) {
    const auto piece = records.read(range.firstPoint, range.pointCount);
    if (!piece) return piece.failure();
    use(*piece);
  }
  return {};
}

}  // namespace

void PointSurveyor::add(std::span<const std::byte> records) {
  const std::size_t recordBytes = columns_.file->recordBytes();
  while (!records.empty()) {
    const std::size_t room = (Fiber::kBlockPoints - openPoints_) * recordBytes;
    const auto part = records.first(std::min(room, records.size()));
    addToBlock(boundsOfPositions(part, recordBytes, columns_.scaling));
    openPoints_ = (openPoints_ + part.size() / recordBytes) % Fiber::kBlockPoints;
    records = records.subspan(part.size());
  }
}

/// Adds points of one block: of a new one, unless the last one still waits for points.
void PointSurveyor::addToBlock(const PositionBounds& bounds) {
  const auto& [min, max] = bounds;
  if (openPoints_ == 0) {
    survey_.blocks.push_back({{min[0], min[1], min[2]}, {max[0], max[1], max[2]}});
    return;
  }
  Fiber::PointBox& block = survey_.blocks.back();
  for (std::size_t axis = 0; axis < min.size(); ++axis) {
    block.min[axis] = std::min(block.min[axis], min[axis]);
    block.max[axis] = std::max(block.max[axis], max[axis]);
  }
}

PointSurvey PointSurveyor::finish() {
  for (const Fiber::PointBox& block : survey_.blocks) {
    const BoundingBox own(block.min, block.max);
    if (survey_.box) {
      survey_.box->expand(own);
    } else {
      survey_.box = MemCore::makeStrong<BoundingBox>(block.min, block.max);
    }
  }
  return std::move(survey_);
}

Outcome<PointSurvey> surveyPoints(const PointColumns& columns, RecordView& records) {
  PointSurveyor surveyor(columns);
  const auto done =
      forEachPiece(records, [&](std::span<const std::byte> piece) { surveyor.add(piece); });
  if (!done) return done.failure();
  return surveyor.finish();
}

void extractColumn(const PointColumns& columns, std::size_t column,
                   std::span<const std::byte> records, std::span<std::byte> out) {
  const std::size_t recordBytes = columns.file->recordBytes();
  if (column == kPositionColumn) {
    auto* positions = reinterpret_cast<double*>(out.data());
    extractPositions(records, recordBytes, columns.scaling,
                     {positions, records.size() / recordBytes * 3});
    return;
  }
  const PointColumns::Field& field = columns.fields[column - kFirstFieldColumn];
  if (field.conversion.isIdentity()) {
    const ColumnOutput output{field.field, out};
    return extractColumns(records, recordBytes, {&output, 1});
  }
  const std::size_t count = records.size() / recordBytes;
  std::vector<std::byte> stored(count * elementBytes(field.conversion.from));
  const ColumnOutput output{field.field, stored};
  extractColumns(records, recordBytes, {&output, 1});
  convertElements(field.conversion, stored, out);
}

Fiber::CoordinateGrid gridOf(const PointColumns& columns) {
  Fiber::CoordinateGrid grid;
  for (std::size_t axis = 0; axis < grid.size(); ++axis) {
    grid[axis] = {columns.scaling.scale[axis], columns.scaling.offset[axis]};
  }
  return grid;
}

Outcome<DecodedHandle> decodePoints(const PointColumns& columns, RecordView& records,
                                    PositionForm form, PointSurveyor* surveyor) {
  // The columns come after the first piece: a file that only claims to have so many points fails
  // before memory is taken for them.
  std::optional<ColumnFiller> filler;
  const auto done = forEachPiece(records, [&](std::span<const std::byte> piece) {
    if (!filler) filler.emplace(columns, form, records.pointCount());
    if (surveyor != nullptr) surveyor->add(piece);
    filler->add(piece);
  });
  if (!done) return done.failure();
  return filler ? filler->finish() : ColumnFiller(columns, form, 0).finish();
}

}  // namespace Formats
