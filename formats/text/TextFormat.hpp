// SPDX-License-Identifier: Apache-2.0
//
// TextFormat: how a text file of points is written, found out from its first lines: what stands
// between the numbers, what the columns are called, where the points begin.
//
// A first line with a word that is no number is a header. A comment ("#" or "//") before the first
// point is one too when it names as many columns as there are, x, y and z among them. Commas or
// semicolons in the first line of points separate; else tabs, when they alone do; else blanks.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/text/TextLines.hpp"

namespace Formats {

/// What stands between two numbers. Blanks around numbers never matter.
enum class Delimiter { Comma, Semicolon, Tab, Blanks };

/// The character that is written between two numbers.
char characterOf(Delimiter delimiter);

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
/// columns, lines that end in CR alone, no line of points in the first 4 MiB, unreadable bytes.
MemCore::Outcome<TextFormat> detectFormat(const InputFile& file,
                                          std::span<const std::string> givenNames);

/// The parts of a line between delimiters, without blanks around them; what a delimiter at the end
/// of the line leaves is no part.
std::vector<std::string_view> splitLine(std::string_view line, Delimiter delimiter);

/// A line without blanks and tabs at its ends.
std::string_view trimmed(std::string_view text);

/// Whether a trimmed line says nothing about points.
inline bool isComment(std::string_view line) {
  return line.empty() || line.front() == '#' || line.starts_with("//");
}

/// A part of a line for a message: control characters replaced, cut to a length that can be read.
std::string shownText(std::string_view text);

}  // namespace Formats
