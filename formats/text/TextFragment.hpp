// SPDX-License-Identifier: Apache-2.0
//
// TextFragment: a range of lines of one file as the columns of a fragment. The first pass over a
// file (the survey) and every later one are the same step: it finds what the numbers have in common
// and fills columns of the planned types, which are of use if the numbers fit them.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "datamodel/eagle/BoundingBox.hpp"
#include "formats/cloud/DecodedFragment.hpp"
#include "formats/las/InputFile.hpp"
#include "formats/text/RowParser.hpp"

namespace Formats {

/// A text file that is open, and what its columns become. Never changes once fragments use it.
struct TextFile {
  std::shared_ptr<const InputFile> bytes;  ///< The text; failures name the file that it came from.
  TextFormat format;
  std::vector<PlannedColumn> columns;  ///< One per column of the file.
  std::size_t fieldCount = 0;          ///< Fields are numbered from 0 on.

  const std::string& path() const { return bytes->path(); }
};

/// What came of a range of lines.
struct ParsedLines {
  /// Positions, then the fields in the order of their numbers. Empty when a number does not fit.
  DecodedHandle fragment;
  MemCore::StrongPtr<Eagle::BoundingBox> box;  ///< Empty only without rows.
  std::vector<ColumnFacts> facts;              ///< One per column of the file.
  std::uint64_t rowCount = 0;
  std::uint64_t lineCount = 0;  ///< With comments and blank lines.
  /// Set: reading ended here. Lines are counted from the first one of the range.
  std::optional<LineFailure> lineFailure;
};

/// Parses a range. `expectedRows` only spares memory from being moved. Threads: may be called at
/// once. Errors: unreadable bytes (what is wrong with a line is part of the result).
/// May throw std::bad_alloc.
MemCore::Outcome<ParsedLines> parseLines(const TextFile& file, const ByteRange& range,
                                         std::uint64_t expectedRows);

/// The text for a line of a file that is wrong; `firstLine` is the number of the range's first
/// line, counted from 1.
std::string describeLine(const TextFile& file, std::uint64_t firstLine, const LineFailure& failure);

/// Makes the columns of one range. Threads: as its base.
class TextFragmentSource final : public DecodedFragmentSource {
 public:
  TextFragmentSource(std::shared_ptr<const TextFile> file, const ByteRange& range)
      : file_(std::move(file)), range_(range) {}

  const TextFile& file() const { return *file_; }
  std::uint64_t rowCount() const { return rowCount_; }

  /// The first pass: as parseLines; columns that fit are left to the cache. To be called once,
  /// before any other thread knows the source.
  MemCore::Outcome<ParsedLines> survey(std::uint64_t expectedRows);
  /// A source of the same rows under another plan. What this one has in the cache is dropped.
  MemCore::StrongPtr<TextFragmentSource> forPlan(std::shared_ptr<const TextFile> file) const;
  /// For failures: the number of the first line, once all lines before it are counted.
  void setFirstLine(std::uint64_t line) { firstLine_ = line; }

 protected:
  /// Errors: also a file that is not what it was during the first pass.
  MemCore::Outcome<DecodedHandle> decode() override;

 private:
  std::shared_ptr<const TextFile> file_;
  ByteRange range_;
  std::uint64_t rowCount_ = 0;
  std::uint64_t firstLine_ = 1;
};

}  // namespace Formats
