// SPDX-License-Identifier: Apache-2.0
//
// LazCodec: the LASzip compression of one file, as a value: how its records are organised, and the
// steps between compressed chunks and records. It wraps the C interface of laz_bridge.h.
// Threads: const members may be called by any number of threads at once.

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/laz/laz_bridge.h"

namespace Formats {

/// Points of a chunk when a new file does not say otherwise.
inline constexpr std::uint32_t kUsualChunkPoints = 50000;

/// Bytes in front of the entries of a chunk table: version and number of chunks.
inline constexpr std::size_t kChunkTableHeaderBytes = 8;

/// The compression of one file. Texts name no file; the caller puts it in front.
class LazCodec {
 public:
  /// From the payload of a file's LASzip record. Errors: damaged, or a kind that cannot be decoded.
  static MemCore::Outcome<LazCodec> fromRecord(std::span<const std::byte> payload);

  /// For a new file. `chunkPoints` LAZ_VARIABLE_CHUNKS makes chunks of any length.
  static MemCore::Outcome<LazCodec> forFormat(std::uint8_t pointFormat, std::uint16_t extraBytes,
                                              std::uint32_t chunkPoints = kUsualChunkPoints);

  /// The payload of the LASzip record.
  const std::vector<std::byte>& record() const { return record_; }

  bool isChunked() const { return description_.scheme != LAZ_POINT_WISE; }
  bool hasVariableChunks() const { return description_.chunk_points == LAZ_VARIABLE_CHUNKS; }
  std::uint32_t chunkPoints() const { return description_.chunk_points; }
  std::size_t recordBytes() const { return description_.record_bytes; }

  /// Reads the entries of a chunk table. Requires: `chunkCount` checked against the size of the
  /// file, since that many entries are allocated.
  MemCore::Outcome<std::vector<LazChunk>> readChunkTable(std::span<const std::byte> table,
                                                         std::size_t chunkCount) const;

  /// Decodes a chunk: leaves out `skip` records, then fills `records`. Errors: damaged or too
  /// short.
  MemCore::Outcome<void> decompress(std::span<const std::byte> chunk, std::uint64_t skip,
                                    std::span<std::byte> records) const;

  /// Encodes whole records as one chunk.
  MemCore::Outcome<std::vector<std::byte>> compress(std::span<const std::byte> records) const;

  /// Encodes the table behind the chunks of a file.
  MemCore::Outcome<std::vector<std::byte>> writeChunkTable(std::span<const LazChunk> chunks) const;

 private:
  LazCodec(std::vector<std::byte> record, const LazDescription& description)
      : record_(std::move(record)), description_(description) {}

  std::vector<std::byte> record_;
  LazDescription description_;
};

/// A decoder of a point-wise stream that keeps its place. Threads: one at a time.
class LazStreamDecoder {
 public:
  /// Fills a buffer with the bytes from an offset on, counted from the first compressed byte;
  /// returns their number, 0 at the end, -1 on failure. Must not throw.
  using Source = std::function<std::int64_t(std::uint64_t offset, std::span<std::byte> buffer)>;

  static MemCore::Outcome<std::unique_ptr<LazStreamDecoder>> make(const LazCodec& codec,
                                                                  Source source);
  ~LazStreamDecoder();
  LazStreamDecoder(const LazStreamDecoder&) = delete;
  LazStreamDecoder& operator=(const LazStreamDecoder&) = delete;

  /// Decodes the next records. After a failure the decoder is of no further use.
  MemCore::Outcome<void> read(std::span<std::byte> records);

 private:
  explicit LazStreamDecoder(Source source) : source_(std::move(source)) {}

  Source source_;
  LazStream* stream_ = nullptr;
};

}  // namespace Formats
