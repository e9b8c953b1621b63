// SPDX-License-Identifier: Apache-2.0
//
// LazChunkWriter: the compressed points of a LAZ file being written: chunks one after the other,
// then their table, whose place is noted in front of them. Chunks have kUsualChunkPoints points;
// only the last may have fewer. Source: "LASzip: lossless compression of lidar data", M. Isenburg,
// 2013.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/OutputFile.hpp"
#include "formats/las/VariableRecord.hpp"
#include "formats/laz/LazCodec.hpp"

namespace Formats {

/// Chunks and table of one file. Threads: one at a time, but for compress().
class LazChunkWriter {
 public:
  /// Requires: `recordBytes` at least the length of the point format's records.
  static MemCore::Outcome<LazChunkWriter> make(std::uint8_t pointFormat, std::size_t recordBytes);

  /// The record that describes the compression, for the file's VLRs.
  VariableRecord record() const;

  /// Leaves the place of the table open. To be called at the file's point data offset.
  MemCore::Outcome<void> begin(OutputFile& file);

  /// Encodes a chunk of 1 to kUsualChunkPoints points. Threads: any number of them at once.
  MemCore::Outcome<std::vector<std::byte>> compress(std::span<const std::byte> records) const;

  /// Appends what compress() returned for `pointCount` points. Errors: a chunk behind a short one.
  MemCore::Outcome<void> append(OutputFile& file, std::span<const std::byte> chunk,
                                std::uint64_t pointCount);

  /// Appends the table and notes its place.
  MemCore::Outcome<void> finish(OutputFile& file);

 private:
  explicit LazChunkWriter(LazCodec codec) : codec_(std::move(codec)) {}

  LazCodec codec_;
  std::vector<LazChunk> chunks_;
  std::uint64_t tablePlace_ = 0;  ///< Byte offset of the byte offset of the table.
  bool hasShortChunk_ = false;
};

}  // namespace Formats
