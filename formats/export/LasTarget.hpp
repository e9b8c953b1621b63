// SPDX-License-Identifier: Apache-2.0
//
// LasTarget: the LAS file that a grid becomes: header, records, point format, and which field of
// the grid fills which field of a point record. A grid that came from LAS files gets back what they
// said; any other gets a format that has a place for its fields, and extra bytes for the rest.

#pragma once

#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/export/ExportSource.hpp"
#include "formats/export/LasExportOptions.hpp"

namespace Formats {

/// Fills a field of the record from a column of the grid.
struct FieldMapping {
  PointField target;
  std::size_t field = 0;      ///< in ExportSource::fields
  std::size_t component = 0;  ///< of its elements
  double factor = 1.0;        ///< value in the record = value of the grid * factor
};

struct LasTarget {
  LasWriterOptions writer;  ///< all but scale and offset, which settleScaling finds
  std::vector<FieldMapping> mappings;
  std::vector<std::string> notes;  ///< one line for each thing that is not as one would expect it
};

/// Fields that tell a point's file and its place there. They order points and are never written.
bool isOrderField(const std::string& name);

/// Errors: files that must not become one (see mergeSources), a point format that has no place for
/// a field with values or for a record (unless lossy).
MemCore::Outcome<LasTarget> lasTargetOf(const ExportSource& source,
                                        const LasExportOptions& options);

}  // namespace Formats
