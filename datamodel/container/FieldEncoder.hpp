// SPDX-License-Identifier: Apache-2.0
//
// One field's way from arrays in memory to stored chunks. Fragments come in one after the other as
// pieces; as soon as all rows of a chunk are there, the chunk can be encoded. A dataset runs
// through all fragments, so a chunk may hold the end of one and the beginning of the next: pieces
// stay until their last row is encoded.

#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "datamodel/container/BundlePlan.hpp"
#include "datamodel/container/ChunkCodec.hpp"
#include "datamodel/fiber/StorageTransformations.hpp"

namespace Fiber::Container {

/// How a dataset is laid out in the file.
enum class Encoding {
  kGridColumns,  ///< coordinates as 32-bit integers on a grid, a chunk holds one axis
  kColumns,      ///< vectors of three doubles, a chunk holds one component
  kRows,         ///< whole rows in chunks
  kPiece,        ///< all rows in one piece, not encoded
};

/// One fragment's part of the field.
struct FieldPiece {
  std::uint64_t start = 0;  ///< first row
  std::uint64_t rows = 0;
  std::uint64_t width = 0;           ///< numbers per row
  MemCore::StrongPtr<MemBase> data;  ///< empty for points on a grid
  GridPointsHandle points;           ///< empty unless on a grid
};

/// Rows and columns of a chunk, and which one it is.
struct ChunkRange {
  std::uint64_t row = 0;
  std::uint64_t column = 0;
};

class FieldEncoder {
 public:
  /// `fragmentRows`: rows of every fragment where they are alike (the last one may be shorter), for
  /// chunks that fit them; 0: they are not. Requires: the field has a type.
  FieldEncoder(const StoredField& field, Encoding encoding, std::uint64_t fragmentRows = 0);

  Encoding encoding() const { return encoding_; }
  /// Type of the stored numbers.
  ScalarKind storedKind() const;
  std::uint64_t chunkRows() const { return chunkRows_; }
  std::uint64_t chunkColumns() const { return chunkColumns_; }
  /// Chunks side by side; 0 for a field without columns.
  std::uint64_t chunksAcross() const {
    return (field_.columns + chunkColumns_ - 1) / chunkColumns_;
  }
  /// Final after settleFilter.
  ChunkFilter filter() const { return filter_; }

  /// Requires: pieces come in ascending order of start and do not overlap; not for kPiece.
  void add(FieldPiece piece) { pieces_.push_back(std::move(piece)); }
  /// The chunks that became complete now that all rows below `endRow` are there.
  std::vector<ChunkRange> takeComplete(std::uint64_t endRow);
  /// Settles the filters by what pieces there are. Requires: called once, after the first pieces
  /// were added and before the dataset is made.
  MemCore::Outcome<void> settleFilter(ChunkEncoder& encoder);
  /// Encodes one complete chunk. Threads: several chunks of a field at once, each thread with its
  /// own encoder.
  MemCore::Outcome<EncodedChunk> encode(const ChunkRange& chunk, ChunkEncoder& encoder,
                                        StreamCodes codes = StreamCodes::kOwn) const;
  /// Lets go of pieces whose rows are all encoded.
  void dropEncoded();

 private:
  std::vector<std::byte> plainChunk(const ChunkRange& chunk) const;
  void copyPiece(const FieldPiece& piece, const ChunkRange& chunk, std::byte* plain) const;
  std::span<const std::byte> wholeChunk(const ChunkRange& chunk) const;

  const StoredField& field_;
  Encoding encoding_;
  std::size_t numberBytes_;
  std::uint64_t chunkRows_ = 0;
  std::uint64_t chunkColumns_ = 0;
  ChunkFilter filter_;
  std::deque<FieldPiece> pieces_;
  std::uint64_t nextRow_ = 0;  ///< of the first chunk that was not taken yet
};

/// The encoding of a field under a kind of storage.
Encoding encodingFor(const StoredField& field, StorageKind kind, bool gridRefused);

}  // namespace Fiber::Container
