// SPDX-License-Identifier: Apache-2.0
//
// PointFile: what every export of a point file is told and tells, whatever the file's kind.

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "formats/export/FragmentColumns.hpp"

namespace Formats {

/// Hears how many fragments are done; false ends the export.
using ExportListener = std::function<bool(std::size_t fragmentsDone)>;

/// The text of an export that its listener ended.
inline constexpr const char* kExportStopped = "stopped";

/// What goes into one file. Requires: what is pointed to outlives the export.
struct PointFileJob {
  std::string path;
  const ExportSource* source = nullptr;
  std::span<const ExportFragment> fragments;
  PointChooser choose = everyPoint();
  std::vector<std::size_t> choosesBy;  ///< numbers of the fields that `choose` looks at
  bool skipsEmpty = false;             ///< make no file where no point is chosen
  ExportListener listener;             ///< may be empty
};

struct PointFileResult {
  std::uint64_t points = 0;
  bool isWritten = false;
  /// Range: closed. Meaningful with points, in LAS files.
  std::array<double, 3> minimum{};
  std::array<double, 3> maximum{};
  std::vector<std::string> lossyFields;  ///< fields of which some value was rounded or cut
};

}  // namespace Formats
