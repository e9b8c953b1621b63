// SPDX-License-Identifier: Apache-2.0

#include "formats/text/RowParser.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "formats/text/NumberToken.hpp"

namespace Formats {

namespace {

constexpr bool isBlank(char c) { return c == ' ' || c == '\t'; }

template <Delimiter kDelimiter>
constexpr bool separates(char c) {
  switch (kDelimiter) {
    case Delimiter::Comma:
      return c == ',';
    case Delimiter::Semicolon:
      return c == ';';
    case Delimiter::Tab:
      return c == '\t';
    case Delimiter::Blanks:
      break;
  }
  return isBlank(c);
}

/// Skips what may stand around a number.
template <Delimiter kDelimiter>
const char* skipPadding(const char* at, const char* end) {
  while (at != end && isBlank(*at) && !(kDelimiter == Delimiter::Tab && *at == '\t')) ++at;
  return at;
}

/// Goes on to the next column. False when the line has none.
template <Delimiter kDelimiter>
bool passDelimiter(const char*& at, const char* end) {
  const char* const begin = at;
  at = skipPadding<kDelimiter>(at, end);
  if constexpr (kDelimiter == Delimiter::Blanks) return at != begin && at != end;
  if (at == end || !separates<kDelimiter>(*at)) return false;
  at = skipPadding<kDelimiter>(at + 1, end);
  return true;
}

/// Whether nothing is left of a line but blanks and perhaps one more delimiter.
template <Delimiter kDelimiter>
bool isAtEnd(const char* at, const char* end) {
  at = skipPadding<kDelimiter>(at, end);
  if (at != end && separates<kDelimiter>(*at)) at = skipPadding<kDelimiter>(at + 1, end);
  return at == end;
}

/// Skips a column that is left out.
template <Delimiter kDelimiter>
const char* skipColumn(const char* at, const char* end) {
  return std::find_if(at, end, [](char c) { return separates<kDelimiter>(c); });
}

}  // namespace

std::optional<LineFailure> RowParser::parse(std::string_view& lines, RowBlock& block) {
  switch (format_.delimiter) {
    case Delimiter::Comma:
      return parseLines<Delimiter::Comma>(lines, block);
    case Delimiter::Semicolon:
      return parseLines<Delimiter::Semicolon>(lines, block);
    case Delimiter::Tab:
      return parseLines<Delimiter::Tab>(lines, block);
    case Delimiter::Blanks:
      break;
  }
  return parseLines<Delimiter::Blanks>(lines, block);
}

template <Delimiter kDelimiter>
std::optional<LineFailure> RowParser::parseLines(std::string_view& lines, RowBlock& block) {
  while (!lines.empty() && block.rowCount < RowBlock::kMostRows) {
    const auto* const found =
        static_cast<const char*>(std::memchr(lines.data(), '\n', lines.size()));
    const std::size_t length =
        found != nullptr ? static_cast<std::size_t>(found - lines.data()) : lines.size();
    const char* const begin = lines.data();
    const char* end = begin + length;
    if (end != begin && end[-1] == '\r') --end;
    const char* const at = std::find_if_not(begin, end, isBlank);
    const bool isRow = !isComment(std::string_view(at, static_cast<std::size_t>(end - at)));
    if (length > kMaxLineBytes || (isRow && !parseRow<kDelimiter>(at, end, block))) {
      return explain(lines.substr(0, length));
    }
    if (isRow) ++block.rowCount;
    ++lineCount_;
    lines.remove_prefix(found != nullptr ? length + 1 : length);
  }
  return std::nullopt;
}

/// Parses one row, from its first character that is no blank. False when something is wrong.
template <Delimiter kDelimiter>
bool RowParser::parseRow(const char* at, const char* end, RowBlock& block) {
  NumberToken number;
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    if (column != 0 && !passDelimiter<kDelimiter>(at, end)) return false;
    if (columns_[column].kind == ColumnRole::Kind::Skipped) {
      at = skipColumn<kDelimiter>(at, end);
      continue;
    }
    at = readNumber(at, end, number);
    if (at == nullptr || !take(column, number, block)) return false;
  }
  return isAtEnd<kDelimiter>(at, end);
}

/// Puts a number where it belongs. False for a coordinate that is none.
inline bool RowParser::take(std::size_t column, const NumberToken& number, RowBlock& block) {
  const PlannedColumn& planned = columns_[column];
  block.put(planned, number);
  if (planned.kind == ColumnRole::Kind::Field) {
    facts_[column].add(number);
    return true;
  }
  facts_[column].decimals = std::max(facts_[column].decimals, number.decimals);
  return std::isfinite(number.value);
}

/// What is wrong with the line behind those that were counted.
LineFailure RowParser::explain(std::string_view line) const {
  if (line.size() > kMaxLineBytes) {
    return {lineCount_, fmt::format("line is too long, found more than {} bytes, expected numbers",
                                    kMaxLineBytes)};
  }
  const auto parts = splitLine(trimmed(line), format_.delimiter);
  if (parts.size() != columns_.size()) {
    return {lineCount_, fmt::format("wrong number of columns, found {}, expected {}", parts.size(),
                                    columns_.size())};
  }
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (columns_[i].kind == ColumnRole::Kind::Skipped) continue;
    NumberToken number;
    const bool isNumber = readWhole(parts[i], number);
    const bool isAxis = columns_[i].kind == ColumnRole::Kind::Axis;
    if (isNumber && (!isAxis || std::isfinite(number.value))) continue;
    return {lineCount_,
            fmt::format("column {} ({}): {}, found \"{}\"", i + 1, shownText(format_.names[i]),
                        isNumber ? "not a finite number" : "no number", shownText(parts[i]))};
  }
  return {lineCount_, fmt::format("cannot be read as numbers, found \"{}\"", shownText(line))};
}

}  // namespace Formats
