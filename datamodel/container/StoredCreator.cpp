// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/StoredCreator.hpp"

#include <fmt/format.h>
#include <libdeflate.h>

#include "datamodel/container/ElementTypes.hpp"
#include "datamodel/container/RowReader.hpp"
#include "datamodel/container/SourceFile.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

/// Rows and columns of the dataset that an array of this size takes up.
RowRange rangeFor(const DynamicSize& size, const FiberTypeBase& type, std::uint64_t start) {
  std::uint64_t columns = type.componentCount();
  for (std::size_t d = 0; d + 1 < size.rank(); ++d) columns *= size[d];
  return {start, size.rank() == 0 ? 0 : size[size.rank() - 1], columns};
}

Outcome<void> requireChecksum(std::span<const std::byte> bytes, const StoredPlace& place) {
  if (!place.checksum) return {};
  const std::uint32_t found = libdeflate_crc32(0, bytes.data(), bytes.size());
  if (found == *place.checksum) return {};
  return Failure{
      fmt::format("damaged, found checksum {:08x}, expected {:08x}", found, *place.checksum)};
}

/// The grid of coordinates that are stored as integers; empty when there is none.
const CoordinateGrid* gridOf(const DatasetLayout& layout, const StoredPlace& place) {
  if (place.grid) return place.grid.get();
  return layout.grid.has_value() ? &*layout.grid : nullptr;
}

Outcome<void> fill(MemBase& array, const DatasetLayout& layout, int descriptor,
                   const RowRange& range, const StoredPlace& place) {
  MemCore::ChunkBase& elements = *array.elements();
  const FiberTypeBase& type = *array.type();
  const std::span<std::byte> bytes(elements.bytes(), elements.byteCount());
  if (bytes.empty()) return {};
  if (layout.kind == type.scalar()) {
    if (auto read = readRows(layout, descriptor, range, bytes); !read.ok()) return read;
    return requireChecksum(bytes, place);
  }
  const CoordinateGrid* grid = gridOf(layout, place);
  if (grid == nullptr || type.scalar() != ScalarKind::Float64) {
    return Failure{"stored numbers are of another type than the field"};
  }
  const std::span<double> xyz(reinterpret_cast<double*>(bytes.data()),
                              bytes.size() / sizeof(double));
  return readGridRows(layout, descriptor, range, *grid, xyz);
}

}  // namespace

/// The rows of a creator in their open file.
struct StoredCreator::OpenRows {
  std::shared_ptr<SourceFile> file;
  std::shared_ptr<const DatasetLayout> layout;
  RowRange range;
};

Outcome<StoredCreator::OpenRows> StoredCreator::openRows() const {
  const ArrayFacts known = facts();
  auto file = SourceFiles::instance().find(place_.source->file);
  if (!file.ok()) return file.failure();
  auto layout = (*file)->layout(place_.source->group, *place_.dataset);
  if (!layout.ok()) return layout.failure();
  const RowRange range = rangeFor(*known.size, *known.type, place_.start);
  if (auto there = requireRange(**layout, range); !there.ok()) return within(there.error());
  return OpenRows{std::move(*file), std::move(*layout), range};
}

Failure StoredCreator::within(const std::string& text) const {
  const StoredSource& source = *place_.source;
  return Failure{
      fmt::format("{}: {}/{}: {}", source.file.path, source.group, *place_.dataset, text)};
}

Outcome<void> StoredCreator::checkSource() const {
  const auto rows = openRows();
  return rows.ok() ? Outcome<void>() : Outcome<void>(rows.failure());
}

Outcome<StrongPtr<MemBase>> StoredCreator::create() {
  // Before anything is allocated: rows that exist are bounded by the size of the file.
  const auto rows = openRows();
  if (!rows.ok()) return rows.failure();
  const ArrayFacts known = facts();
  const auto array = arrayToFill(known.type, *known.size);
  if (!array) return within("no arrays of its type and rank");
  const auto filled = fill(*array, *rows->layout, rows->file->descriptor(), rows->range, place_);
  if (!filled.ok()) return within(filled.error());
  return array;
}

GridPointsHandle StoredCreator::createGridPoints(const CoordinateGrid& grid) {
  const auto rows = openRows();
  if (!rows.ok()) return nullptr;
  const DatasetLayout& layout = *rows->layout;
  const CoordinateGrid* own = gridOf(layout, place_);
  const bool isOnGrid = own != nullptr && layout.kind == ScalarKind::Int32 &&
                        facts().type->scalar() == ScalarKind::Float64 &&
                        rows->range.columns == grid.size();
  if (!isOnGrid || !isSameGrid(*own, grid)) return nullptr;
  const auto points = MemCore::makeStrong<GridPoints>();
  points->grid = grid;
  for (auto& column : points->columns) column.resize(rows->range.count);
  const auto read = readGridColumns(layout, rows->file->descriptor(), rows->range,
                                    {points->columns[0], points->columns[1], points->columns[2]});
  if (!read.ok()) return nullptr;
  return points;
}

}  // namespace Fiber::Container
