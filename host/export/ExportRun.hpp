// SPDX-License-Identifier: Apache-2.0
//
// ExportRun: writes the files of an export plan. Many files are shared out among the threads; few
// are written one after the other, each by all threads.

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/export/LasExport.hpp"
#include "host/export/ExportPlan.hpp"

namespace Host {

class Session;

/// What became of one planned file.
struct ExportedFile {
  std::string path;
  Formats::PointFileResult result;
  std::uint64_t bytes = 0;  ///< without waveforms beside it
  std::shared_ptr<const Formats::LasTarget>
      target;  ///< of LAS files; empty for text, or when unsettled
  std::array<double, 3> scale{};
  std::string failure;  ///< why it was not written
};

struct ExportOutcome {
  std::vector<ExportedFile> files;  ///< in the order of the plan
  std::vector<std::string> notes;   ///< once each
  bool isCancelled = false;
};

/// Writes all files. A file that fails does not keep the others from being written.
ExportOutcome runPlan(const ExportPlan& plan, const ExportOptions& options, Session& session);

}  // namespace Host
