// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FragmentTableStorage.hpp"

#include <fmt/format.h>
#include <libdeflate.h>

#include <algorithm>

#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/ParallelTexts.hpp"
#include "datamodel/container/StoredValue.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Tables up to this size lie in the object's header, whose messages are limited to 64 KiB.
constexpr std::size_t kLargestInHeader = 32768;

Failure tableFailure(std::string_view what) { return Failure{fmt::format("fragments: {}", what)}; }

/// Columns with one value per row, by their nature; all others are arrays, of one entry even.
bool isSingle(Column column) {
  switch (column) {
    case Column::kNumber:
    case Column::kStart:
    case Column::kPointCount:
    case Column::kFileSize:
    case Column::kContentId:
    case Column::kSourceGroup:
      return true;
    default:
      return false;
  }
}

ObjectType memberType(Column column, const ColumnPlace& place) {
  if (!place.kind) return ObjectType::text(place.count);
  return isSingle(column) ? ObjectType::number(*place.kind)
                          : ObjectType::numbers(*place.kind, place.count);
}

/// The entries of a column that a row type has under this name; 0 when it has none.
/// Errors: the member is there, but of another type.
Outcome<std::size_t> entriesOf(const ObjectType& rowType, Column column, ColumnPlace& place) {
  const auto member = std::ranges::find(rowType.members, place.name, &ObjectType::Member::name);
  if (member == rowType.members.end()) return std::size_t{0};
  place.offset = member->offset;
  place.count = member->type.bytes / entryBytes(place);
  const bool inside =
      place.offset <= rowType.bytes && member->type.bytes <= rowType.bytes - place.offset;
  const bool valid = inside && place.count > 0 && member->type == memberType(column, place);
  if (!valid) return tableFailure(fmt::format("column {} is of another type", place.name));
  return place.count;
}

/// The layout of a row type found in a file.
Outcome<TableLayout> layoutOf(const ObjectType& rowType) {
  TableLayout layout = tableLayout(TableShape{});
  for (std::size_t c = 0; c < kColumnCount; ++c) {
    const auto entries = entriesOf(rowType, static_cast<Column>(c), layout[c]);
    if (!entries.ok()) return entries.failure();
    layout[c].count = *entries;
  }
  return layout;
}

/// The shape that a layout must be of; what it leaves open is taken from the layout.
TableShape shapeOf(const TableLayout& layout, std::size_t fields, std::size_t wideFields) {
  const auto count = [&](Column column) { return layout[static_cast<std::size_t>(column)].count; };
  TableShape shape;
  shape.fieldCount = fields;
  shape.wideFieldCount = wideFields;
  shape.nameBytes = count(Column::kName);
  shape.fileBytes = count(Column::kFile);
  shape.hasIndex = count(Column::kIndex) != 0;
  shape.hasFieldExtents = count(Column::kFieldStart) != 0;
  shape.hasGrids = count(Column::kGridScale) != 0;
  shape.hasAttributeSets = count(Column::kAttributeSet) != 0;
  shape.hasChecksums = count(Column::kChecksum) != 0;
  return shape;
}

Outcome<void> requireShape(const TableLayout& layout, const TableShape& shape) {
  const TableLayout expected = tableLayout(shape);
  for (std::size_t c = 0; c < kColumnCount; ++c) {
    if (layout[c].count == expected[c].count) continue;
    return tableFailure(
        fmt::format("column {} has the wrong number of entries, found {}, "
                    "expected {}",
                    layout[c].name, layout[c].count, expected[c].count));
  }
  if (shape.nameBytes == 0) return tableFailure("column name is missing");
  return {};
}

/// Rows may lie in the header or in one piece of this file, nowhere else.
bool hasOwnStorage(const ObjectDataset& dataset) {
  return dataset.storage == ObjectDataset::Storage::kInHeader ||
         dataset.storage == ObjectDataset::Storage::kPiece;
}

/// The rows themselves.
Outcome<FragmentTable> readRows(const ObjectFile& file, const ObjectDataset& dataset,
                                const TableLayout& layout) {
  const ObjectExtents& extents = dataset.value.extents;
  if (extents.rank != 1) return tableFailure("not a list of rows");
  const std::uint64_t rows = extents.counts[0];
  const std::size_t rowBytes = dataset.value.type.bytes;
  if (rowBytes == 0 || rows > file.fileBytes() / rowBytes) {
    return tableFailure(
        fmt::format("claims {} rows of {} bytes, more than the file holds", rows, rowBytes));
  }
  FragmentTable table(layout, rowBytes, static_cast<std::size_t>(rows));
  if (rows == 0) return table;
  const auto read = file.readValues(dataset, table.bytes());
  if (!read.ok()) return tableFailure(fmt::format("cannot be read: {}", read.error()));
  const auto checksum = numberIn<std::uint32_t>(dataset.attributes, kChecksumAttribute);
  if (!checksum.ok()) return tableFailure(checksum.error());
  if (*checksum != checksumOf(table)) return tableFailure("damaged, its checksum differs");
  return table;
}

/// The list of texts in a dataset of a group.
Outcome<std::vector<std::string>> readTexts(const ObjectFile& file, const ObjectGroup& group,
                                            const std::string& name) {
  const auto within = [&](std::string_view text) {
    return Failure{fmt::format("{}: {}", name, text)};
  };
  const auto dataset = group.datasets.find(name);
  if (dataset == group.datasets.end()) return within("missing");
  const auto value = file.checkedValue(dataset->second);
  if (!value.ok()) return within(value.error());
  auto texts = textsOf(*value);
  if (!texts.ok()) return within(texts.error());
  return texts;
}

/// Fills one piece, many rows at a time, and calls alongside() on one of the threads.
template <class Alongside>
Outcome<void> fillPiece(const TableToWrite& table, FragmentTable& piece, std::size_t pieceBegin,
                        const Alongside& alongside) {
  constexpr std::size_t kBlock = 1024;
  const std::size_t blocks = (piece.rowCount() + kBlock - 1) / kBlock;
  const std::uint64_t workBytes = blocks < 4 ? 0 : kWorthThreadsBytes;
  return parallelTexts(1 + blocks, workBytes, [&](std::size_t step) -> Outcome<void> {
    if (step == 0) {
      alongside();
      return {};
    }
    const std::size_t begin = (step - 1) * kBlock;
    const std::size_t end = std::min(piece.rowCount(), begin + kBlock);
    table.fill(piece, pieceBegin, pieceBegin + begin, pieceBegin + end);
    return {};
  });
}

/// Writes rows in pieces from `address` on: while one is written, the next is filled. Returns their
/// checksum.
Outcome<std::uint32_t> writePieces(const OutputFile& output, const TableToWrite& table,
                                   std::uint64_t address) {
  constexpr std::size_t kPieceBytes = std::size_t{16} << 20U;
  const std::size_t rowBytes = packedRowBytes(tableLayout(table.shape));
  const std::size_t pieceRows = std::max<std::size_t>(1, kPieceBytes / rowBytes);
  std::uint32_t checksum = 0;
  FragmentTable full;  // filled, not yet written
  const auto writeFull = [&]() -> Outcome<void> {
    checksum = libdeflate_crc32(checksum, full.bytes().data(), full.bytes().size());
    auto written = output.write(address, full.bytes());
    address += full.bytes().size();
    return written;
  };
  for (std::size_t begin = 0; begin < table.rowCount; begin += pieceRows) {
    FragmentTable next(table.shape, std::min(pieceRows, table.rowCount - begin));
    Outcome<void> written;
    const auto filled = fillPiece(table, next, begin, [&] { written = writeFull(); });
    if (!written.ok()) return written.failure();
    if (!filled.ok()) return Failure{fmt::format("{}: {}", output.name(), filled.error())};
    full = std::move(next);
  }
  if (auto written = writeFull(); !written.ok()) return written.failure();
  return checksum;
}

/// Small tables lie in the object's header, so that one look finds all. Returns the checksum.
Outcome<std::uint32_t> storeRows(OutputFile& output, const TableToWrite& table,
                                 ObjectDataset& dataset) {
  FragmentTable none(table.shape, 0);
  dataset.value = {tableRowType(none), ObjectExtents::list(table.rowCount), {}};
  const std::uint64_t byteCount = table.rowCount * none.rowBytes();
  if (byteCount > kLargestInHeader) {
    dataset.address = output.reserve(byteCount);
    return writePieces(output, table, dataset.address);
  }
  FragmentTable all(table.shape, table.rowCount);
  table.fill(all, 0, 0, table.rowCount);
  dataset.storage = ObjectDataset::Storage::kInHeader;
  dataset.value.bytes.assign(all.bytes().begin(), all.bytes().end());
  return checksumOf(all);
}

}  // namespace

ObjectType tableRowType(const FragmentTable& table) {
  ObjectType type{ObjectType::Kind::kRecord,
                  ScalarKind::UInt8,
                  static_cast<std::uint32_t>(table.rowBytes()),
                  {}};
  for (std::size_t c = 0; c < kColumnCount; ++c) {
    const ColumnPlace& place = table.layout()[c];
    if (place.count == 0) continue;
    type.members.push_back({std::string(place.name), static_cast<std::uint32_t>(place.offset),
                            memberType(static_cast<Column>(c), place)});
  }
  return type;
}

std::uint32_t checksumOf(const FragmentTable& table) {
  return libdeflate_crc32(0, table.bytes().data(), table.bytes().size());
}

Outcome<std::uint32_t> writeFragmentTable(OutputFile& output, ObjectGroup& group,
                                          const TableToWrite& table) {
  ObjectDataset& dataset = group.datasets[kFragments];
  auto checksum = storeRows(output, table, dataset);
  if (!checksum.ok()) return checksum;
  setTexts(dataset.attributes, kFieldsAttribute, table.fieldNames);
  setNumber(dataset.attributes, kChecksumAttribute, *checksum);
  if (table.sourceGroups.empty()) return checksum;
  const auto added = output.addDataset(group, kSourceGroups, textListOf(table.sourceGroups));
  if (!added.ok()) return added.failure();
  return checksum;
}

Outcome<TableContents> readFragmentTable(const ObjectFile& file, const ObjectGroup& group,
                                         std::size_t wideFields) {
  const auto found = group.datasets.find(kFragments);
  if (found == group.datasets.end()) return tableFailure("missing");
  const ObjectDataset& dataset = found->second;
  const ObjectType& type = dataset.value.type;
  if (!hasOwnStorage(dataset)) return tableFailure("stored in an unknown way");
  if (type.kind != ObjectType::Kind::kRecord) return tableFailure("no compound rows");
  TableContents contents;
  auto names = textsIn(dataset.attributes, kFieldsAttribute);
  if (!names.ok()) return tableFailure(names.error());
  contents.fieldNames = std::move(names).value();
  const auto layout = layoutOf(type);
  if (!layout.ok()) return layout.failure();
  const TableShape shape = shapeOf(*layout, contents.fieldNames.size(), wideFields);
  if (auto fits = requireShape(*layout, shape); !fits.ok()) return fits.failure();
  auto table = readRows(file, dataset, *layout);
  if (!table.ok()) return table.failure();
  contents.table = std::move(table).value();
  if (contents.table.has(Column::kFile)) {
    auto groups = readTexts(file, group, kSourceGroups);
    if (!groups.ok()) return groups.failure();
    contents.sourceGroups = std::move(groups).value();
  }
  return contents;
}

}  // namespace Fiber::Container
