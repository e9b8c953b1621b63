// SPDX-License-Identifier: Apache-2.0
//
// LasWriter: writes a LAS file as a stream of point records, versions 1.0 to 1.4, with VLRs, EVLRs
// and waveform packets inside the file or in a .wdp beside it. Counts, bounds and returns are
// gathered on the way and put into the header at the end. The file appears under its name only when
// finish() succeeds; until then it is NAME.tmp.PID.N in the same folder, which a failure or the
// destructor removes. Threads: one thread at a time per writer.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/LasHeader.hpp"
#include "formats/las/OutputFile.hpp"
#include "formats/las/PointLayout.hpp"
#include "formats/las/VariableRecord.hpp"

namespace Formats {

/// Where the waveform packets of a new file go.
enum class WaveformPlace {
  Nowhere,  ///< writeWaveformPacket is refused.
  Inside,   ///< As the packet record behind the points.
  Beside    ///< As NAME.wdp in the same folder.
};

/// What a new file says besides its points.
struct LasWriterOptions {
  /// Version, point format, scale, offset, identifiers, date, encoding; `recordBytes` 0 = that of
  /// the point format. Counts, bounds, byte offsets and the waveform bits are the writer's
  /// business.
  LasHeader header;
  std::vector<VariableRecord> vlrs;   ///< A LASzip record among them is left out.
  std::vector<VariableRecord> evlrs;  ///< 1.4 only. All loaded; no waveform packets.
  WaveformPlace waveforms = WaveformPlace::Nowhere;
  bool isDurable = false;  ///< Flush to the disk before the file gets its name.
};

/// A LAS file being written.
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
  std::uint64_t pointCount() const { return totals_.pointCount; }

  /// Appends whole records. Errors: a part of a record, more points than the version can count, a
  /// full disk; the writer is of no further use then.
  MemCore::Outcome<void> writeRecords(std::span<const std::byte> records);

  /// Appends a packet and returns the byte offset for the "WaveOffset" of its points. May be called
  /// before, between and after writeRecords.
  MemCore::Outcome<std::uint64_t> writeWaveformPacket(std::span<const std::byte> packet);

  /// Completes the header and gives the file its name, replacing an older one. Once only.
  MemCore::Outcome<void> finish();

 private:
  /// What the header tells about the points.
  struct Totals {
    std::uint64_t pointCount = 0;
    std::array<std::uint64_t, 15> byReturn{};
    std::array<std::int32_t, 3> minimum{INT32_MAX, INT32_MAX, INT32_MAX};
    std::array<std::int32_t, 3> maximum{INT32_MIN, INT32_MIN, INT32_MIN};
  };

  LasWriter(PointLayout layout, LasWriterOptions options, OutputFile file)
      : layout_(std::move(layout)), options_(std::move(options)), file_(std::move(file)) {}

  static MemCore::Outcome<std::unique_ptr<LasWriter>> prepare(const std::string& path,
                                                              LasWriterOptions options);
  MemCore::Outcome<void> complete();
  MemCore::Outcome<void> writeFront();
  MemCore::Outcome<void> writeBehind();
  MemCore::Outcome<void> writePacketsInside();
  void completeHeader();
  void addToTotals(std::span<const std::byte> records);

  PointLayout layout_;
  LasWriterOptions options_;
  OutputFile file_;
  std::optional<OutputFile> packets_;  ///< The .wdp, or the store of the packets that go inside.
  Totals totals_;
  bool canFinish_ = true;  ///< No write has failed, and finish() was not called.
};

}  // namespace Formats
