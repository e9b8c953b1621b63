// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextFormat.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "formats/text/ColumnNames.hpp"
#include "formats/text/NumberToken.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::uint64_t kMostHeaderBytes = std::uint64_t{4} << 20;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
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

bool isNumber(std::string_view text) {
  NumberToken number;
  return readWhole(text, number);
}

/// Whether a line has a word that is no number, whatever separates them.
bool hasWord(std::string_view line) {
  const auto parts = splitAtBlanks(line, " \t,;");
  return !std::all_of(parts.begin(), parts.end(), isNumber);
}

/// "12,5" as it may stand between blanks or semicolons.
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

/// Whether a line has a number in every column that is not left out.
bool fitsNames(std::string_view line, std::span<const std::string> names) {
  const auto parts = splitLine(line, delimiterOf(line));
  if (parts.size() != names.size()) return false;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (names[i] != kSkippedColumn && !isNumber(parts[i])) return false;
  }
  return true;
}

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

/// Takes in lines one by one until the first line of points.
class FirstLineReader {
 public:
  explicit FirstLineReader(std::span<const std::string> givenNames) : givenNames_(givenNames) {}

  /// False once nothing more is wanted. Shape: `rawBytes` counts the line's end too.
  bool take(std::string_view line, std::uint64_t rawBytes) {
    constexpr std::size_t kMostComments = 64;
    ++number_;
    const std::string_view text = trimmed(line);
    if (text.empty()) {
      // nothing to learn from
    } else if (isComment(text)) {
      if (found.comments.size() == kMostComments) found.comments.erase(found.comments.begin());
      const std::size_t marks = text.find_first_not_of("#/");
      found.comments.push_back(
          {std::string(trimmed(text.substr(std::min(marks, text.size())))), number_});
    } else if (!found.header && hasWord(text) && !fitsNames(text, givenNames_)) {
      found.header = {std::string(text), number_};
    } else {
      found.points = {std::string(text), number_};
      return false;
    }
    found.pointsBegin += rawBytes;
    return true;
  }

  FirstLines found;

 private:
  std::span<const std::string> givenNames_;
  std::uint64_t number_ = 0;
};

std::uint64_t skipByteOrderMark(std::string_view& lines) {
  if (!lines.starts_with(kByteOrderMark)) return 0;
  lines.remove_prefix(kByteOrderMark.size());
  return kByteOrderMark.size();
}

Outcome<FirstLines> readFirstLines(const InputFile& file, std::span<const std::string> givenNames) {
  const ByteRange head{0, std::min(file.sizeBytes(), kMostHeaderBytes)};
  const bool isCut = head.end < file.sizeBytes();
  const Failure noPoints{
      fmt::format("{}: no line of points, found none in the first {} bytes that is not longer than "
                  "{} bytes",
                  file.path(), head.end, kMaxLineBytes)};
  LinePieces pieces(file, head);
  FirstLineReader reader(givenNames);
  bool isFirst = true;
  while (true) {
    const auto piece = pieces.next();
    if (!piece) return piece.failure();
    std::string_view lines = *piece;
    if (lines.empty()) break;
    if (std::exchange(isFirst, false)) reader.found.pointsBegin += skipByteOrderMark(lines);
    while (!lines.empty()) {
      const std::size_t lineEnd = std::min(lines.find('\n'), lines.size() - 1);
      const std::string_view line = lines.substr(0, lineEnd + 1);
      lines.remove_prefix(lineEnd + 1);
      if (line.size() > kMaxLineBytes + 1 || (isCut && line.back() != '\n')) return noPoints;
      if (!reader.take(trimmed(line), line.size())) return std::move(reader.found);
    }
  }
  if (isCut) return noPoints;
  return std::move(reader.found);
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

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kEnds = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kEnds);
  if (begin == std::string_view::npos) return text.substr(0, 0);
  return text.substr(begin, text.find_last_not_of(kEnds) - begin + 1);
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

std::string shownText(std::string_view text) {
  constexpr std::size_t kMostShown = 40;
  std::string shown;
  for (const char c : text.substr(0, kMostShown)) {
    const auto code = static_cast<unsigned char>(c);
    shown += code < 0x20 || code >= 0x7F ? '?' : c;
  }
  return text.size() > kMostShown ? shown + "..." : shown;
}

Outcome<TextFormat> detectFormat(const InputFile& file, std::span<const std::string> givenNames) {
  const Outcome<FirstLines> first = readFirstLines(file, givenNames);
  if (!first) return first.failure();
  TextFormat format;
  format.pointsBegin = first->pointsBegin;
  for (const auto& line : {first->header, first->points}) {
    if (!line || line->text.find('\r') == std::string::npos) continue;
    return atLine(file, line->number, "lines end in CR alone, expected LF or CR LF");
  }
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
