// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/SourceFiles.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "formats/las/ByteStream.hpp"

namespace Formats {

using MemCore::Attributes;
using MemCore::Chunk;
using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;

namespace {

constexpr const char* kNamesAttribute = "LasFileNames";
constexpr const char* kFilesAttribute = "LasFiles";
constexpr const char* kHeadersAttribute = "LasHeaders";
constexpr const char* kRecordsAttribute = "LasRecords";

constexpr std::string_view kCopcUserId = "copc";
constexpr std::size_t kUserIdBytes = 16;
constexpr std::size_t kDescriptionBytes = 32;
constexpr std::uint8_t kNewestWrittenMinor = 4;
/// Where a header block tells its own length.
constexpr std::size_t kHeaderSizeAt = 94;

using Bytes = std::vector<std::byte>;

/// Byte runs one behind the other, equal ones once.
class DistinctRuns {
 public:
  /// The number of an equal run, old or new.
  std::uint32_t add(Bytes run) {
    const auto [place, isNew] =
        numbers_.try_emplace(std::move(run), static_cast<std::uint32_t>(numbers_.size()));
    if (isNew) all_.insert(all_.end(), place->first.begin(), place->first.end());
    return place->second;
  }
  MemCore::StrongPtr<Chunk<std::uint8_t>> chunk() const {
    auto chunk = Chunk<std::uint8_t>::uninitialised(all_.size());
    std::transform(all_.begin(), all_.end(), chunk->begin(),
                   [](std::byte value) { return std::to_integer<std::uint8_t>(value); });
    return chunk;
  }

 private:
  std::map<Bytes, std::uint32_t> numbers_;
  Bytes all_;
};

/// The header block without what depends on the points and their place in the file.
Bytes keptHeader(const LasHeader& header) {
  LasHeader kept = header;
  kept.versionMinor = std::min(kept.versionMinor, kNewestWrittenMinor);
  kept.pointDataOffset = 0;
  kept.variableRecordCount = 0;
  kept.minimum = {};
  kept.maximum = {};
  kept.pointCount = 0;
  kept.pointsByReturn = {};
  kept.legacyPointCount = 0;
  kept.legacyPointsByReturn = {};
  kept.waveformDataOffset = 0;
  kept.firstEvlrOffset = 0;
  kept.evlrCount = 0;
  return serialiseLasHeader(kept);
}

bool describesStorage(const VariableRecord& record) {
  return hasId(record, kLaszipUserId, kLaszipRecordId) ||
         hasId(record, kLasSpecUserId, kWaveformPacketsRecordId) ||
         textBeforeNul(record.userId) == kCopcUserId;
}

Bytes serialiseRecord(const VariableRecord& record) {
  ByteWriter writer;
  writer.put(record.reserved);
  writer.putText(record.userId, kUserIdBytes);
  writer.put(record.recordId);
  writer.put(std::uint64_t{record.payload.size()});
  writer.putText(record.description, kDescriptionBytes);
  writer.putBytes(record.payload);
  return writer.finish();
}

/// The record at the front of `reader`; absent when it is cut off.
std::optional<VariableRecord> takeRecord(ByteReader& reader) {
  VariableRecord record;
  record.reserved = reader.take<std::uint16_t>();
  record.userId = reader.takeText(kUserIdBytes);
  record.recordId = reader.take<std::uint16_t>();
  record.payloadBytes = reader.take<std::uint64_t>();
  record.description = reader.takeText(kDescriptionBytes);
  const auto payload = reader.takeBytes(static_cast<std::size_t>(record.payloadBytes));
  if (reader.isShort()) return std::nullopt;
  record.payload.assign(payload.begin(), payload.end());
  return record;
}

/// The file's own name on one line of printable text.
std::string shownName(const std::string& path) {
  std::string name = std::filesystem::path(path).filename().string();
  std::replace_if(
      name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '_');
  return name;
}

/// Collects the table of the files and what its numbers stand for.
class SourceKeeper {
 public:
  void add(const LasFile& file) {
    names_ += (table_->empty() ? "" : "\n") + shownName(file.path());
    table_->push_back(headers_.add(keptHeader(file.header())));
    addRecords(file, file.vlrs());
    addRecords(file, file.evlrs());
  }

  std::vector<std::string> store(Attributes& attributes) {
    MemCore::setTextAttribute(attributes, kNamesAttribute, names_);
    attributes.setAttribute(kFilesAttribute, table_);
    attributes.setAttribute(kHeadersAttribute, headers_.chunk());
    attributes.setAttribute(kRecordsAttribute, records_.chunk());
    return std::move(notes_);
  }

 private:
  void addRecords(const LasFile& file, const std::vector<VariableRecord>& records) {
    std::vector<std::uint32_t> numbers;
    for (const VariableRecord& record : records) {
      if (describesStorage(record)) continue;
      if (record.isLoaded && record.payload.size() <= kMaxKeptRecordBytes) {
        numbers.push_back(records_.add(serialiseRecord(record)));
        continue;
      }
      notes_.push_back(fmt::format(
          "{}: record {} {} is not kept, found {} bytes, expected at most {}", file.path(),
          textBeforeNul(record.userId), record.recordId, record.payloadBytes, kMaxKeptRecordBytes));
    }
    table_->push_back(static_cast<std::uint32_t>(numbers.size()));
    table_->append(numbers);
  }

  std::string names_;
  MemCore::StrongPtr<Chunk<std::uint32_t>> table_ = makeStrong<Chunk<std::uint32_t>>();
  DistinctRuns headers_;
  DistinctRuns records_;
  std::vector<std::string> notes_;
};

Failure damaged(const char* attribute, const std::string& what) {
  return Failure{fmt::format("attribute {}: {}", attribute, what)};
}

Bytes bytesOf(const Attributes& attributes, const char* name) {
  const auto chunk = MemCore::chunkCast<std::uint8_t>(attributes.getAttribute(name));
  if (!chunk) return {};
  return {chunk->bytes(), chunk->bytes() + chunk->size()};
}

Outcome<std::vector<LasHeader>> readHeaders(const Attributes& attributes) {
  const Bytes bytes = bytesOf(attributes, kHeadersAttribute);
  std::vector<LasHeader> headers;
  for (std::span<const std::byte> rest = bytes; !rest.empty();) {
    const std::uint16_t length =
        rest.size() < kLas10HeaderBytes ? 0 : loadValue<std::uint16_t>(&rest[kHeaderSizeAt]);
    if (length < kLas10HeaderBytes || length > rest.size()) {
      return damaged(kHeadersAttribute, fmt::format("header {} cut off", headers.size()));
    }
    auto header = parseLasHeader(rest.first(length), fmt::format("header {}", headers.size()));
    if (!header) return damaged(kHeadersAttribute, header.error());
    headers.push_back(std::move(*header));
    rest = rest.subspan(length);
  }
  return headers;
}

Outcome<std::vector<VariableRecord>> readRecords(const Attributes& attributes) {
  const Bytes bytes = bytesOf(attributes, kRecordsAttribute);
  ByteReader reader(bytes);
  std::vector<VariableRecord> records;
  while (reader.position() < bytes.size()) {
    auto record = takeRecord(reader);
    if (!record)
      return damaged(kRecordsAttribute, fmt::format("record {} cut off", records.size()));
    records.push_back(std::move(*record));
  }
  return records;
}

/// Walks the table of the files.
class SourceReader {
 public:
  SourceReader(std::span<const std::uint32_t> table, std::vector<LasHeader> headers,
               std::vector<VariableRecord> records)
      : table_(table), headers_(std::move(headers)), records_(std::move(records)) {}

  /// Requires: the table is not used up.
  bool take(SourceFile& file) {
    const std::uint32_t header = table_.front();
    table_ = table_.subspan(1);
    if (header >= headers_.size()) return false;
    file.header = headers_[header];
    return takeRecords(file.vlrs) && takeRecords(file.evlrs);
  }
  bool isDone() const { return table_.empty(); }

 private:
  bool takeRecords(std::vector<VariableRecord>& into) {
    if (table_.empty() || table_.front() > table_.size() - 1) return false;
    const auto numbers = table_.subspan(1, table_.front());
    table_ = table_.subspan(1 + numbers.size());
    for (const std::uint32_t number : numbers) {
      if (number >= records_.size()) return false;
      into.push_back(records_[number]);
    }
    return true;
  }

  std::span<const std::uint32_t> table_;
  std::vector<LasHeader> headers_;
  std::vector<VariableRecord> records_;
};

std::string takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string line(text.substr(0, end));
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

}  // namespace

std::vector<std::string> keepSourceFiles(Attributes& attributes,
                                         std::span<const std::shared_ptr<LasFile>> files) {
  SourceKeeper keeper;
  for (const auto& file : files) keeper.add(*file);
  return keeper.store(attributes);
}

Outcome<std::vector<SourceFile>> sourceFilesOf(const Attributes& attributes) {
  const auto table = MemCore::chunkCast<std::uint32_t>(attributes.getAttribute(kFilesAttribute));
  if (!table) return std::vector<SourceFile>();
  auto headers = readHeaders(attributes);
  if (!headers) return headers.failure();
  auto records = readRecords(attributes);
  if (!records) return records.failure();
  const std::string names = MemCore::textAttribute(attributes, kNamesAttribute);
  std::string_view restOfNames = names;
  SourceReader reader(std::as_const(*table).span(), std::move(*headers), std::move(*records));
  std::vector<SourceFile> files;
  while (!reader.isDone()) {
    SourceFile& file = files.emplace_back();
    file.name = takeLine(restOfNames);
    if (!reader.take(file)) {
      return damaged(kFilesAttribute,
                     fmt::format("file {} does not fit its headers and records", files.size() - 1));
    }
  }
  return files;
}

}  // namespace Formats
