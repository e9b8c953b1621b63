// SPDX-License-Identifier: Apache-2.0
//
// LasWriterOptions: what a new LAS or LAZ file says besides its points, and whether a file of its
// version can say it.

#pragma once

#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/LasHeader.hpp"
#include "formats/las/VariableRecord.hpp"

namespace Formats {

/// Where the waveform packets of a new file go.
enum class WaveformPlace {
  Nowhere,  ///< Packets are refused.
  Inside,   ///< As the packet record behind the points.
  Beside    ///< As NAME.wdp in the same folder.
};

/// What a new file says besides its points.
struct LasWriterOptions {
  /// Version, point format, scale, offset, identifiers, date, encoding; `isCompressed` makes a LAZ
  /// file, whatever its name; `recordBytes` 0 = that of the point format. Counts, bounds, byte
  /// offsets and the waveform bits are the writer's business.
  LasHeader header;
  std::vector<VariableRecord> vlrs;   ///< A LASzip record among them is left out.
  std::vector<VariableRecord> evlrs;  ///< 1.4 only. All loaded; no waveform packets.
  WaveformPlace waveforms = WaveformPlace::Nowhere;
  bool isDurable = false;  ///< Flush to the disk before the file gets its name.
};

/// The oldest version 1.x that has the point format.
std::uint8_t oldestMinorOf(std::uint8_t pointFormat);

/// Points that a file of this version can count; beyond it a writer has to refuse them.
std::uint64_t mostPointsOf(const LasHeader& header);

/// Errors: a version that has no such point format, EVLRs or waveforms, records that are too long
/// or not in memory. `path` begins the texts.
MemCore::Outcome<void> checkWriterOptions(const std::string& path, const LasWriterOptions& options);

/// "PATH: LAS 1.x cannot hold WHAT"
MemCore::Failure cannotHold(const std::string& path, const LasHeader& header,
                            const std::string& what);

}  // namespace Formats
