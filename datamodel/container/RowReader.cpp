// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/RowReader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "datamodel/container/FileDescriptor.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// The part of one chunk that a range asks for.
struct ChunkPart {
  std::uint64_t firstRow = 0;  ///< within the chunk
  std::uint64_t rows = 0;
  std::uint64_t column = 0;  ///< of the dataset
  std::uint64_t columns = 0;
  std::uint64_t outputRow = 0;  ///< within the range
};

/// Reads and decodes the chunks of one range, one after the other.
class ChunkWalk {
 public:
  ChunkWalk(const DatasetLayout& layout, int descriptor, const RowRange& range)
      : layout_(layout), descriptor_(descriptor), range_(range) {}

  /// Calls `place(part, plain bytes of the chunk)` for every chunk that the range touches.
  /// A chunk that is wanted whole and lies in the output as in the file may be decoded in place:
  /// `target(part)` gives its bytes there, or none. The walk may read those bytes again later on.
  template <class Target, class Place>
  Outcome<void> run(Target target, Place place) {
    const std::uint64_t end = range_.start + range_.count;
    for (std::uint64_t row = range_.start / layout_.chunkRows * layout_.chunkRows; row < end;
         row += layout_.chunkRows) {
      for (std::uint64_t column = 0; column < range_.columns; column += layout_.chunkColumns) {
        const ChunkPart part = partOf(row, column);
        const std::span<std::byte> direct = target(part);
        const std::span<std::byte> plain = direct.empty() ? scratch() : direct;
        if (auto decoded = decode(row, column, plain); !decoded.ok()) return decoded;
        if (direct.empty()) place(part, std::span<const std::byte>(plain));
      }
    }
    return {};
  }

  std::uint64_t chunkBytes() const {
    return layout_.chunkRows * layout_.chunkColumns * scalarBytes(layout_.kind);
  }

 private:
  /// The chunk before. Where all points have the same value, the next one is the same.
  struct Before {
    std::vector<std::byte> stored;
    std::uint32_t skippedFilters = 0;
    std::span<const std::byte> plain;  ///< unchanged since; empty at first
  };

  ChunkPart partOf(std::uint64_t row, std::uint64_t column) const {
    const std::uint64_t first = std::max(row, range_.start);
    const std::uint64_t last = std::min(row + layout_.chunkRows, range_.start + range_.count);
    return {first - row, last - first, column,
            std::min(layout_.chunkColumns, range_.columns - column), first - range_.start};
  }

  std::span<std::byte> scratch() {
    plain_.resize(static_cast<std::size_t>(chunkBytes()));
    return plain_;
  }

  Outcome<void> decode(std::uint64_t row, std::uint64_t column, std::span<std::byte> plain) {
    const std::uint64_t number =
        row / layout_.chunkRows * layout_.chunksPerRow() + column / layout_.chunkColumns;
    const ChunkPlace& place = layout_.chunks[static_cast<std::size_t>(number)];
    std::swap(stored_, before_.stored);
    stored_.resize(place.storedBytes);
    if (auto got = readAt(descriptor_, place.address, stored_, "chunk"); !got.ok()) return got;
    const bool isSame = stored_ == before_.stored &&
                        place.skippedFilters == before_.skippedFilters &&
                        plain.size() == before_.plain.size();
    if (isSame) {
      std::memmove(plain.data(), before_.plain.data(), plain.size());
    } else {
      auto decoded = decoder_.decode({stored_, place.skippedFilters}, scalarBytes(layout_.kind),
                                     layout_.filter, plain);
      if (!decoded.ok()) {
        return Failure{fmt::format("{} (row {}, column {})", decoded.error(), row, column)};
      }
    }
    before_.skippedFilters = place.skippedFilters;
    before_.plain = plain;
    return {};
  }

  const DatasetLayout& layout_;
  int descriptor_;
  RowRange range_;
  ChunkDecoder decoder_;
  Before before_;
  std::vector<std::byte> stored_;
  std::vector<std::byte> plain_;
};

/// Rows of a dataset that lies in one piece.
Outcome<void> readPiece(const DatasetLayout& layout, int descriptor, const RowRange& range,
                        std::span<std::byte> values) {
  const std::uint64_t fileRow = layout.columns * scalarBytes(layout.kind);
  const std::uint64_t outputRow = range.columns * scalarBytes(layout.kind);
  const std::uint64_t start = layout.address + range.start * fileRow;
  if (fileRow == outputRow) return readAt(descriptor, start, values, "values");
  // Narrower fragments: some rows at a time, of which the front is wanted.
  const std::uint64_t block = std::max<std::uint64_t>(1, (std::uint64_t{1} << 20U) / fileRow);
  std::vector<std::byte> rows;
  for (std::uint64_t done = 0; done < range.count; done += block) {
    const std::uint64_t count = std::min(block, range.count - done);
    rows.resize(static_cast<std::size_t>(count * fileRow));
    auto got = readAt(descriptor, start + done * fileRow, rows, "values");
    if (!got.ok()) return got;
    for (std::uint64_t r = 0; r < count; ++r) {
      std::memcpy(values.data() + (done + r) * outputRow, rows.data() + r * fileRow, outputRow);
    }
  }
  return {};
}

Outcome<void> requireGridColumns(const DatasetLayout& layout) {
  if (layout.isChunked && layout.chunkColumns == 1 && layout.kind == ScalarKind::Int32 &&
      layout.columns == CoordinateGrid().size()) {
    return {};
  }
  return Failure{"coordinates on a grid are not stored in columns of 32-bit integers"};
}

}  // namespace

Outcome<void> requireRange(const DatasetLayout& layout, const RowRange& range) {
  if (range.start > layout.rows || range.count > layout.rows - range.start ||
      range.columns > layout.columns) {
    return Failure{fmt::format("rows are missing, found {} x {}, expected {} + {} x {}",
                               layout.rows, layout.columns, range.start, range.count,
                               range.columns)};
  }
  return {};
}

Outcome<void> readRows(const DatasetLayout& layout, int descriptor, const RowRange& range,
                       std::span<std::byte> values) {
  if (values.empty()) return {};
  if (!layout.isChunked) return readPiece(layout, descriptor, range, values);
  const std::size_t number = scalarBytes(layout.kind);
  const std::size_t outputRow = static_cast<std::size_t>(range.columns) * number;
  const std::size_t chunkRow = static_cast<std::size_t>(layout.chunkColumns) * number;
  ChunkWalk walk(layout, descriptor, range);
  const auto target = [&](const ChunkPart& part) {
    const bool whole = part.rows == layout.chunkRows && chunkRow == outputRow;
    return whole ? values.subspan(part.outputRow * outputRow, walk.chunkBytes())
                 : std::span<std::byte>();
  };
  return walk.run(target, [&](const ChunkPart& part, std::span<const std::byte> plain) {
    const std::byte* from = plain.data() + part.firstRow * chunkRow;
    std::byte* to = values.data() + part.outputRow * outputRow + part.column * number;
    if (chunkRow == outputRow) {
      std::memcpy(to, from, part.rows * outputRow);
      return;
    }
    for (std::uint64_t r = 0; r < part.rows; ++r) {
      std::memcpy(to + r * outputRow, from + r * chunkRow, part.columns * number);
    }
  });
}

Outcome<void> readGridRows(const DatasetLayout& layout, int descriptor, const RowRange& range,
                           const CoordinateGrid& grid, std::span<double> xyz) {
  if (xyz.empty()) return {};
  if (auto suited = requireGridColumns(layout); !suited.ok()) return suited;
  ChunkWalk walk(layout, descriptor, range);
  const auto none = [](const ChunkPart&) { return std::span<std::byte>(); };
  return walk.run(none, [&](const ChunkPart& part, std::span<const std::byte> plain) {
    const auto* integers = reinterpret_cast<const std::int32_t*>(plain.data()) + part.firstRow;
    const auto axis = static_cast<std::size_t>(part.column);
    decodeFromGrid({integers, static_cast<std::size_t>(part.rows)}, grid[axis], axis,
                   xyz.subspan(3 * part.outputRow, 3 * part.rows));
  });
}

Outcome<void> readGridColumns(const DatasetLayout& layout, int descriptor, const RowRange& range,
                              const std::array<std::span<std::int32_t>, 3>& columns) {
  if (columns[0].empty()) return {};
  if (auto suited = requireGridColumns(layout); !suited.ok()) return suited;
  ChunkWalk walk(layout, descriptor, range);
  const auto placeOf = [&](const ChunkPart& part) {
    return std::as_writable_bytes(columns[part.column].subspan(part.outputRow, part.rows));
  };
  const auto target = [&](const ChunkPart& part) {
    return part.rows == layout.chunkRows ? placeOf(part) : std::span<std::byte>();
  };
  return walk.run(target, [&](const ChunkPart& part, std::span<const std::byte> plain) {
    const std::span<std::byte> place = placeOf(part);
    std::memcpy(place.data(), plain.data() + part.firstRow * sizeof(std::int32_t), place.size());
  });
}

}  // namespace Fiber::Container
