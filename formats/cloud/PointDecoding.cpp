// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointDecoding.hpp"

#include <algorithm>
#include <limits>
#include <optional>
#include <span>

#include "datamodel/memcore/ParallelFor.hpp"

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

/// The columns of one fragment being filled, piece by piece in any order. Threads: several pieces
/// at once.
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
  }

  /// Puts whole records in, as the points from `first` on.
  void put(std::uint64_t first, std::span<const std::byte> records) const {
    const std::size_t recordBytes = columns_.file->recordBytes();
    Scratch scratch(columns_.fields.size());
    for (auto at = static_cast<std::size_t>(first); !records.empty(); at += kBlockRecords) {
      const auto block = records.first(std::min(kBlockRecords * recordBytes, records.size()));
      putBlock(at, block, scratch);
      records = records.subspan(block.size());
    }
  }

  DecodedHandle finish() {
    std::vector<StrongPtr<Fiber::MemBase>> all{positions_};
    all.insert(all.end(), fieldColumns_.begin(), fieldColumns_.end());
    return MemCore::makeStrong<DecodedFragment>(std::move(all), gridPoints_);
  }

 private:
  /// What a piece needs while it is put in.
  struct Scratch {
    explicit Scratch(std::size_t fields) : stored(fields) {}
    std::vector<ColumnOutput> outputs;
    std::vector<std::vector<std::byte>> stored;  ///< per field: one block of values to convert
  };

  void putBlock(std::size_t first, std::span<const std::byte> records, Scratch& scratch) const {
    const std::size_t recordBytes = columns_.file->recordBytes();
    const std::size_t count = records.size() / recordBytes;
    if (positions_) {
      const auto points = positions_->span().subspan(first, count);
      extractPositions(records, recordBytes, columns_.scaling, {&points.front().x, count * 3});
    }
    scratch.outputs.clear();
    for (std::size_t i = 0; i < columns_.fields.size(); ++i) {
      const ValueConversion& conversion = columns_.fields[i].conversion;
      const auto place = conversion.isIdentity()
                             ? columnPlace(i, first, count)
                             : storedPlace(scratch.stored[i], conversion, count);
      scratch.outputs.push_back({columns_.fields[i].field, place});
    }
    for (std::size_t axis = 0; gridPoints_ && axis < gridPoints_->columns.size(); ++axis) {
      const auto place = std::span(gridPoints_->columns[axis]).subspan(first, count);
      scratch.outputs.push_back({&PointLayout::axis(axis), std::as_writable_bytes(place)});
    }
    extractColumns(records, recordBytes, scratch.outputs);
    for (std::size_t i = 0; i < columns_.fields.size(); ++i) {
      const ValueConversion& conversion = columns_.fields[i].conversion;
      if (conversion.isIdentity()) continue;
      convertElements(conversion, scratch.outputs[i].column, columnPlace(i, first, count));
    }
  }

  std::span<std::byte> columnPlace(std::size_t i, std::size_t first, std::size_t count) const {
    const auto& elements = fieldColumns_[i]->elements();
    const std::size_t width = elements->elementSize();
    return {elements->bytes() + first * width, count * width};
  }

  /// A block to convert from.
  static std::span<std::byte> storedPlace(std::vector<std::byte>& stored,
                                          const ValueConversion& conversion, std::size_t count) {
    const std::size_t width = elementBytes(conversion.from);
    stored.resize(kBlockRecords * width);
    return std::span(stored).first(count * width);
  }

  const PointColumns& columns_;
  StrongPtr<Points> positions_;              ///< empty: as whole numbers
  StrongPtr<Fiber::GridPoints> gridPoints_;  ///< empty: as points
  std::vector<StrongPtr<Fiber::MemBase>> fieldColumns_;
};

}  // namespace

PointSurveyor::PointSurveyor(const PointColumns& columns, std::uint64_t firstPoint)
    : columns_(columns), openPoints_(static_cast<std::size_t>(firstPoint % Fiber::kBlockPoints)) {
  beginsWithinBlock_ = openPoints_ != 0;
  if (!beginsWithinBlock_) return;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  survey_.blocks.push_back(
      {{kInfinity, kInfinity, kInfinity}, {-kInfinity, -kInfinity, -kInfinity}});
}

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

void PointSurveyor::append(const PointSurveyor& next) {
  auto blocks = std::span(next.survey_.blocks);
  if (next.beginsWithinBlock_) {
    addToBlock({{blocks[0].min.x, blocks[0].min.y, blocks[0].min.z},
                {blocks[0].max.x, blocks[0].max.y, blocks[0].max.z}});
    blocks = blocks.subspan(1);
  }
  survey_.blocks.insert(survey_.blocks.end(), blocks.begin(), blocks.end());
  openPoints_ = next.openPoints_;
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
  for (const PointRange& range : records.pieces()) {
    const auto piece = records.read(range.firstPoint, range.pointCount);
    if (!piece) return piece.failure();
    surveyor.add(*piece);
  }
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
  const std::vector<PointRange> pieces = records.pieces();
  if (pieces.empty()) return ColumnFiller(columns, form, 0).finish();
  // The columns come after the first piece: a file that only claims to have so many points fails
  // before memory is taken for them.
  const auto front = records.read(0, pieces.front().pointCount);
  if (!front) return front.failure();
  ColumnFiller filler(columns, form, records.pointCount());
  std::vector<std::optional<PointSurveyor>> surveyors(pieces.size());
  const auto take = [&](std::size_t i, std::span<const std::byte> piece) {
    filler.put(pieces[i].firstPoint, piece);
    if (surveyor != nullptr) surveyors[i].emplace(columns, pieces[i].firstPoint).add(piece);
  };
  take(0, *front);
  std::vector<Outcome<void>> outcomes(pieces.size());
  MemCore::shareSteps(pieces.size() - 1, [&](std::size_t step) {
    const std::size_t i = step + 1;
    RecordView own = records.another();
    const auto piece = own.read(pieces[i].firstPoint, pieces[i].pointCount);
    if (piece) take(i, *piece);
    if (!piece) outcomes[i] = piece.failure();
  });
  for (const Outcome<void>& outcome : outcomes) {
    if (!outcome) return outcome.failure();
  }
  for (const auto& found : surveyors) {
    if (found) surveyor->append(*found);
  }
  return filler.finish();
}

}  // namespace Formats
