// SPDX-License-Identifier: Apache-2.0
//
// SourceDivision: the points of a grid by the files that they came from, so that each file can be
// written again as it was.

#pragma once

#include <memory>
#include <vector>

#include "formats/export/ExportSource.hpp"
#include "formats/export/FragmentColumns.hpp"
#include "host/Result.hpp"

namespace Host {

/// What of a grid came from one file: its header and records, the fields that it had, and the
/// fragments that may hold its points.
struct SourcePart {
  std::shared_ptr<const Formats::ExportSource> source;
  Formats::PointChooser choose;
  std::vector<std::size_t> choosesBy;
};

/// One part per file that has points left, in the order of the files. `choose` settles which points
/// of a fragment are to be had at all. Errors (failed): a grid whose points do not tell their
/// files, or that names files it does not know.
Result<std::vector<SourcePart>> divideBySource(const Formats::ExportSource& source,
                                               const Formats::PointChooser& choose);

}  // namespace Host
