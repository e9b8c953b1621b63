// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextFormat.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "formats/text/ColumnNames.hpp"
#include "formats/text/FirstLines.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// A name without the quotes that spreadsheets put around it.
std::string unquoted(std::string_view name) {
  if (name.size() > 1 && name.front() == '"' && name.back() == '"') {
    name = name.substr(1, name.size() - 2);
  }
  return std::string(trimmed(name));
}

std::vector<std::string> namesIn(std::string_view line, Delimiter delimiter) {
  std::vector<std::string> names;
  for (const std::string_view part : splitLine(line, delimiter)) names.push_back(unquoted(part));
  return names;
}

/// What is wrong with a line, with its place.
Failure atLine(const InputFile& file, std::uint64_t line, const std::string& what) {
  return Failure{fmt::format("{}:{}: {}", file.path(), line, what)};
}

Outcome<void> checkColumns(const InputFile& file, const FirstLines::Line& line,
                           std::span<const std::string_view> parts, Delimiter delimiter) {
  const auto comma = std::find_if(parts.begin(), parts.end(), hasDecimalComma);
  if (delimiter != Delimiter::Comma && comma != parts.end()) {
    return atLine(
        file, line.number,
        fmt::format("decimal comma, found \"{}\", expected a decimal point", shownText(*comma)));
  }
  if (parts.size() < 3) {
    return atLine(file, line.number,
                  fmt::format("too few columns, found {} in \"{}\", expected at least 3 (x, y, z)",
                              parts.size(), shownText(line.text)));
  }
  if (parts.size() > kMaxColumns) {
    return atLine(
        file, line.number,
        fmt::format("too many columns, found {}, expected at most {}", parts.size(), kMaxColumns));
  }
  return {};
}

/// The names of `count` columns: those given, else those of a header, else those of a comment that
/// can only be one, else the usual ones.
Outcome<std::vector<std::string>> settleNames(const InputFile& file, const FirstLines& first,
                                              Delimiter delimiter, std::size_t count,
                                              std::span<const std::string> givenNames) {
  if (!givenNames.empty()) {
    if (givenNames.size() == count) return std::vector(givenNames.begin(), givenNames.end());
    return atLine(file, first.points->number,
                  fmt::format("names of the columns do not match, found {} columns, expected {}",
                              count, givenNames.size()));
  }
  if (first.header) {
    auto names = namesIn(first.header->text, delimiter);
    if (names.size() == count) return names;
    return atLine(file, first.header->number,
                  fmt::format("names of the columns do not match line {}, found {} names, expected "
                              "{}",
                              first.points->number, names.size(), count));
  }
  for (auto comment = first.comments.rbegin(); comment != first.comments.rend(); ++comment) {
    auto names = namesIn(comment->text, delimiter);
    if (names.size() == count && rolesOf(names).ok()) return names;
  }
  return defaultColumnNames(count);
}

}  // namespace

Outcome<TextFormat> detectFormat(const InputFile& file, std::span<const std::string> givenNames) {
  const Outcome<FirstLines> first = readFirstLines(file, givenNames);
  if (!first) return first.failure();
  TextFormat format;
  format.pointsBegin = first->pointsBegin;
  if (!first->points) return format;
  format.firstLine = first->points->number;
  format.delimiter = delimiterOf(first->points->text);
  const auto parts = splitLine(first->points->text, format.delimiter);
  const auto checked = checkColumns(file, *first->points, parts, format.delimiter);
  if (!checked) return checked.failure();
  auto names = settleNames(file, *first, format.delimiter, parts.size(), givenNames);
  if (!names) return names.failure();
  format.names = std::move(*names);
  return format;
}

}  // namespace Formats
