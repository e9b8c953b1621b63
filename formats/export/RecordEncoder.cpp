// SPDX-License-Identifier: Apache-2.0

#include "formats/export/RecordEncoder.hpp"

#include <fmt/format.h>

#include <cstring>

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

/// Whether all bytes are zero. Columns that nobody uses are common, and seen to be so in no time.
bool isZero(std::span<const std::byte> bytes) {
  return bytes.empty() || (bytes.front() == std::byte{0} &&
                           std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

std::span<const std::byte> bytesOf(const Fiber::MemBase& column) {
  return {column.elements()->bytes(), column.elements()->byteCount()};
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

struct RecordEncoder::Prepared {
  std::vector<ColumnInput> inputs;
  std::vector<ChosenElements> chosen;
  FittedColumn fitted;
  RawPositions raw;
};

Outcome<void> RecordEncoder::encode(const FragmentColumns& fragment, std::size_t first,
                                    std::span<const std::uint64_t> waveOffsets,
                                    std::span<std::byte> records) const {
  const std::size_t count = records.size() / recordBytes_;
  std::vector<Prepared> columns;
  auto positions = fragment.gridPoints ? prepareGridPoints(fragment, first, count)
                                       : preparePositions(fragment, first, count);
  if (!positions) return positions.failure();
  columns.push_back(std::move(*positions));
  for (std::size_t m = 0; m < target_.mappings.size(); ++m) {
    auto column = prepareField(m, fragment, first, count);
    if (!column) return column.failure();
    columns.push_back(std::move(*column));
  }
  // All at once: a block of records stays in the cache while every column goes in.
  std::vector<ColumnInput> inputs;
  for (const Prepared& column : columns) {
    inputs.insert(inputs.end(), column.inputs.begin(), column.inputs.end());
  }
  if (!waveOffsets.empty() && waveOffset_) {
    inputs.push_back({&*waveOffset_, std::as_bytes(waveOffsets)});
  }
  fillRecords(records, recordBytes_, inputs);
  markMargin(fragment, first, records);
  return {};
}

Outcome<RecordEncoder::Prepared> RecordEncoder::preparePositions(const FragmentColumns& fragment,
                                                                 std::size_t first,
                                                                 std::size_t count) const {
  const ChosenElements points(bytesOf(*fragment.positions), fragment, first, count);
  const std::span<const double> xyz(reinterpret_cast<const double*>(points.bytes().data()),
                                    3 * count);
  auto raw = encodePositions(xyz, grid_, isLossy_);
  if (!raw) return raw.failure();
  Prepared prepared;
  prepared.raw = std::move(*raw);
  if (prepared.raw.isRounded) wasRounded_.store(true, std::memory_order_relaxed);
  for (std::size_t axis = 0; axis < prepared.raw.columns.size(); ++axis) {
    prepared.inputs.push_back(
        {&PointLayout::axis(axis), std::as_bytes(std::span(prepared.raw.columns[axis]))});
  }
  return prepared;
}

/// Positions that are whole numbers of the file's grid already.
RecordEncoder::Prepared RecordEncoder::prepareGridPoints(const FragmentColumns& fragment,
                                                         std::size_t first, std::size_t count) {
  Prepared prepared;
  for (const auto& column : fragment.gridPoints->columns) {
    prepared.chosen.emplace_back(std::as_bytes(std::span(column)), fragment, first, count);
  }
  for (std::size_t axis = 0; axis < prepared.chosen.size(); ++axis) {
    prepared.inputs.push_back({&PointLayout::axis(axis), prepared.chosen[axis].bytes()});
  }
  return prepared;
}

Outcome<RecordEncoder::Prepared> RecordEncoder::prepareField(std::size_t number,
                                                             const FragmentColumns& fragment,
                                                             std::size_t first,
                                                             std::size_t count) const {
  const FieldMapping& mapping = target_.mappings[number];
  const auto& column = fragment.fields[mapping.field];
  Prepared prepared;
  if (!column) return prepared;
  const ExportField& field = source_.fields[mapping.field];
  prepared.chosen.emplace_back(bytesOf(*column), fragment, first, count);
  const ColumnView view{prepared.chosen.front().bytes(), field.type, field.components,
                        mapping.component, mapping.factor};
  // Records are zero where nothing is put in.
  if (isZero(view.values)) return prepared;
  if (fitsAsItStands(view, mapping.target)) {
    prepared.inputs.push_back({&mapping.target, view.values});
    return prepared;
  }
  prepared.fitted = fitColumn(view, mapping.target);
  if (prepared.fitted.misfit && !isLossy_) {
    return Failure{fmt::format(
        "field {}: fragment {}: point format {} cannot hold {} (a lossy export takes the nearest)",
        field.name, fragment.fragment->id->name(), target_.writer.header.pointFormat,
        *prepared.fitted.misfit)};
  }
  if (prepared.fitted.misfit) wasLossy_[number].store(true, std::memory_order_relaxed);
  prepared.inputs.push_back({&mapping.target, prepared.fitted.elements});
  return prepared;
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

std::vector<std::string> RecordEncoder::lossyFields() const {
  std::vector<std::string> names;
  if (wasRounded_.load(std::memory_order_relaxed)) names.emplace_back("Positions");
  for (std::size_t m = 0; m < wasLossy_.size(); ++m) {
    if (wasLossy_[m].load(std::memory_order_relaxed))
      names.push_back(target_.mappings[m].target.name);
  }
  return names;
}

}  // namespace Formats
