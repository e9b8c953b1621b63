// SPDX-License-Identifier: Apache-2.0
//
// PointFormatChoice: the point format that has a place for the fields of a grid.

#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "formats/export/ExportSource.hpp"
#include "formats/export/LasExportOptions.hpp"

namespace Formats {

/// Whether any point format has a field of this name.
bool isStandardField(const std::string& name);

/// Whether the field names or places a waveform packet.
bool isWavePacketField(const std::string& name);

/// The wanted format; else that of the files when they agree and it has a place for every standard
/// field of the grid; else the smallest of the newer family (6 to 10), or of the older one (0 to 5)
/// when all files are of it, that has. Only with `namesPackets` one with waveforms.
std::uint8_t choosePointFormat(const ExportSource& source,
                               std::span<const std::uint8_t> fileFormats, bool namesPackets,
                               const LasExportOptions& options);

}  // namespace Formats
