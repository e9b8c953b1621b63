// SPDX-License-Identifier: Apache-2.0
//
// LasExport: writes fragments of a grid as one LAS or LAZ file. Fragments are loaded some at a
// time, in their order; their points are cut into chunks, which all threads encode (and compress)
// while one appends what is done. Within a parallel region everything runs in the calling thread.
// Memory: the columns of the fragments that make some chunks per thread, at least one fragment, and
// their records. Where the points' former order is to be restored, records go through a temporary
// file of all records in between. The file appears under its name only when it is complete.

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/export/FragmentColumns.hpp"
#include "formats/export/LasTarget.hpp"
#include "formats/export/Scaling.hpp"

namespace Formats {

/// Hears how many fragments are done; false ends the export.
using ExportListener = std::function<bool(std::size_t fragmentsDone)>;

/// What goes into one file, and how.
struct LasExportJob {
  std::string path;
  const ExportSource* source = nullptr;
  std::span<const ExportFragment> fragments;
  const LasTarget* target = nullptr;
  CoordinateGrid grid;
  bool isLossy = false;
  PointChooser choose = everyPoint();
  std::vector<std::size_t> choosesBy;  ///< numbers of the fields that `choose` looks at
  /// Write the points in the order of the fields "SourceFile" and "SourceIndex", where the grid has
  /// them, instead of that of the fragments.
  bool restoresOrder = true;
  bool skipsEmpty = false;  ///< make no file where no point is chosen
  ExportListener listener;  ///< may be empty
};

struct LasExportResult {
  std::uint64_t points = 0;
  bool isWritten = false;
  /// Range: closed. Meaningful with points.
  std::array<double, 3> minimum{};
  std::array<double, 3> maximum{};
  std::vector<std::string> lossyFields;  ///< fields of which some value was rounded or cut
};

/// The text of an export that its listener ended.
inline constexpr const char* kExportStopped = "stopped";

/// Errors: what cannot be read, held or written; nothing
/// is left behind then.
MemCore::Outcome<LasExportResult> exportLas(const LasExportJob& job);

}  // namespace Formats
