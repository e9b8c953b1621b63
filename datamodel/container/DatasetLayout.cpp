// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/DatasetLayout.hpp"

#include <fmt/format.h>

#include <array>

#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/Hdf5Attributes.hpp"
#include "datamodel/container/Hdf5Types.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr int kMaxRank = 2;

Outcome<void> describeExtents(hid_t dataset, DatasetLayout& layout) {
  const DataspaceHandle space(H5Dget_space(dataset));
  const DatatypeHandle type(H5Dget_type(dataset));
  const auto kind = scalarKindOf(type.get());
  if (!kind) return Failure{"its numbers are of a type that bundle files do not use"};
  layout.kind = *kind;
  std::array<hsize_t, kMaxRank> extents = {0, 1};
  const int rank = H5Sget_simple_extent_ndims(space.get());
  if (rank < 1 || rank > kMaxRank ||
      H5Sget_simple_extent_dims(space.get(), extents.data(), nullptr) != rank) {
    return Failure{fmt::format("wrong number of dimensions, found {}, expected 1 or 2", rank)};
  }
  layout.rows = extents[0];
  layout.columns = extents[1];
  return {};
}

/// The filters, which must be some of shuffle, deflate, checksum, in this order.
Outcome<void> describeFilters(hid_t creation, DatasetLayout& layout) {
  const int count = H5Pget_nfilters(creation);
  H5Z_filter_t last = H5Z_FILTER_NONE;
  for (int i = 0; i < count; ++i) {
    unsigned flags = 0;
    unsigned config = 0;
    std::size_t values = 0;
    const H5Z_filter_t filter = H5Pget_filter2(creation, static_cast<unsigned>(i), &flags, &values,
                                               nullptr, 0, nullptr, &config);
    const auto order = [](H5Z_filter_t f) {
      return f == H5Z_FILTER_SHUFFLE ? 1 : f == H5Z_FILTER_DEFLATE ? 2 : 3;
    };
    const bool known = filter == H5Z_FILTER_SHUFFLE || filter == H5Z_FILTER_DEFLATE ||
                       filter == H5Z_FILTER_FLETCHER32;
    if (!known || (i > 0 && order(filter) <= order(last))) {
      return Failure{fmt::format("a filter that bundle files do not use, found number {}", filter)};
    }
    layout.filter.shuffle |= filter == H5Z_FILTER_SHUFFLE;
    layout.filter.deflate |= filter == H5Z_FILTER_DEFLATE;
    layout.filter.checksum |= filter == H5Z_FILTER_FLETCHER32;
    last = filter;
  }
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

Outcome<ChunkPlace> chunkAt(hid_t dataset, std::uint64_t row, std::uint64_t column) {
  const std::array<hsize_t, kMaxRank> offset = {row, column};
  unsigned skipped = 0;
  haddr_t address = HADDR_UNDEF;
  hsize_t bytes = 0;
  const auto found = checkHdf5(
      H5Dget_chunk_info_by_coord(dataset, offset.data(), &skipped, &address, &bytes), "chunk");
  if (!found.ok()) return found.failure();
  if (address == HADDR_UNDEF || bytes > UINT32_MAX) {
    return Failure{fmt::format("a chunk is missing at row {}, column {}", row, column)};
  }
  return ChunkPlace{address, static_cast<std::uint32_t>(bytes), skipped};
}

/// The number of chunks there must be; all of them have to exist, so a dataset cannot claim more
/// than the file has bytes.
Outcome<std::uint64_t> expectedChunks(hid_t dataset, const DatasetLayout& layout,
                                      std::uint64_t fileBytes) {
  const std::uint64_t down = layout.rows / layout.chunkRows + (layout.rows % layout.chunkRows != 0);
  const std::uint64_t across =
      layout.columns / layout.chunkColumns + (layout.columns % layout.chunkColumns != 0);
  if (across != 0 && down > fileBytes / across) {
    return Failure{fmt::format("claims {} x {} chunks, more than the file holds", down, across)};
  }
  const DataspaceHandle space(H5Dget_space(dataset));
  hsize_t stored = 0;
  const auto counted = checkHdf5(H5Dget_num_chunks(dataset, space.get(), &stored), "chunks");
  if (!counted.ok()) return counted.failure();
  if (stored != down * across) {
    return Failure{fmt::format("chunks are missing, found {}, expected {}", stored, down * across)};
  }
  return down * across;
}

Outcome<void> describeChunks(hid_t dataset, hid_t creation, std::uint64_t fileBytes,
                             DatasetLayout& layout) {
  std::array<hsize_t, kMaxRank> extents = {0, 1};
  if (auto got = checkHdf5(H5Pget_chunk(creation, kMaxRank, extents.data()), "chunks"); !got.ok()) {
    return got;
  }
  layout.isChunked = true;
  layout.chunkRows = extents[0];
  layout.chunkColumns = extents[1];
  if (auto known = describeFilters(creation, layout); !known.ok()) return known;
  const auto plainBytes = chunkBytes(layout);
  if (!plainBytes) {
    return Failure{fmt::format("impossible chunks, found {} x {} values", layout.chunkRows,
                               layout.chunkColumns)};
  }
  const auto count = expectedChunks(dataset, layout, fileBytes);
  if (!count.ok()) return count.failure();
  layout.chunks.reserve(static_cast<std::size_t>(*count));
  for (std::uint64_t row = 0; row < layout.rows; row += layout.chunkRows) {
    for (std::uint64_t column = 0; column < layout.columns; column += layout.chunkColumns) {
      const auto place = chunkAt(dataset, row, column);
      if (!place.ok()) return place.failure();
      if (auto fits = checkChunk(*place, layout, *plainBytes, fileBytes); !fits.ok()) return fits;
      layout.chunks.push_back(*place);
    }
  }
  return {};
}

Outcome<void> describePiece(hid_t dataset, hid_t creation, std::uint64_t fileBytes,
                            DatasetLayout& layout) {
  const std::uint64_t rowBytes = scalarBytes(layout.kind);
  if (H5Pget_external_count(creation) != 0) return Failure{"its values lie in another file"};
  if (layout.rows == 0 || layout.columns == 0) return {};
  if (layout.columns > fileBytes / rowBytes ||
      layout.rows > fileBytes / (rowBytes * layout.columns)) {
    return Failure{fmt::format("claims {} x {} values, more than the file holds", layout.rows,
                               layout.columns)};
  }
  const haddr_t address = H5Dget_offset(dataset);
  const std::uint64_t bytes = layout.rows * layout.columns * rowBytes;
  if (address == HADDR_UNDEF || address > fileBytes - bytes) {
    return Failure{fmt::format("its values lie outside the file, expected {} bytes", bytes)};
  }
  layout.address = address;
  return {};
}

Outcome<void> describeGrid(hid_t dataset, DatasetLayout& layout) {
  if (!hasAttribute(dataset, kScaleAttribute)) return {};
  const auto scale = readNumbers<double>(dataset, kScaleAttribute, 3);
  const auto offset = readNumbers<double>(dataset, kOffsetAttribute, 3);
  if (!scale.ok()) return scale.failure();
  if (!offset.ok()) return offset.failure();
  CoordinateGrid grid;
  for (std::size_t axis = 0; axis < 3; ++axis) grid[axis] = {(*scale)[axis], (*offset)[axis]};
  layout.grid = grid;
  return {};
}

}  // namespace

Outcome<DatasetLayout> describeDataset(hid_t dataset, std::uint64_t fileBytes) {
  DatasetLayout layout;
  if (auto done = describeExtents(dataset, layout); !done.ok()) return done.failure();
  if (auto done = describeGrid(dataset, layout); !done.ok()) return done.failure();
  const PropertyHandle creation(H5Dget_create_plist(dataset));
  const H5D_layout_t kind = H5Pget_layout(creation.get());
  Outcome<void> done = Failure{"stored in a way that bundle files do not use"};
  if (kind == H5D_CHUNKED) done = describeChunks(dataset, creation.get(), fileBytes, layout);
  if (kind == H5D_CONTIGUOUS) done = describePiece(dataset, creation.get(), fileBytes, layout);
  if (!done.ok()) return done.failure();
  return layout;
}

}  // namespace Fiber::Container
