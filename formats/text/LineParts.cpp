// SPDX-License-Identifier: Apache-2.0

#include "formats/text/LineParts.hpp"

#include <algorithm>

#include "formats/text/NumberToken.hpp"

namespace Formats {

namespace {

constexpr std::string_view kBlanks = " \t";

std::vector<std::string_view> splitAtBlanks(std::string_view line, std::string_view blanks) {
  std::vector<std::string_view> parts;
  for (std::size_t at = line.find_first_not_of(blanks); at != std::string_view::npos;
       at = line.find_first_not_of(blanks, at)) {
    const std::size_t end = std::min(line.find_first_of(blanks, at), line.size());
    parts.push_back(line.substr(at, end - at));
    at = end;
  }
  return parts;
}

}  // namespace

char characterOf(Delimiter delimiter) {
  switch (delimiter) {
    case Delimiter::Comma:
      return ',';
    case Delimiter::Semicolon:
      return ';';
    case Delimiter::Tab:
      return '\t';
    case Delimiter::Blanks:
      break;
  }
  return ' ';
}

bool isNumber(std::string_view text) {
  NumberToken number;
  return readWhole(text, number);
}

bool hasWord(std::string_view line) {
  const auto parts = splitAtBlanks(line, " \t,;");
  return !std::all_of(parts.begin(), parts.end(), isNumber);
}

bool hasDecimalComma(std::string_view text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string_view::npos || comma == 0 || comma + 1 == text.size()) return false;
  return isNumber(text.substr(0, comma)) && isNumber(text.substr(comma + 1));
}

Delimiter delimiterOf(std::string_view line) {
  if (line.find(';') != std::string_view::npos) return Delimiter::Semicolon;
  const auto words = splitAtBlanks(line, kBlanks);
  const bool hasTabs = line.find('\t') != std::string_view::npos;
  if (hasTabs && splitLine(line, Delimiter::Tab).size() == words.size()) return Delimiter::Tab;
  const bool hasDecimalCommas =
      words.size() > 2 && std::all_of(words.begin(), words.end(), hasDecimalComma);
  if (line.find(',') != std::string_view::npos && !hasDecimalCommas) return Delimiter::Comma;
  return Delimiter::Blanks;
}

std::vector<std::string_view> splitLine(std::string_view line, Delimiter delimiter) {
  if (delimiter == Delimiter::Blanks) return splitAtBlanks(line, kBlanks);
  std::vector<std::string_view> parts;
  while (true) {
    const std::size_t end = line.find(characterOf(delimiter));
    parts.push_back(trimmed(line.substr(0, end)));
    if (end == std::string_view::npos) break;
    line.remove_prefix(end + 1);
  }
  if (parts.size() > 1 && parts.back().empty()) parts.pop_back();
  return parts;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kEnds = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kEnds);
  if (begin == std::string_view::npos) return text.substr(0, 0);
  return text.substr(begin, text.find_last_not_of(kEnds) - begin + 1);
}

std::string shownText(std::string_view text) {
  constexpr std::size_t kMostShown = 40;
  std::string shown;
  for (const char c : text.substr(0, kMostShown)) {
    const auto code = static_cast<unsigned char>(c);
    shown += code < 0x20 || code >= 0x7F ? '?' : c;
  }
  return text.size() > kMostShown ? shown + "..." : shown;
}

}  // namespace Formats
