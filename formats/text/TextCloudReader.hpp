// SPDX-License-Identifier: Apache-2.0
//
// TextCloudReader: puts text files of points into a bundle as one grid. One parallel pass over the
// files tells count, box and types; point data are made on demand, from the same bytes again unless
// the cache still has them (see TextSurvey.hpp). A fragment is a run of about 250 000 consecutive
// lines of one file, named "FILE-RUN" (both counted from 0), with the field "Positions" and one for
// every other column. Files may be gzip files, which are expanded once (see GzipText.hpp).
//
// Property map of "Positions": "GridScale" and "GridOffset" (3 doubles each) when the coordinates
// have few decimals; "Decimals" (3 uint64: the most digits behind the decimal point of any x, y and
// z) when no coordinate has an exponent. A field of doubles has "Decimals" of one element likewise.
//
// Start here: addTextCloud -> detectFormat, rolesOf -> surveyFiles -> TextFragmentSource.

#pragma once

#include <string>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/CloudOptions.hpp"

namespace Formats {

struct TextCloudOptions {
  CloudOptions cloud;
  /// Names of the columns of every file, x, y and z among them, "-" for one to leave out. Empty: as
  /// the header says, else x, y, z, Column4, ...
  std::vector<std::string> columns;
};

/// What went into the bundle.
struct TextCloudSummary {
  std::uint64_t points = 0;
  std::uint64_t fragments = 0;
  /// One line for each thing that is not as a user would expect it.
  std::vector<std::string> notes;
};

/// Adds the points of text files to a bundle as a new grid. The files stay open for as long as the
/// grid lives, and must not change. If no file has points, the grid has "Positions" without
/// fragments.
/// Errors: no files, options that cannot be used, a grid that exists already, a file that cannot be
/// opened, a line that is no row of numbers ("FILE:LINE: ..."), more fragments than can be handled;
/// the bundle is then unchanged.
MemCore::Outcome<TextCloudSummary> addTextCloud(Fiber::Bundle& bundle,
                                                const std::vector<std::string>& files,
                                                const TextCloudOptions& options);

}  // namespace Formats
