// SPDX-License-Identifier: Apache-2.0
//
// LasExportOptions: what a caller wants of a LAS or LAZ file beyond what the grid says.

#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "formats/las/LasWriterOptions.hpp"

namespace Formats {

/// What is absent follows from the grid.
struct LasExportOptions {
  std::optional<std::uint8_t> pointFormat;      ///< 0 to 10
  std::optional<std::array<double, 3>> scale;   ///< each above 0 and finite
  std::optional<std::array<double, 3>> offset;  ///< finite
  /// Round and leave out what the file cannot hold, instead of failing.
  bool isLossy = false;
  bool isCompressed = false;
  WaveformPlace waveforms = WaveformPlace::Beside;  ///< Nowhere: points without their waveforms
  bool isDurable = false;
};

}  // namespace Formats
