// SPDX-License-Identifier: Apache-2.0
//
// TextFormat: how a text file of points is written, found out from its first lines: what stands
// between the numbers, what the columns are called, where the points begin.
//
// A first line with a word that is no number is a header. A comment ("#" or "//") before the first
// point is one too when it names as many columns as there are, x, y and z among them. What
// separates is told by the first line of points.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/InputFile.hpp"
#include "formats/text/LineParts.hpp"

namespace Formats {

/// More columns than this are taken for something else than points.
inline constexpr std::size_t kMaxColumns = 1024;

struct TextFormat {
  Delimiter delimiter = Delimiter::Blanks;
  std::vector<std::string> names;  ///< One per column; empty: the file has no points.
  std::uint64_t pointsBegin = 0;   ///< Byte at which the first line of points begins.
  std::uint64_t firstLine = 1;     ///< Number of that line, counted from 1.
};

/// Finds out the format from the start of a file. `givenNames`, unless empty, are the names of the
/// columns whatever the file says. Threads: any.
/// Errors: fewer than three columns or too many, decimal commas, names that are not as many as the
/// columns, and those of readFirstLines.
MemCore::Outcome<TextFormat> detectFormat(const InputFile& file,
                                          std::span<const std::string> givenNames);

}  // namespace Formats
