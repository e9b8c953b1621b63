// SPDX-License-Identifier: Apache-2.0
//
// LasExport: writes fragments of a grid as one LAS or LAZ file. Fragments are loaded some at a
// time, in their order; their points are cut into chunks, which all threads encode (and compress)
// and append in their order. Within a parallel region everything runs in the calling thread.
// Memory: the columns of the fragments that make some chunks per thread, at least one fragment, and
// their records; with several threads the columns of the next ones, too. Where the points' former
// order is to be restored, records go through a temporary file of all records in between. The file
// appears under its name only when it is complete.

#pragma once

#include "datamodel/memcore/Outcome.hpp"
#include "formats/export/LasTarget.hpp"
#include "formats/export/PointFile.hpp"
#include "formats/export/Scaling.hpp"

namespace Formats {

struct LasExportJob : PointFileJob {
  const LasTarget* target = nullptr;
  CoordinateGrid grid;
  bool isLossy = false;
  /// Write the points in the order of the fields "SourceFile" and "SourceIndex", where the grid has
  /// them, instead of that of the fragments.
  bool restoresOrder = true;
};

/// Errors: what cannot be read, held or written; nothing
/// is left behind then.
MemCore::Outcome<PointFileResult> exportLas(const LasExportJob& job);

}  // namespace Formats
