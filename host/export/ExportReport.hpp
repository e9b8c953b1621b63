// SPDX-License-Identifier: Apache-2.0
//
// ExportReport: what an export has to tell, in words and as JSON.

#pragma once

#include <string>
#include <vector>

#include "host/Reports.hpp"
#include "host/export/ExportRun.hpp"

namespace Host {

struct ExportReport {
  std::string input;
  std::string output;  ///< the file, or the folder of the files
  bool isFolder = false;
  std::uint64_t gridPoints = 0;  ///< of all grids, margins as often as they occur
  ExportOutcome outcome;
  std::vector<std::string> indexFiles;  ///< catalogues of a folder
  ResourceUse use;

  std::uint64_t points() const;
  std::uint64_t bytes() const;
  std::uint64_t filesWritten() const;
  std::uint64_t filesFailed() const;
};

std::string exportText(const ExportReport& report);
std::string exportJson(const ExportReport& report);

}  // namespace Host
