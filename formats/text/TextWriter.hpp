// SPDX-License-Identifier: Apache-2.0
//
// TextWriter: a text file of points that appears under its name only when it is complete. Blocks
// are formatted (formatRows) and packed by any thread, and appended in order by one:
//
//   auto writer = TextWriter::create("depths.csv.gz");
//   writer->append(*writer->pack(writer->header(columns)));
//   for each block:  text = formatRows(columns, writer->style());  packed = writer->pack(text);
//   in order:        writer->append(packed);
//   writer->publish(true);

#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/OutputFile.hpp"
#include "formats/text/TextRows.hpp"

namespace Formats {

/// What the ending of a name asks for, unless something else is said: commas and a header for .csv;
/// blanks and a header for .txt; blanks and no header for .xyz and others.
struct TextWriterOptions {
  std::optional<Delimiter> delimiter;
  std::optional<bool> hasHeader;
  bool isRounded = false;  ///< See RowStyle.
};

/// Movable. Threads: const members may be called at once, others by one thread at a time.
class TextWriter {
 public:
  /// A name that ends in ".gz" makes a gzip file. Errors: as OutputFile::create.
  static MemCore::Outcome<TextWriter> create(const std::string& path,
                                             const TextWriterOptions& options = {});

  const RowStyle& style() const { return style_; }
  bool isGzip() const { return isGzip_; }

  /// The header for these columns; empty when the file is to have none.
  std::string header(std::span<const TextColumn> columns) const;
  /// Text as it goes into the file: as it is, or as a gzip member of its own. Errors: no memory.
  MemCore::Outcome<std::string> pack(std::string text) const;
  /// Appends what pack() made. Errors: full disk or other write failures.
  MemCore::Outcome<void> append(std::string_view packed);
  /// Gives the file its name. Errors: as OutputFile::publish.
  MemCore::Outcome<void> publish(bool durable);

 private:
  TextWriter(OutputFile file, const RowStyle& style, bool hasHeader, bool isGzip)
      : file_(std::move(file)), style_(style), hasHeader_(hasHeader), isGzip_(isGzip) {}

  OutputFile file_;
  RowStyle style_;
  bool hasHeader_;
  bool isGzip_;
};

}  // namespace Formats
