// SPDX-License-Identifier: Apache-2.0
//
// One chunk of a dataset between its plain bytes and the bytes stored in the file: shuffle, then
// deflate, then a checksum, as HDF5's filter pipeline would have done it. Chunks are encoded and
// decoded in the caller's thread, so that the container library, which runs one call at a time,
// only ever sees finished bytes. A chunk that deflate cannot shrink goes through it all the same: a
// zlib stream tells a chunk that was overwritten with zeros, the checksum of zeros alone is zero.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "datamodel/container/ZlibStream.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// The filters of a dataset, in the order in which they are applied. All off: stored plainly.
struct ChunkFilter {
  bool shuffle = false;
  bool deflate = false;
  bool checksum = false;  // Fletcher-32 of the stored bytes, in the four bytes behind them
  bool operator==(const ChunkFilter&) const = default;
};

/// The stored form of one chunk, with all filters of its dataset applied.
struct EncodedChunk {
  std::vector<std::byte> bytes;
};

/// Encodes chunks. Threads: one object per thread, it reuses its work space.
class ChunkEncoder {
 public:
  /// The stored form of `plain`. Requires: elementSize > 0. Errors: as ZlibCompressor::compress.
  MemCore::Outcome<EncodedChunk> encode(std::span<const std::byte> plain, std::size_t elementSize,
                                        ChunkFilter filter, StreamCodes codes = StreamCodes::kOwn);

 private:
  ZlibCompressor compressor_;
  std::vector<std::byte> shuffled_;
};

/// A stored chunk as read from a file. Bit i of skippedFilters set means that filter i of the
/// dataset's pipeline (counting only those that the dataset has) was not applied to this chunk.
struct StoredChunk {
  std::span<const std::byte> bytes;
  std::uint32_t skippedFilters = 0;
};

/// Decodes chunks. Threads: one object per thread, it reuses its work space.
class ChunkDecoder {
 public:
  /// Restores exactly plain.size() bytes. Requires: elementSize > 0. Errors: the stored bytes are
  /// damaged or of the wrong length; `plain` then has unspecified contents.
  MemCore::Outcome<void> decode(const StoredChunk& stored, std::size_t elementSize,
                                ChunkFilter filter, std::span<std::byte> plain);

 private:
  ZlibExpander expander_;
  std::vector<std::byte> shuffled_;
};

}  // namespace Fiber::Container
