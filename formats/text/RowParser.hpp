// SPDX-License-Identifier: Apache-2.0
//
// RowParser: lines of text into rows of numbers. One pass over the bytes; what a line has in common
// with all others (what separates, which columns there are) is settled before.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "formats/text/ColumnFacts.hpp"
#include "formats/text/RowBlock.hpp"
#include "formats/text/TextFormat.hpp"
#include "formats/text/TextLines.hpp"

namespace Formats {

/// What is wrong with a line. Lines are counted from the first one that a parser was given, which
/// is line 0.
struct LineFailure {
  std::uint64_t line = 0;
  std::string text;
};

/// Threads: one per object. Requires: `format` and `columns` outlive it and are equally many.
class RowParser {
 public:
  RowParser(const TextFormat& format, std::span<const PlannedColumn> columns)
      : format_(format), columns_(columns), facts_(columns.size()) {}

  /// Parses from the front of `lines` into a block until it is full or no line is left, and takes
  /// what was parsed out of `lines`. Comments and blank lines give no row.
  /// Errors: another number of columns, no number, a coordinate that is not finite, a line beyond
  /// kMaxLineBytes. The block then holds the rows before that line.
  std::optional<LineFailure> parse(std::string_view& lines, RowBlock& block);

  /// Of every column, so far; those of axes have the decimals alone.
  std::span<const ColumnFacts> facts() const { return facts_; }
  /// Lines parsed so far, with or without a row.
  std::uint64_t lineCount() const { return lineCount_; }

 private:
  template <Delimiter kDelimiter>
  std::optional<LineFailure> parseLines(std::string_view& lines, RowBlock& block);
  template <Delimiter kDelimiter>
  bool parseRow(const char* at, const char* end, RowBlock& block);
  bool take(std::size_t column, const NumberToken& number, RowBlock& block);
  LineFailure explain(std::string_view line) const;

  const TextFormat& format_;
  std::span<const PlannedColumn> columns_;
  std::vector<ColumnFacts> facts_;
  std::uint64_t lineCount_ = 0;
};

}  // namespace Formats
