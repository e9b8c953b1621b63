// SPDX-License-Identifier: Apache-2.0

#include "formats/export/RecordEncoder.hpp"

#include <fmt/format.h>

#include "formats/cloud/CloudFields.hpp"
#include "formats/export/ColumnFit.hpp"
#include "formats/las/RecordColumns.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

std::optional<PointField> standardField(std::uint8_t format, const char* name) {
  const auto layout = PointLayout::make(format, standardRecordBytes(format), {});
  if (!layout) return std::nullopt;
  const PointField* field = layout->find(name);
  return field == nullptr ? std::nullopt : std::optional(*field);
}

/// X, Y or Z.
PointField axisField(std::size_t axis) {
  PointField field;
  field.type = ElementType::Int32;
  field.byteOffset = static_cast<std::uint16_t>(axis * sizeof(std::int32_t));
  return field;
}

template <class T>
std::span<const std::byte> bytesOf(const std::vector<T>& values) {
  return std::as_bytes(std::span<const T>(values));
}

}  // namespace

RecordEncoder::RecordEncoder(const ExportSource& source, const LasTarget& target,
                             const CoordinateGrid& grid, bool isLossy)
    : source_(source),
      target_(target),
      grid_(grid),
      isLossy_(isLossy),
      recordBytes_(target.writer.header.recordBytes),
      wasLossy_(target.mappings.size()) {
  const std::uint8_t format = target.writer.header.pointFormat;
  marginFlag_ = standardField(format, "Overlap");
  if (!marginFlag_) marginFlag_ = standardField(format, "Withheld");
  waveOffset_ = standardField(format, kWaveOffsetField);
  for (const FieldMapping& mapping : target.mappings) needed_.push_back(mapping.field);
}

Outcome<void> RecordEncoder::encode(const FragmentColumns& fragment, std::size_t first,
                                    std::span<const std::uint64_t> waveOffsets,
                                    std::span<std::byte> records) const {
  if (auto done = encodePositions(fragment, first, records); !done) return done;
  for (std::size_t m = 0; m < target_.mappings.size(); ++m) {
    if (auto done = encodeField(m, fragment, first, records); !done) return done;
  }
  markMargin(fragment, first, records);
  putWaveOffsets(waveOffsets, records);
  return {};
}

Outcome<void> RecordEncoder::encodePositions(const FragmentColumns& fragment, std::size_t first,
                                             std::span<std::byte> records) const {
  const std::size_t count = records.size() / recordBytes_;
  const ChosenElements points(*fragment.positions, fragment, first, count);
  const std::span<const double> xyz(reinterpret_cast<const double*>(points.bytes().data()),
                                    3 * count);
  const auto raw = Formats::encodePositions(xyz, grid_, isLossy_);
  if (!raw) return raw.failure();
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const PointField field = axisField(axis);
    const ColumnInput input{&field, bytesOf(raw->columns[axis])};
    insertColumns(records, recordBytes_, {&input, 1});
  }
  return {};
}

Outcome<void> RecordEncoder::encodeField(std::size_t number, const FragmentColumns& fragment,
                                         std::size_t first, std::span<std::byte> records) const {
  const FieldMapping& mapping = target_.mappings[number];
  const auto& column = fragment.fields[mapping.field];
  if (!column) return {};
  const ExportField& field = source_.fields[mapping.field];
  const std::size_t count = records.size() / recordBytes_;
  const ChosenElements elements(*column, fragment, first, count);
  const ColumnView view{elements.bytes(), field.type, field.components, mapping.component,
                        mapping.factor};
  if (fitsAsItStands(view, mapping.target)) {
    const ColumnInput input{&mapping.target, view.values};
    insertColumns(records, recordBytes_, {&input, 1});
    return {};
  }
  const FittedColumn fitted = fitColumn(view, mapping.target);
  if (fitted.misfit && !isLossy_) {
    return Failure{fmt::format("field {}: fragment {}: point format {} cannot hold {}", field.name,
                               fragment.fragment->id->name(), target_.writer.header.pointFormat,
                               *fitted.misfit)};
  }
  if (fitted.misfit) wasLossy_[number].store(true, std::memory_order_relaxed);
  const ColumnInput input{&mapping.target, fitted.elements};
  insertColumns(records, recordBytes_, {&input, 1});
  return {};
}

void RecordEncoder::markMargin(const FragmentColumns& fragment, std::size_t first,
                               std::span<std::byte> records) const {
  const auto& isMargin = fragment.choice.isMargin;
  if (isMargin.empty()) return;
  const auto bit = static_cast<std::byte>(1U << marginFlag_->bitShift);
  for (std::size_t i = 0; i * recordBytes_ < records.size(); ++i) {
    if (isMargin[chosenRow(fragment, first + i)] == 0) continue;
    records[i * recordBytes_ + marginFlag_->byteOffset] |= bit;
  }
}

void RecordEncoder::putWaveOffsets(std::span<const std::uint64_t> offsets,
                                   std::span<std::byte> records) const {
  if (offsets.empty() || !waveOffset_) return;
  const ColumnInput input{&*waveOffset_, std::as_bytes(offsets)};
  insertColumns(records, recordBytes_, {&input, 1});
}

std::vector<std::string> RecordEncoder::lossyFields() const {
  std::vector<std::string> names;
  for (std::size_t m = 0; m < wasLossy_.size(); ++m) {
    if (wasLossy_[m].load(std::memory_order_relaxed))
      names.push_back(target_.mappings[m].target.name);
  }
  return names;
}

}  // namespace Formats
