// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextWriter.hpp"

#include <algorithm>

#include "formats/text/GzipText.hpp"

namespace Formats {

using MemCore::Outcome;

namespace {

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; });
  return text;
}

}  // namespace

Outcome<TextWriter> TextWriter::create(const std::string& path, const TextWriterOptions& options) {
  constexpr std::string_view kGzipEnding = ".gz";
  std::string name = lowerCase(path);
  const bool isGzip = name.ends_with(kGzipEnding);
  if (isGzip) name.resize(name.size() - kGzipEnding.size());
  const bool isTable = name.ends_with(".csv");
  const bool isNamed = isTable || name.ends_with(".txt");
  auto file = OutputFile::create(path);
  if (!file) return file.failure();
  const Delimiter usual = isTable ? Delimiter::Comma : Delimiter::Blanks;
  const RowStyle style{options.delimiter.value_or(usual), options.isRounded};
  return TextWriter(std::move(*file), style, options.hasHeader.value_or(isNamed), isGzip);
}

std::string TextWriter::header(std::span<const TextColumn> columns) const {
  return hasHeader_ ? headerLine(columns, style_) : std::string();
}

Outcome<std::string> TextWriter::pack(std::string text) const {
  if (!isGzip_ || text.empty()) return text;
  return gzipMember(text);
}

Outcome<void> TextWriter::append(std::string_view packed) {
  return file_.append(std::as_bytes(std::span(packed)));
}

Outcome<void> TextWriter::publish(bool durable) {
  if (isGzip_ && file_.sizeBytes() == 0) {
    // An empty file is no gzip file; an empty member is one of no text.
    const auto nothing = gzipMember("");
    if (!nothing) return nothing.failure();
    if (auto appended = append(*nothing); !appended) return appended;
  }
  return file_.publish(durable);
}

}  // namespace Formats
