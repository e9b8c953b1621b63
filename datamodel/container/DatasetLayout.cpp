// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/DatasetLayout.hpp"

#include <fmt/format.h>

#include <optional>

#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/FormatNames.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

Outcome<void> describeExtents(const ObjectDataset& dataset, DatasetLayout& layout) {
  const ObjectValue& value = dataset.value;
  if (value.type.kind != ObjectType::Kind::kNumber) {
    return Failure{"its numbers are of a type that bundle files do not use"};
  }
  layout.kind = value.type.scalar;
  if (value.extents.rank < 1 || value.extents.rank > ObjectExtents::kMostRank) {
    return Failure{
        fmt::format("wrong number of dimensions, found {}, expected 1 or 2", value.extents.rank)};
  }
  layout.rows = value.extents.counts[0];
  layout.columns = value.extents.counts[1];
  return {};
}

/// The plain bytes of one chunk, or nothing when that is absurd.
std::optional<std::uint64_t> chunkBytes(const DatasetLayout& layout) {
  constexpr std::uint64_t kLargest = std::uint64_t{1} << 31U;
  const std::uint64_t scalar = scalarBytes(layout.kind);
  if (layout.chunkRows == 0 || layout.chunkColumns == 0 || layout.chunkRows > kLargest ||
      layout.chunkColumns > kLargest / layout.chunkRows / scalar) {
    return std::nullopt;
  }
  return layout.chunkRows * layout.chunkColumns * scalar;
}

/// Judges one chunk: inside the file, and of a size that its plain bytes can have come from.
Outcome<void> checkChunk(const ChunkPlace& place, const DatasetLayout& layout,
                         std::uint64_t plainBytes, std::uint64_t fileBytes) {
  if (place.storedBytes == 0 || place.storedBytes > fileBytes ||
      place.address > fileBytes - place.storedBytes) {
    return Failure{
        fmt::format("a chunk lies outside the file, found {} bytes at {}, expected "
                    "within {}",
                    place.storedBytes, place.address, fileBytes)};
  }
  // Deflate never expands beyond 1032 times; the rest is for its frame and the checksum.
  constexpr std::uint64_t kMostExpansion = 1033;
  constexpr std::uint64_t kFrame = 64;
  const std::uint64_t most =
      (layout.filter.deflate ? place.storedBytes * kMostExpansion : place.storedBytes) + kFrame;
  if (plainBytes > most) {
    return Failure{fmt::format("a chunk claims too much, found {} bytes from {}", plainBytes,
                               place.storedBytes)};
  }
  return {};
}

/// The number of chunks there must be; all of them have to exist, so a dataset cannot claim more
/// than the file has bytes.
Outcome<std::uint64_t> expectedChunks(const DatasetLayout& layout, std::uint64_t fileBytes) {
  const std::uint64_t down = layout.rows / layout.chunkRows + (layout.rows % layout.chunkRows != 0);
  const std::uint64_t across =
      layout.columns / layout.chunkColumns + (layout.columns % layout.chunkColumns != 0);
  if (across != 0 && down > fileBytes / across) {
    return Failure{fmt::format("claims {} x {} chunks, more than the file holds", down, across)};
  }
  return down * across;
}

Outcome<void> describeChunks(const ObjectFile& file, const std::string& path,
                             const ObjectDataset& dataset, DatasetLayout& layout) {
  layout.isChunked = true;
  layout.chunkRows = dataset.chunkCounts[0];
  layout.chunkColumns = dataset.chunkCounts[1];
  layout.filter = dataset.filter;
  const auto plainBytes = chunkBytes(layout);
  if (!plainBytes) {
    return Failure{fmt::format("impossible chunks, found {} x {} values", layout.chunkRows,
                               layout.chunkColumns)};
  }
  const auto count = expectedChunks(layout, file.fileBytes());
  if (!count.ok()) return count.failure();
  auto chunks = file.chunksOf(path, dataset, *count);
  if (!chunks.ok()) return chunks.failure();
  layout.chunks = std::move(chunks).value();
  for (const ChunkPlace& place : layout.chunks) {
    auto fits = checkChunk(place, layout, *plainBytes, file.fileBytes());
    if (!fits.ok()) return fits;
  }
  return {};
}

Outcome<void> describePiece(const ObjectDataset& dataset, std::uint64_t fileBytes,
                            DatasetLayout& layout) {
  const std::uint64_t rowBytes = scalarBytes(layout.kind);
  if (layout.rows == 0 || layout.columns == 0) return {};
  if (layout.columns > fileBytes / rowBytes ||
      layout.rows > fileBytes / (rowBytes * layout.columns)) {
    return Failure{fmt::format("claims {} x {} values, more than the file holds", layout.rows,
                               layout.columns)};
  }
  const std::uint64_t bytes = layout.rows * layout.columns * rowBytes;
  if (dataset.address == kNoAddress || dataset.address > fileBytes - bytes) {
    return Failure{fmt::format("its values lie outside the file, expected {} bytes", bytes)};
  }
  layout.address = dataset.address;
  return {};
}

Outcome<void> describeGrid(const ObjectValues& attributes, DatasetLayout& layout) {
  if (!hasValue(attributes, kScaleAttribute)) return {};
  const auto scale = numbersIn<double>(attributes, kScaleAttribute, 3);
  const auto offset = numbersIn<double>(attributes, kOffsetAttribute, 3);
  if (!scale.ok()) return scale.failure();
  if (!offset.ok()) return offset.failure();
  CoordinateGrid grid;
  for (std::size_t axis = 0; axis < 3; ++axis) grid[axis] = {(*scale)[axis], (*offset)[axis]};
  layout.grid = grid;
  return {};
}

Outcome<void> describeStorage(const ObjectFile& file, const std::string& path,
                              const ObjectDataset& dataset, DatasetLayout& layout) {
  switch (dataset.storage) {
    case ObjectDataset::Storage::kChunks:
      return describeChunks(file, path, dataset, layout);
    case ObjectDataset::Storage::kPiece:
      return describePiece(dataset, file.fileBytes(), layout);
    default:
      return Failure{dataset.foreignText.empty() ? "stored in a way that bundle files do not use"
                                                 : dataset.foreignText};
  }
}

}  // namespace

Outcome<DatasetLayout> describeDataset(const ObjectFile& file, const std::string& group,
                                       const std::string& name) {
  const ObjectGroup* parent = file.root().find(group);
  if (parent == nullptr || !parent->datasets.contains(name)) return Failure{"missing"};
  const ObjectDataset& dataset = parent->datasets.at(name);
  DatasetLayout layout;
  if (auto done = describeExtents(dataset, layout); !done.ok()) return done.failure();
  if (auto done = describeGrid(dataset.attributes, layout); !done.ok()) return done.failure();
  auto done = describeStorage(file, fmt::format("{}/{}", group, name), dataset, layout);
  if (!done.ok()) return done.failure();
  return layout;
}

}  // namespace Fiber::Container
