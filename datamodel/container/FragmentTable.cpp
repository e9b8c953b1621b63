// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FragmentTable.hpp"

namespace Fiber::Container {
namespace {

constexpr std::size_t kAxes = 3;

/// How many entries each column has under a shape.
std::array<std::size_t, kColumnCount> entryCounts(const TableShape& shape) {
  const std::size_t fields = shape.fieldCount;
  const auto ifHas = [](bool has, std::size_t count) { return has ? count : 0; };
  const bool linked = shape.fileBytes > 0;
  return {
      shape.nameBytes,
      1,
      ifHas(shape.hasIndex, kAxes),
      1,
      1,
      kAxes,
      kAxes,
      fields,
      fields,
      fields,
      kAxes * shape.wideFieldCount,
      ifHas(shape.hasFieldExtents, fields),
      ifHas(shape.hasFieldExtents, fields),
      ifHas(shape.hasGrids, kAxes),
      ifHas(shape.hasGrids, kAxes),
      ifHas(shape.hasAttributeSets, fields),
      ifHas(shape.hasChecksums, fields),
      shape.fileBytes,
      ifHas(linked, 1),
      ifHas(linked, 1),
      ifHas(linked, 1),
  };
}

constexpr std::optional<ScalarKind> kText = std::nullopt;

constexpr TableLayout kColumns = {{
    {"name", kText},
    {"number", ScalarKind::UInt32},
    {"index", ScalarKind::UInt64},
    {"start", ScalarKind::UInt64},
    {"point_count", ScalarKind::UInt64},
    {"bbox_min", ScalarKind::Float64},
    {"bbox_max", ScalarKind::Float64},
    {"present", ScalarKind::UInt8},
    {"field_min", ScalarKind::Float64},
    {"field_max", ScalarKind::Float64},
    {"row_shape", ScalarKind::UInt64},
    {"field_start", ScalarKind::UInt64},
    {"field_rows", ScalarKind::UInt64},
    {"grid_scale", ScalarKind::Float64},
    {"grid_offset", ScalarKind::Float64},
    {"attribute_set", ScalarKind::UInt32},
    {"crc32", ScalarKind::UInt32},
    {"file", kText},
    {"file_size", ScalarKind::UInt64},
    {"content_id", ScalarKind::UInt64},
    {"source_group", ScalarKind::UInt32},
}};

}  // namespace

TableLayout tableLayout(const TableShape& shape) {
  TableLayout layout = kColumns;
  const auto counts = entryCounts(shape);
  std::size_t offset = 0;
  for (std::size_t c = 0; c < kColumnCount; ++c) {
    layout[c].count = counts[c];
    layout[c].offset = offset;
    offset += counts[c] * entryBytes(layout[c]);
  }
  return layout;
}

std::size_t packedRowBytes(const TableLayout& layout) {
  const ColumnPlace& last = layout.back();
  return last.offset + last.count * entryBytes(last);
}

FragmentTable::FragmentTable(const TableLayout& layout, std::size_t rowBytes, std::size_t rowCount)
    : layout_(layout), rowBytes_(rowBytes), bytes_(rowBytes * rowCount) {}

FragmentTable::FragmentTable(const TableShape& shape, std::size_t rowCount)
    : FragmentTable(tableLayout(shape), packedRowBytes(tableLayout(shape)), rowCount) {}

std::string_view FragmentTable::text(std::size_t row, Column column) const {
  if (!has(column)) return {};
  const auto* start = reinterpret_cast<const char*>(at(row, column));
  const std::string_view padded(start, place(column).count);
  return padded.substr(0, padded.find('\0'));
}

void FragmentTable::setText(std::size_t row, Column column, std::string_view text,
                            std::size_t offset) {
  assert(offset + text.size() <= place(column).count);
  if (text.empty()) return;
  std::memcpy(bytes_.data() + (at(row, column) - bytes_.data()) + offset, text.data(), text.size());
}

}  // namespace Fiber::Container
