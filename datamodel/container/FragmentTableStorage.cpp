// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FragmentTableStorage.hpp"

#include <fmt/format.h>
#include <libdeflate.h>

#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/Hdf5Attributes.hpp"
#include "datamodel/container/Hdf5Types.hpp"
#include "datamodel/container/Hdf5Walk.hpp"
#include "datamodel/container/StoredValue.hpp"
#include "datamodel/container/ValueDatasets.hpp"

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

DatatypeHandle memberType(Column column, const ColumnPlace& place) {
  if (!place.kind) return textType(place.count);
  if (isSingle(column)) return DatatypeHandle(H5Tcopy(hdf5Type(*place.kind)));
  const hsize_t count = place.count;
  return DatatypeHandle(H5Tarray_create2(hdf5Type(*place.kind), 1, &count));
}

PropertyHandle tableCreation(std::size_t bytes) {
  PropertyHandle creation(H5Pcreate(H5P_DATASET_CREATE));
  H5Pset_obj_track_times(creation.get(), false);
  H5Pset_layout(creation.get(), bytes <= kLargestInHeader ? H5D_COMPACT : H5D_CONTIGUOUS);
  return creation;
}

/// The entries of a column that a row type has under this name; 0 when it has none.
/// Errors: the member is there, but of another type.
Outcome<std::size_t> entriesOf(hid_t rowType, Column column, ColumnPlace& place) {
  const std::string name(place.name);
  const int index = H5Tget_member_index(rowType, name.c_str());
  if (index < 0) {
    H5Eclear2(H5E_DEFAULT);
    return std::size_t{0};
  }
  const auto member = static_cast<unsigned>(index);
  const DatatypeHandle type(H5Tget_member_type(rowType, member));
  place.offset = H5Tget_member_offset(rowType, member);
  place.count = H5Tget_size(type.get()) / entryBytes(place);
  const bool inside = place.offset <= H5Tget_size(rowType) &&
                      H5Tget_size(type.get()) <= H5Tget_size(rowType) - place.offset;
  const bool valid =
      inside && place.count > 0 && H5Tequal(type.get(), memberType(column, place).get()) > 0;
  if (!valid) return tableFailure(fmt::format("column {} is of another type", name));
  return place.count;
}

/// The layout of a row type found in a file.
Outcome<TableLayout> layoutOf(hid_t rowType) {
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
Outcome<void> requireOwnStorage(hid_t dataset) {
  const PropertyHandle creation(H5Dget_create_plist(dataset));
  const H5D_layout_t layout = H5Pget_layout(creation.get());
  const bool own = (layout == H5D_COMPACT || layout == H5D_CONTIGUOUS) &&
                   H5Pget_external_count(creation.get()) == 0;
  if (!own) return tableFailure("stored in an unknown way");
  return {};
}

Outcome<std::uint64_t> rowCountOf(hid_t dataset) {
  const DataspaceHandle space(H5Dget_space(dataset));
  hsize_t rows = 0;
  if (H5Sget_simple_extent_ndims(space.get()) != 1 ||
      H5Sget_simple_extent_dims(space.get(), &rows, nullptr) != 1) {
    return tableFailure("not a list of rows");
  }
  return std::uint64_t{rows};
}

/// The rows themselves. Requires: the type is the dataset's own, so that nothing is converted.
Outcome<FragmentTable> readRows(hid_t dataset, hid_t type, const TableLayout& layout,
                                std::uint64_t fileBytes) {
  const auto rows = rowCountOf(dataset);
  if (!rows.ok()) return rows.failure();
  const std::size_t rowBytes = H5Tget_size(type);
  if (rowBytes == 0 || *rows > fileBytes / rowBytes) {
    return tableFailure(
        fmt::format("claims {} rows of {} bytes, more than the file holds", *rows, rowBytes));
  }
  FragmentTable table(layout, rowBytes, static_cast<std::size_t>(*rows));
  if (*rows == 0) return table;
  const auto read =
      checkHdf5(H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, table.bytes().data()),
                "fragments: cannot be read");
  if (!read.ok()) return read.failure();
  const auto checksum = readNumber<std::uint32_t>(dataset, kChecksumAttribute);
  if (!checksum.ok()) return tableFailure(checksum.error());
  if (*checksum != checksumOf(table)) {
    return tableFailure("damaged, its checksum differs");
  }
  return table;
}

}  // namespace

DatatypeHandle tableRowType(const FragmentTable& table) {
  DatatypeHandle type(H5Tcreate(H5T_COMPOUND, table.rowBytes()));
  for (std::size_t c = 0; c < kColumnCount; ++c) {
    const ColumnPlace& place = table.layout()[c];
    if (place.count == 0) continue;
    const DatatypeHandle member = memberType(static_cast<Column>(c), place);
    H5Tinsert(type.get(), std::string(place.name).c_str(), place.offset, member.get());
  }
  return type;
}

std::uint32_t checksumOf(const FragmentTable& table) {
  return libdeflate_crc32(0, table.bytes().data(), table.bytes().size());
}

Outcome<void> writeFragmentTable(hid_t group, const TableContents& contents) {
  const FragmentTable& table = contents.table;
  const DatatypeHandle type = tableRowType(table);
  const hsize_t rows = table.rowCount();
  const DataspaceHandle space(H5Screate_simple(1, &rows, nullptr));
  const PropertyHandle creation = tableCreation(table.bytes().size());
  auto dataset =
      ownHdf5<DatasetHandle>(H5Dcreate2(group, kFragments, type.get(), space.get(),
                                        linkCreation().get(), creation.get(), H5P_DEFAULT),
                             "fragments: cannot be made");
  if (!dataset.ok()) return dataset.failure();
  if (rows > 0) {
    auto written = checkHdf5(
        H5Dwrite(dataset->get(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, table.bytes().data()),
        "fragments: cannot be written");
    if (!written.ok()) return written;
  }
  const hid_t target = dataset->get();
  if (auto done = writeTexts(target, kFieldsAttribute, contents.fieldNames); !done.ok())
    return done;
  auto summed = writeNumber(target, kChecksumAttribute, checksumOf(table));
  if (!summed.ok()) return summed;
  if (!contents.sourceGroups.empty()) {
    auto listed = writeTextsDataset(group, kSourceGroups, contents.sourceGroups);
    if (!listed.ok()) return listed;
  }
  return dataset->close("fragments: cannot be closed");
}

Outcome<TableContents> readFragmentTable(hid_t group, std::size_t wideFields,
                                         std::uint64_t fileBytes) {
  const auto dataset = openDataset(group, kFragments);
  if (!dataset.ok()) return dataset.failure();
  if (auto own = requireOwnStorage(dataset->get()); !own.ok()) return own.failure();
  const DatatypeHandle type(H5Dget_type(dataset->get()));
  if (!type.ok() || H5Tget_class(type.get()) != H5T_COMPOUND) {
    return tableFailure("no compound rows");
  }
  TableContents contents;
  auto names = readTexts(dataset->get(), kFieldsAttribute, fileBytes);
  if (!names.ok()) return tableFailure(names.error());
  contents.fieldNames = std::move(names).value();
  const auto layout = layoutOf(type.get());
  if (!layout.ok()) return layout.failure();
  const TableShape shape = shapeOf(*layout, contents.fieldNames.size(), wideFields);
  if (auto fits = requireShape(*layout, shape); !fits.ok()) return fits.failure();
  auto table = readRows(dataset->get(), type.get(), *layout, fileBytes);
  if (!table.ok()) return table.failure();
  contents.table = std::move(table).value();
  if (contents.table.has(Column::kFile)) {
    auto groups = readTextsDataset(group, kSourceGroups, fileBytes);
    if (!groups.ok()) return groups.failure();
    contents.sourceGroups = std::move(groups).value();
  }
  return contents;
}

}  // namespace Fiber::Container
