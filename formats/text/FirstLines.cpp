// SPDX-License-Identifier: Apache-2.0

#include "formats/text/FirstLines.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "formats/text/ColumnNames.hpp"
#include "formats/text/LineParts.hpp"
#include "formats/text/TextLines.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::uint64_t kMostHeaderBytes = std::uint64_t{4} << 20;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Whether a line has a number in every column that is not left out.
bool fitsNames(std::string_view line, std::span<const std::string> names) {
  const auto parts = splitLine(line, delimiterOf(line));
  if (parts.size() != names.size()) return false;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (names[i] != kSkippedColumn && !isNumber(parts[i])) return false;
  }
  return true;
}

/// Takes in lines one by one until the first line of points.
class FirstLineReader {
 public:
  explicit FirstLineReader(std::span<const std::string> givenNames) : givenNames_(givenNames) {}

  /// Takes a line with its end. False once nothing more is wanted. Errors: what is wrong with it.
  Outcome<bool> take(std::string_view line) {
    ++number_;
    if (line.size() > kMaxLineBytes + 1) {
      return Failure{fmt::format("{}: line is too long, found more than {} bytes, expected numbers",
                                 number_, kMaxLineBytes)};
    }
    const std::string_view text = trimmed(line);
    if (text.find('\r') != std::string_view::npos) {
      return Failure{fmt::format("{}: lines end in CR alone, expected LF or CR LF", number_)};
    }
    if (!takeText(text)) return false;
    found.pointsBegin += line.size();
    return true;
  }

  FirstLines found;

 private:
  bool takeText(std::string_view text) {
    constexpr std::size_t kMostComments = 64;
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
    return true;
  }

  std::span<const std::string> givenNames_;
  std::uint64_t number_ = 0;
};

std::uint64_t skipByteOrderMark(std::string_view& lines) {
  if (!lines.starts_with(kByteOrderMark)) return 0;
  lines.remove_prefix(kByteOrderMark.size());
  return kByteOrderMark.size();
}

/// Takes whole lines. False once nothing more is wanted; a line without its end is left if more of
/// it lies behind (`isCut`).
Outcome<bool> takeLines(FirstLineReader& reader, std::string_view lines, bool isCut) {
  while (!lines.empty()) {
    const std::size_t lineEnd = std::min(lines.find('\n'), lines.size() - 1);
    const std::string_view line = lines.substr(0, lineEnd + 1);
    lines.remove_prefix(lineEnd + 1);
    if (isCut && line.back() != '\n' && line.size() <= kMaxLineBytes) return true;
    auto wantsMore = reader.take(line);
    if (!wantsMore || !*wantsMore) return wantsMore;
  }
  return true;
}

}  // namespace

Outcome<FirstLines> readFirstLines(const InputFile& file, std::span<const std::string> givenNames) {
  const ByteRange head{0, std::min(file.sizeBytes(), kMostHeaderBytes)};
  const bool isCut = head.end < file.sizeBytes();
  LinePieces pieces(file, head);
  FirstLineReader reader(givenNames);
  for (bool isFirst = true;; isFirst = false) {
    const auto piece = pieces.next();
    if (!piece) return piece.failure();
    std::string_view lines = *piece;
    if (lines.empty()) break;
    if (isFirst) reader.found.pointsBegin += skipByteOrderMark(lines);
    const auto wantsMore = takeLines(reader, lines, isCut);
    if (!wantsMore) return Failure{fmt::format("{}:{}", file.path(), wantsMore.error())};
    if (!*wantsMore) return std::move(reader.found);
  }
  if (!isCut) return std::move(reader.found);
  return Failure{fmt::format("{}: no line of points in the first {} bytes", file.path(), head.end)};
}

}  // namespace Formats
