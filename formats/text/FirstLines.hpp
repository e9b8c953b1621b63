// SPDX-License-Identifier: Apache-2.0
//
// FirstLines: a text file of points up to its first point: comments, a header, and that point.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/InputFile.hpp"

namespace Formats {

/// The first lines of a file as far as they matter.
struct FirstLines {
  struct Line {
    std::string text;  ///< Trimmed; of a comment without its marks.
    std::uint64_t number = 0;
  };
  std::vector<Line> comments;  ///< Before the first point; the latest ones.
  std::optional<Line> header;
  std::optional<Line> points;     ///< The first line of points.
  std::uint64_t pointsBegin = 0;  ///< Its byte, or where looking for it ended.
};

/// Reads the first lines. A line with a word that is no number is a header, once; with
/// `givenNames` (of columns, "-" for one that is left out) only if it has no number in a column
/// that counts. Threads: any. Errors: "FILE:LINE: ..." for a line that is too long or ends in CR
/// alone, no line of points in the first 4 MiB, unreadable bytes.
MemCore::Outcome<FirstLines> readFirstLines(const InputFile& file,
                                            std::span<const std::string> givenNames);

}  // namespace Formats
