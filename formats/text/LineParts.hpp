// SPDX-License-Identifier: Apache-2.0
//
// LineParts: one line of text and its parts: what separates them, which are numbers. For the first
// lines of a file and for messages; rows by the million are RowParser's.
// Threads: pure functions of their arguments.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Formats {

/// What stands between two numbers. Blanks around numbers never matter.
enum class Delimiter { Comma, Semicolon, Tab, Blanks };

/// The character that is written between two numbers.
char characterOf(Delimiter delimiter);

/// What separates in a line of points: semicolons if there are any; else tabs, when they alone do;
/// else commas if there are any, unless they can only be decimal commas; else blanks.
Delimiter delimiterOf(std::string_view line);

/// The parts of a line between delimiters, without blanks around them; what a delimiter at the end
/// of the line leaves is no part.
std::vector<std::string_view> splitLine(std::string_view line, Delimiter delimiter);

/// A text without blanks, tabs and line ends at its ends.
std::string_view trimmed(std::string_view text);

/// Whether a trimmed line says nothing about points.
inline bool isComment(std::string_view line) {
  return line.empty() || line.front() == '#' || line.starts_with("//");
}

/// Whether a text is one number.
bool isNumber(std::string_view text);

/// Whether a line has a word that is no number, whatever separates them.
bool hasWord(std::string_view line);

/// Whether a text is a number with a decimal comma, as it may stand between blanks or semicolons.
bool hasDecimalComma(std::string_view text);

/// A part of a line for a message: control characters replaced, cut to a length that can be read.
std::string shownText(std::string_view text);

}  // namespace Formats
