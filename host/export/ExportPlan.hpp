// SPDX-License-Identifier: Apache-2.0
//
// ExportPlan: which files an export writes, and what of which grid goes into each.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "formats/export/ExportSource.hpp"
#include "formats/export/FragmentColumns.hpp"
#include "host/GridSelection.hpp"
#include "host/Options.hpp"
#include "host/Result.hpp"

namespace Host {

enum class PointFileKind { Las, Laz, Text };

/// By the ending of a path: .las, .laz; .xyz, .txt, .csv, also with .gz behind; absent for others.
std::optional<PointFileKind> pointFileKind(const std::string& path);

/// One file to write.
struct PlannedFile {
  std::string path;
  PointFileKind kind = PointFileKind::Laz;
  std::shared_ptr<const Formats::ExportSource> source{};
  std::vector<Formats::ExportFragment> fragments{};
  Formats::PointChooser choose = Formats::everyPoint();
  std::vector<std::size_t> choosesBy{};  ///< fields that `choose` looks at
  bool restoresOrder = false;
  std::vector<std::size_t> textFields{};  ///< fields that become columns of a text file
};

struct ExportPlan {
  std::vector<PlannedFile> files;
  std::string folder;  ///< absolute; empty for a single file
  std::vector<std::string> notes;
};

/// Settles all files of an export and makes the folder. Errors: usage, for outputs that do not fit
/// what is to be exported or names that clash; failed, for files that exist (unless forced) and
/// grids that cannot be exported.
Result<ExportPlan> planExport(const std::vector<SelectedGrid>& grids, const ExportOptions& options);

}  // namespace Host
