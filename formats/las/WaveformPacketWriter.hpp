// SPDX-License-Identifier: Apache-2.0
//
// WaveformPacketWriter: the waveform packets of a LAS or LAZ file being written. They are gathered
// in NAME.wdp.tmp.PID.N whatever their place: beside the points it becomes NAME.wdp, inside the
// file it is copied behind the points, since only then is known where these end. Byte offsets are
// those that points name: from the start of the packet record's header.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/OutputFile.hpp"

namespace Formats {

/// The packet record of one file. Threads: one at a time, but for writeAt().
class WaveformPacketWriter {
 public:
  /// For the file of this path, NAME.las or NAME.laz.
  static MemCore::Outcome<WaveformPacketWriter> create(const std::string& pointPath);

  /// Appends a packet and returns its byte offset.
  MemCore::Outcome<std::uint64_t> append(std::span<const std::byte> packet);

  /// Makes room for packets of `byteCount` bytes and returns the byte offset of the first.
  MemCore::Outcome<std::uint64_t> reserve(std::uint64_t byteCount);

  /// Writes a packet into what was reserved, in any order; what nobody writes is zero. Errors:
  /// bytes that were not reserved. Threads: any number of them at once.
  MemCore::Outcome<void> writeAt(std::uint64_t byteOffset, std::span<const std::byte> packet) const;

  /// Completes the record and appends it to `file`.
  MemCore::Outcome<void> copyInto(OutputFile& file);

  /// Completes the record and gives NAME.wdp its name.
  MemCore::Outcome<void> publish(bool durable);

 private:
  explicit WaveformPacketWriter(OutputFile file) : file_(std::move(file)) {}
  MemCore::Outcome<void> writeHeader();

  OutputFile file_;
  /// Range: half-open, of what was reserved last.
  std::uint64_t reservedBegin_ = 0;
  std::uint64_t reservedEnd_ = 0;
};

}  // namespace Formats
