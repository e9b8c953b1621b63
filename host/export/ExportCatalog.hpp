// SPDX-License-Identifier: Apache-2.0
//
// ExportCatalog: the catalogues of an exported folder: one virtual point cloud and one tile index
// per cloud, inside the folder, so that it can move.

#pragma once

#include <string>
#include <vector>

#include "host/Result.hpp"
#include "host/export/ExportRun.hpp"

namespace Host {

/// Catalogues that were written.
struct WrittenCatalogs {
  std::vector<std::string> files;  ///< absolute paths
  std::vector<std::string> notes;
};

/// Lists the files that were written, cloud by cloud; named after the folder, or after the grids
/// where there are several. Does nothing for a single file and for files divided by their source.
/// Errors (failed): a catalogue that cannot be written.
Result<WrittenCatalogs> writeCatalogs(const ExportPlan& plan, const ExportOutcome& outcome,
                                      const ExportOptions& options);

}  // namespace Host
