// SPDX-License-Identifier: Apache-2.0
//
// LasWriter: writes a LAS or LAZ file as a stream of point records, versions 1.0 to 1.4, with VLRs,
// EVLRs and waveform packets inside the file or in a .wdp beside it. Counts, bounds and returns are
// gathered on the way and put into the header at the end. The file appears under its name only when
// finish() succeeds; until then it is NAME.tmp.PID.N in the same folder, which a failure or the
// destructor removes.
//
// Two ways to write points, of which a file uses one. writeRecords() takes any run of them and does
// all on the calling thread. encodeChunk() + writeChunk() part the work for callers with threads:
// encoding (compression and totals) is pure and runs on any number of threads, writing is short and
// goes one chunk after the other, in the order of the points:
//
//     threads, any order:      EncodedChunk encoded = writer.encodeChunk(records);
//     one at a time, in order: writer.writeChunk(records, encoded);
//
// Threads: one at a time per writer, but for encodeChunk() and writeWaveformPacketAt().

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/LasWriterOptions.hpp"
#include "formats/las/OutputFile.hpp"
#include "formats/las/PointLayout.hpp"
#include "formats/las/PointTotals.hpp"
#include "formats/las/WaveformPacketWriter.hpp"
#include "formats/laz/LazChunkWriter.hpp"

namespace Formats {

/// A run of points ready to be written.
struct EncodedChunk {
  std::vector<std::byte> bytes;  ///< Compressed; empty where the records are written as they are.
  PointTotals totals;
};

/// A LAS or LAZ file being written.
class LasWriter {
 public:
  /// Errors: a version that has no such point format, record length, EVLRs or waveforms; a folder
  /// that cannot be written.
  static MemCore::Outcome<std::unique_ptr<LasWriter>> create(const std::string& path,
                                                             LasWriterOptions options);

  ~LasWriter();
  LasWriter(const LasWriter&) = delete;
  LasWriter& operator=(const LasWriter&) = delete;

  /// The layout to fill records by (insertColumns).
  const PointLayout& layout() const { return layout_; }

  /// Points taken so far.
  std::uint64_t pointCount() const {
    return totals_.pointCount + pending_.size() / layout_.recordBytes();
  }

  /// Counts and bounds of the points written so far, those that fill no chunk yet left out.
  const PointTotals& totals() const { return totals_; }

  /// Appends whole records; compressed files gather them to whole chunks first. Errors: a part of a
  /// record, more points than the version can count, a full disk; the writer is of no further use
  /// then.
  MemCore::Outcome<void> writeRecords(std::span<const std::byte> records);

  /// Points of a chunk. In a compressed file every chunk but the last has this many; others take
  /// chunks of any length.
  static constexpr std::size_t chunkPoints() { return kUsualChunkPoints; }

  /// Compresses (where the file is compressed) and counts whole records. Errors: a part of a
  /// record, too long a chunk. Threads: any number of them at once, also while chunks are written.
  MemCore::Outcome<EncodedChunk> encodeChunk(std::span<const std::byte> records) const;

  /// Appends what encodeChunk returned for these records, which a compressed file does not look at
  /// any more. Errors: as writeRecords; other records; in a compressed file, a chunk behind a short
  /// one or behind records of writeRecords that fill no chunk.
  MemCore::Outcome<void> writeChunk(std::span<const std::byte> records,
                                    const EncodedChunk& encoded);

  /// Appends a packet and returns the byte offset for the "WaveOffset" of its points. May be called
  /// before, between and after writing points.
  MemCore::Outcome<std::uint64_t> writeWaveformPacket(std::span<const std::byte> packet);

  /// Makes room for packets of `byteCount` bytes in all and returns the byte offset of the first
  /// (kEvlrHeaderBytes, when nothing was appended before). Once at most.
  MemCore::Outcome<std::uint64_t> reserveWaveformPackets(std::uint64_t byteCount);

  /// Writes a packet at this "WaveOffset" within what was reserved, in any order; bytes that nobody
  /// writes are zeros. Threads: any number of them at once, whatever else the writer does, up to
  /// finish().
  MemCore::Outcome<void> writeWaveformPacketAt(std::uint64_t byteOffset,
                                               std::span<const std::byte> packet);

  /// Completes the header and gives the file its name, replacing an older one. Once only.
  MemCore::Outcome<void> finish();

 private:
  LasWriter(PointLayout layout, LasWriterOptions options, OutputFile file,
            std::optional<LazChunkWriter> chunks)
      : layout_(std::move(layout)),
        options_(std::move(options)),
        file_(std::move(file)),
        chunks_(std::move(chunks)) {}

  static MemCore::Outcome<std::unique_ptr<LasWriter>> prepare(const std::string& path,
                                                              LasWriterOptions options);
  MemCore::Outcome<void> writeFront();
  MemCore::Outcome<void> complete();
  MemCore::Outcome<void> writeBehind();
  void completeHeader();

  MemCore::Outcome<void> checkRecords(std::span<const std::byte> records) const;
  MemCore::Outcome<void> gather(std::span<const std::byte> records);
  MemCore::Outcome<void> encodeAndWrite(std::span<const std::byte> records);
  MemCore::Outcome<void> append(std::span<const std::byte> records, const EncodedChunk& encoded);

  /// Runs a step of writing; after a failure the file cannot be finished.
  template <class Step>
  auto attempt(Step step) -> decltype(step());

  PointLayout layout_;
  LasWriterOptions options_;
  OutputFile file_;
  std::optional<LazChunkWriter> chunks_;  ///< Of compressed files alone.
  std::optional<WaveformPacketWriter> packets_;
  std::vector<std::byte> pending_;      ///< Records that fill no chunk yet; compressed files alone.
  PointTotals totals_;                  ///< Without the pending ones.
  std::atomic<bool> canFinish_ = true;  ///< No step has failed, and finish() was not called.
};

}  // namespace Formats
