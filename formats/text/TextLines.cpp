// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextLines.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>

namespace Formats {

using MemCore::Outcome;

namespace {

/// Small enough to stay in the second-level cache between reading and parsing.
constexpr std::size_t kPieceBytes = std::size_t{1} << 18;
/// What is looked through at a time for the end of a line.
constexpr std::size_t kProbeBytes = std::size_t{1} << 12;

/// Where the first line begins behind a byte; the end of the range when none begins near.
Outcome<std::uint64_t> lineStartBehind(const InputFile& file, std::uint64_t from,
                                       std::uint64_t end) {
  std::array<char, kProbeBytes> probe{};
  const std::uint64_t farthest = std::min<std::uint64_t>(end, from + kMaxLineBytes);
  for (std::uint64_t at = from; at < farthest;) {
    const auto count =
        static_cast<std::size_t>(std::min<std::uint64_t>(kProbeBytes, farthest - at));
    const auto part = std::span(probe).first(count);
    const auto read = file.read(at, std::as_writable_bytes(part));
    if (!read) return read.failure();
    const auto found = std::find(part.begin(), part.end(), '\n');
    if (found != part.end()) return at + static_cast<std::uint64_t>(found - part.begin()) + 1;
    at += count;
  }
  return end;
}

}  // namespace

Outcome<std::string_view> LinePieces::next() {
  while (true) {
    if (range_.byteCount() == 0) {
      const std::string_view rest(buffer_.data() + begin_, end_ - begin_);
      begin_ = end_;
      return rest;
    }
    if (const auto read = readMore(); !read) return read.failure();
    const std::string_view present(buffer_.data() + begin_, end_ - begin_);
    const std::size_t lastEnd = present.rfind('\n');
    if (lastEnd == std::string_view::npos && present.size() <= kMaxLineBytes) continue;
    const std::size_t count = lastEnd == std::string_view::npos ? present.size() : lastEnd + 1;
    begin_ += count;
    return present.substr(0, count);
  }
}

/// Puts the next bytes of the file behind those that were not handed out.
Outcome<void> LinePieces::readMore() {
  const std::size_t kept = end_ - begin_;
  const auto count =
      static_cast<std::size_t>(std::min<std::uint64_t>(kPieceBytes, range_.byteCount()));
  if (begin_ > 0 && kept > 0) std::memmove(buffer_.data(), buffer_.data() + begin_, kept);
  if (buffer_.size() < kept + count) buffer_.resize(kept + count);
  begin_ = 0;
  end_ = kept + count;
  const auto target = std::span(buffer_).subspan(kept, count);
  auto read = file_.read(range_.begin, std::as_writable_bytes(target));
  if (read) range_.begin += count;
  return read;
}

Outcome<std::vector<ByteRange>> cutAtLines(const InputFile& file, const ByteRange& range,
                                           std::uint64_t wantedBytes) {
  std::vector<ByteRange> ranges;
  std::uint64_t begin = range.begin;
  while (begin < range.end) {
    std::uint64_t end = range.end;
    if (end - begin > wantedBytes) {
      // The byte before the cut may be a line's end already.
      const auto start = lineStartBehind(file, begin + wantedBytes - 1, range.end);
      if (!start) return start.failure();
      end = *start;
    }
    ranges.push_back({begin, end});
    begin = end;
  }
  return ranges;
}

}  // namespace Formats
