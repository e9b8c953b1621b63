// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FieldEncoder.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace Fiber::Container {

using MemCore::Outcome;

namespace {

constexpr std::uint64_t kMostChunkRows = 65536;
constexpr std::uint64_t kMostChunkColumns = 65536;
/// Wide rows (waveforms) get fewer of them per chunk.
constexpr std::uint64_t kMostChunkBytes = std::uint64_t{1} << 20U;

/// Fragments below this size are read well enough within larger chunks.
constexpr std::uint64_t kLeastAlignedRows = 4096;

/// Rows of a chunk, at most `most`: an equal part of a fragment where fragments are alike, so that
/// none of them has to be read from chunks that it shares with its neighbours.
std::uint64_t chunkRowsFor(std::uint64_t most, std::uint64_t fragmentRows) {
  constexpr std::uint64_t kMostMoreParts = 4;
  if (fragmentRows >= kLeastAlignedRows) {
    const std::uint64_t fewest = (fragmentRows + most - 1) / most;
    for (std::uint64_t parts = fewest; parts < fewest * kMostMoreParts; ++parts) {
      if (fragmentRows % parts == 0) return fragmentRows / parts;
    }
  }
  return std::bit_floor(most);
}

bool isVectorOfDoubles(const StoredField& field) {
  constexpr std::size_t kComponents = 3;
  return field.type->scalar() == ScalarKind::Float64 &&
         field.type->componentCount() == kComponents && field.rank == 1;
}

bool storesColumns(Encoding encoding) {
  return encoding == Encoding::kGridColumns || encoding == Encoding::kColumns;
}

/// Copies `rows` runs of `bytes` each between rows of different lengths.
template <std::size_t kBytes>
void copyNumbers(const std::byte* from, std::size_t fromRow, std::byte* to, std::size_t toRow,
                 std::uint64_t rows) {
  for (std::uint64_t r = 0; r < rows; ++r) {
    std::memcpy(to + r * toRow, from + r * fromRow, kBytes);
  }
}

struct RowCopy {
  const std::byte* from = nullptr;
  std::size_t fromRow = 0;  ///< bytes from row to row
  std::byte* to = nullptr;
  std::size_t toRow = 0;
};

void copyRows(const RowCopy& copy, std::size_t bytes, std::uint64_t rows) {
  if (bytes == copy.fromRow && bytes == copy.toRow) {
    std::memcpy(copy.to, copy.from, bytes * rows);
  } else if (bytes == sizeof(double)) {
    copyNumbers<sizeof(double)>(copy.from, copy.fromRow, copy.to, copy.toRow, rows);
  } else {
    for (std::uint64_t r = 0; r < rows; ++r) {
      std::memcpy(copy.to + r * copy.toRow, copy.from + r * copy.fromRow, bytes);
    }
  }
}

}  // namespace

Encoding encodingFor(const StoredField& field, StorageKind kind, bool gridRefused) {
  if (kind == StorageKind::Raw || field.rows == 0 || field.columns == 0) return Encoding::kPiece;
  if (!isVectorOfDoubles(field)) return Encoding::kRows;
  const bool isPoint = field.name == kPositions && field.type->name() == "point";
  return kind == StorageKind::Grid && isPoint && !gridRefused ? Encoding::kGridColumns
                                                              : Encoding::kColumns;
}

FieldEncoder::FieldEncoder(const StoredField& field, Encoding encoding, std::uint64_t fragmentRows)
    : field_(field), encoding_(encoding), numberBytes_(scalarBytes(storedKind())) {
  if (encoding_ == Encoding::kPiece) return;
  chunkColumns_ = storesColumns(encoding_) ? 1 : std::min(field_.columns, kMostChunkColumns);
  const std::uint64_t fitting = kMostChunkBytes / (chunkColumns_ * numberBytes_);
  const std::uint64_t rows =
      chunkRowsFor(std::clamp<std::uint64_t>(fitting, 1, kMostChunkRows), fragmentRows);
  // A dataset of fixed extents must not be smaller than its chunks.
  chunkRows_ = std::min(rows, field_.rows);
  filter_ = {numberBytes_ > 1, true, true};
}

ScalarKind FieldEncoder::storedKind() const {
  return encoding_ == Encoding::kGridColumns ? ScalarKind::Int32 : field_.type->scalar();
}

std::vector<ChunkRange> FieldEncoder::takeComplete(std::uint64_t endRow) {
  std::vector<ChunkRange> complete;
  const bool isLast = endRow >= field_.rows;
  while (nextRow_ < field_.rows && (isLast || nextRow_ + chunkRows_ <= endRow)) {
    for (std::uint64_t column = 0; column < field_.columns; column += chunkColumns_) {
      complete.push_back({nextRow_, column});
    }
    nextRow_ += chunkRows_;
  }
  return complete;
}

Outcome<void> FieldEncoder::settleFilter(ChunkEncoder& encoder) {
  // Coordinates that lie on a grid deflate better as they are, others better shuffled; what there
  // is of the first row of chunks tells which.
  if (encoding_ != Encoding::kColumns) return {};
  std::size_t plainBytes = 0;
  std::size_t shuffledBytes = 0;
  for (std::uint64_t column = 0; column < field_.columns; column += chunkColumns_) {
    const std::vector<std::byte> plain = plainChunk({0, column});
    const auto asIs = encoder.encode(plain, numberBytes_, {false, true, true});
    const auto shuffled = encoder.encode(plain, numberBytes_, {true, true, true});
    if (!asIs.ok()) return asIs.failure();
    if (!shuffled.ok()) return shuffled.failure();
    plainBytes += asIs->bytes.size();
    shuffledBytes += shuffled->bytes.size();
  }
  filter_.shuffle = shuffledBytes < plainBytes;
  return {};
}

Outcome<EncodedChunk> FieldEncoder::encode(const ChunkRange& chunk, ChunkEncoder& encoder,
                                           StreamCodes codes) const {
  const auto whole = wholeChunk(chunk);
  if (!whole.empty()) return encoder.encode(whole, numberBytes_, filter_, codes);
  return encoder.encode(plainChunk(chunk), numberBytes_, filter_, codes);
}

/// A chunk that lies in memory as it will in the file: no copy is needed.
std::span<const std::byte> FieldEncoder::wholeChunk(const ChunkRange& chunk) const {
  for (const FieldPiece& piece : pieces_) {
    const bool covers =
        piece.start <= chunk.row && chunk.row + chunkRows_ <= piece.start + piece.rows;
    if (!covers) continue;
    const std::uint64_t first = chunk.row - piece.start;
    if (encoding_ == Encoding::kGridColumns) {
      const auto& column = piece.points->columns[static_cast<std::size_t>(chunk.column)];
      return std::as_bytes(std::span(column).subspan(first, chunkRows_));
    }
    if (encoding_ == Encoding::kRows && piece.width == chunkColumns_ &&
        chunkColumns_ == field_.columns) {
      const std::size_t rowBytes = static_cast<std::size_t>(piece.width) * numberBytes_;
      return {piece.data->elements()->bytes() + first * rowBytes, chunkRows_ * rowBytes};
    }
  }
  return {};
}

std::vector<std::byte> FieldEncoder::plainChunk(const ChunkRange& chunk) const {
  std::vector<std::byte> plain(chunkRows_ * chunkColumns_ * numberBytes_);
  for (const FieldPiece& piece : pieces_) {
    const bool meets = piece.start < chunk.row + chunkRows_ &&
                       chunk.row < piece.start + piece.rows && chunk.column < piece.width;
    if (meets) copyPiece(piece, chunk, plain.data());
  }
  return plain;
}

void FieldEncoder::copyPiece(const FieldPiece& piece, const ChunkRange& chunk,
                             std::byte* plain) const {
  const std::uint64_t first = std::max(piece.start, chunk.row);
  const std::uint64_t last = std::min(piece.start + piece.rows, chunk.row + chunkRows_);
  RowCopy copy;
  copy.toRow = static_cast<std::size_t>(chunkColumns_) * numberBytes_;
  copy.to = plain + (first - chunk.row) * copy.toRow;
  const std::uint64_t columns = std::min(chunkColumns_, piece.width - chunk.column);
  if (encoding_ == Encoding::kGridColumns) {
    const auto& column = piece.points->columns[static_cast<std::size_t>(chunk.column)];
    copy.fromRow = numberBytes_;
    copy.from = reinterpret_cast<const std::byte*>(column.data() + (first - piece.start));
  } else {
    copy.fromRow = static_cast<std::size_t>(piece.width) * numberBytes_;
    copy.from = piece.data->elements()->bytes() + (first - piece.start) * copy.fromRow +
                chunk.column * numberBytes_;
  }
  copyRows(copy, static_cast<std::size_t>(columns) * numberBytes_, last - first);
}

void FieldEncoder::dropEncoded() {
  while (!pieces_.empty() && pieces_.front().start + pieces_.front().rows <= nextRow_) {
    pieces_.pop_front();
  }
}

}  // namespace Fiber::Container
