// SPDX-License-Identifier: Apache-2.0
//
// TextLines: the bytes of a text file in pieces of whole lines, and the cuts at line ends by which
// a file is read in several places at once. Lines end in LF or CR LF; the last one may lack its
// end.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/InputFile.hpp"

namespace Formats {

/// Longer lines are taken for something else than points.
inline constexpr std::size_t kMaxLineBytes = std::size_t{1} << 20;

/// Bytes `begin` to `end` (half-open) of a file. Of a range of lines, both lie behind a line end,
/// or at the ends of the text.
struct ByteRange {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  std::uint64_t byteCount() const { return end - begin; }
  friend bool operator==(const ByteRange&, const ByteRange&) = default;
};

/// Hands out a range of lines piece by piece. Memory: one piece, at most two lines of the longest
/// kind beyond it. Threads: one per object.
class LinePieces {
 public:
  /// Requires: `file` outlives this object; the range begins at the start of a line.
  LinePieces(const InputFile& file, const ByteRange& range) : file_(file), range_(range) {}

  /// The next whole lines, valid until the next call; empty at the end. A line beyond kMaxLineBytes
  /// is cut there, so that whoever reads lines finds it too long. Errors: unreadable bytes.
  MemCore::Outcome<std::string_view> next();

 private:
  MemCore::Outcome<void> readMore();

  const InputFile& file_;
  ByteRange range_;  ///< what has not been read yet
  std::vector<char> buffer_;
  std::size_t begin_ = 0;  ///< of what was read but not handed out
  std::size_t end_ = 0;
};

/// Cuts a range of lines into ranges of about `wantedBytes` each (at least 1), in order and without
/// gaps. Cost: one short read per cut. Errors: unreadable bytes.
MemCore::Outcome<std::vector<ByteRange>> cutAtLines(const InputFile& file, const ByteRange& range,
                                                    std::uint64_t wantedBytes);

/// Calls `body(line)` for every line of whole lines, without its end, until it returns false.
/// Returns whether all lines were visited.
template <class Body>
bool forEachLine(std::string_view lines, Body body) {
  while (!lines.empty()) {
    const std::size_t lineEnd = lines.find('\n');
    std::string_view line = lines.substr(0, lineEnd);
    lines.remove_prefix(lineEnd == std::string_view::npos ? lines.size() : lineEnd + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!body(line)) return false;
  }
  return true;
}

}  // namespace Formats
