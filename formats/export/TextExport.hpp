// SPDX-License-Identifier: Apache-2.0
//
// TextExport: writes fragments of a grid as one text file of points, plain or gzip. Rows are made
// (and packed) by all threads, some thousand at a time, and appended in the order of the fragments.
// Within a parallel region everything runs in the calling thread. Memory: as LasExport.

#pragma once

#include "datamodel/memcore/Outcome.hpp"
#include "formats/export/PointFile.hpp"

namespace Formats {

struct TextExportJob : PointFileJob {
  std::vector<std::size_t> fields;  ///< numbers in ExportSource::fields: the columns behind x, y, z
  bool isRounded = false;  ///< cut numbers to the decimals that their fields tell (see RowStyle)
  bool isDurable = false;
};

/// Errors: what cannot be read or written, fields that are not one number per point; nothing is
/// left behind then.
MemCore::Outcome<PointFileResult> exportText(const TextExportJob& job);

}  // namespace Formats
