// SPDX-License-Identifier: Apache-2.0

#include "formats/las/LasFile.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "formats/las/ByteStream.hpp"
#include "formats/las/ExceptionEdge.hpp"
#include "formats/las/PointReader.hpp"
#include "formats/laz/LazPoints.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Enough for every header: its length is a 16-bit number.
constexpr std::uint64_t kMaxHeaderBytes = 65535;

/// Variable records beyond this total are refused (VLRs) or stay on the disk (EVLRs).
constexpr std::uint64_t kMaxRecordBytes = std::uint64_t{256} << 20;

/// More records than this are damage.
constexpr std::uint32_t kMaxRecordCount = 1U << 20;

constexpr std::size_t kUserIdBytes = 16;
constexpr std::size_t kDescriptionBytes = 32;

/// Everything of a record but its payload; `Length` is the type of its length on disk.
template <class Length>
VariableRecord takeRecordHeader(ByteReader& reader) {
  VariableRecord record;
  record.reserved = reader.take<std::uint16_t>();
  record.userId = reader.takeText(kUserIdBytes);
  record.recordId = reader.take<std::uint16_t>();
  record.payloadBytes = reader.take<Length>();
  record.description = reader.takeText(kDescriptionBytes);
  return record;
}

Failure tooMany(const InputFile& file, std::uint32_t count) {
  return Failure{fmt::format("{}: too many variable length records, found {}, expected at most {}",
                             file.path(), count, kMaxRecordCount)};
}

Outcome<std::vector<VariableRecord>> readVlrs(const InputFile& file, const LasHeader& header) {
  if (header.variableRecordCount > kMaxRecordCount)
    return tooMany(file, header.variableRecordCount);
  const std::uint64_t regionBytes = header.pointDataOffset - header.headerBytes;
  if (regionBytes > kMaxRecordBytes) {
    return Failure{
        fmt::format("{}: variable length records too long, found {} bytes, expected at "
                    "most {}",
                    file.path(), regionBytes, kMaxRecordBytes)};
  }
  const Outcome<std::vector<std::byte>> region = file.read(header.headerBytes, regionBytes);
  if (!region) return region.failure();
  std::vector<VariableRecord> records;
  ByteReader reader(*region);
  for (std::uint32_t index = 0; index < header.variableRecordCount; ++index) {
    VariableRecord record = takeRecordHeader<std::uint16_t>(reader);
    record.payloadOffset = header.headerBytes + reader.position();
    const std::span<const std::byte> payload = reader.takeBytes(record.payloadBytes);
    if (reader.isShort()) {
      return Failure{
          fmt::format("{}: variable length record {} reaches into the points, found {} "
                      "bytes in front of them, expected {} records",
                      file.path(), index, regionBytes, header.variableRecordCount)};
    }
    record.payload.assign(payload.begin(), payload.end());
    records.push_back(std::move(record));
  }
  return records;
}

/// Reads the header of the extended record at `offset`.
Outcome<VariableRecord> readEvlrHeader(const InputFile& file, std::uint64_t offset) {
  const Outcome<std::vector<std::byte>> bytes = file.read(offset, kEvlrHeaderBytes);
  if (!bytes) return bytes.failure();
  ByteReader reader(*bytes);
  VariableRecord record = takeRecordHeader<std::uint64_t>(reader);
  record.payloadOffset = offset + kEvlrHeaderBytes;
  record.isLoaded = false;
  return record;
}

bool isWaveformData(const VariableRecord& record) {
  return hasId(record, kLasSpecUserId, kWaveformPacketsRecordId);
}

/// Collects the extended records one after the other.
class EvlrCollector {
 public:
  EvlrCollector(const InputFile& file, const LasHeader& header, std::vector<std::string>& notes)
      : file_(file), packetsOffset_(header.waveformDataOffset), notes_(notes) {}

  /// Adds the record at `offset` and returns where the next one begins.
  Outcome<std::uint64_t> add(std::uint64_t offset) {
    Outcome<VariableRecord> record = readEvlrHeader(file_, offset);
    if (!record) return record.failure();
    // Some writers give the packets other ids; their place in the header counts.
    const bool isAtPackets = offset != 0 && offset == packetsOffset_;
    if (isAtPackets || isWaveformData(*record)) return addPackets(std::move(*record));
    return addLoaded(std::move(*record));
  }

  std::vector<VariableRecord> take() { return std::move(records_); }

 private:
  std::uint64_t bytesBehind(const VariableRecord& record) const {
    return file_.sizeBytes() - record.payloadOffset;
  }

  std::string cutOff(const VariableRecord& record) const {
    return fmt::format("{}: extended record {} {} cut off, found {} bytes, expected {}",
                       file_.path(), textBeforeNul(record.userId), record.recordId,
                       bytesBehind(record), record.payloadBytes);
  }

  /// Packets stay on the disk. Where they are cut off, they are absent for their readers.
  std::uint64_t addPackets(VariableRecord record) {
    if (record.payloadBytes > bytesBehind(record)) {
      notes_.push_back(cutOff(record));
      record.payloadBytes = bytesBehind(record);
    }
    records_.push_back(std::move(record));
    return records_.back().payloadOffset + records_.back().payloadBytes;
  }

  Outcome<std::uint64_t> addLoaded(VariableRecord record) {
    if (record.payloadBytes > bytesBehind(record)) return Failure{cutOff(record)};
    if (record.payloadBytes <= kMaxRecordBytes - loadedBytes_) {
      Outcome<std::vector<std::byte>> payload =
          file_.read(record.payloadOffset, record.payloadBytes);
      if (!payload) return payload.failure();
      loadedBytes_ += record.payloadBytes;
      record.payload = std::move(*payload);
      record.isLoaded = true;
    }
    records_.push_back(std::move(record));
    return records_.back().payloadOffset + records_.back().payloadBytes;
  }

  const InputFile& file_;
  std::uint64_t packetsOffset_;
  std::vector<std::string>& notes_;
  std::vector<VariableRecord> records_;
  std::uint64_t loadedBytes_ = 0;
};

Outcome<std::vector<VariableRecord>> readEvlrs(const InputFile& file, const LasHeader& header,
                                               std::vector<std::string>& notes) {
  if (header.evlrCount > kMaxRecordCount) return tooMany(file, header.evlrCount);
  EvlrCollector collector(file, header, notes);
  std::uint64_t next = header.firstEvlrOffset;
  for (std::uint32_t index = 0; index < header.evlrCount; ++index) {
    const Outcome<std::uint64_t> end = collector.add(next);
    if (!end) return end.failure();
    next = *end;
  }
  // Version 1.3 has one extended record, which the header names by its place alone. Without it the
  // points are still good.
  const bool hasPacketRecord = header.versionMinor == 3 && header.waveformDataOffset > 0 &&
                               (header.globalEncoding & kWaveformsInside) != 0;
  if (hasPacketRecord) {
    const Outcome<std::uint64_t> end = collector.add(header.waveformDataOffset);
    if (!end) notes.push_back(end.error());
  }
  return collector.take();
}

}  // namespace

LasFile::~LasFile() = default;

Outcome<std::shared_ptr<LasFile>> LasFile::open(const std::string& path) {
  return withoutExceptions(path, [&]() -> Outcome<std::shared_ptr<LasFile>> {
    Outcome<std::shared_ptr<const InputFile>> file = InputFile::open(path);
    if (!file) return file.failure();
    std::shared_ptr<LasFile> opened(new LasFile);
    opened->file_ = std::move(*file);
    if (const Outcome<void> done = opened->readFront(); !done) return done.failure();
    if (const Outcome<void> done = opened->readRecordsAround(); !done) return done.failure();
    if (const Outcome<void> done = opened->openPoints(); !done) return done.failure();
    return opened;
  });
}

Outcome<void> LasFile::readFront() {
  const Outcome<std::vector<std::byte>> front =
      file_->read(0, std::min(file_->sizeBytes(), kMaxHeaderBytes));
  if (!front) return front.failure();
  Outcome<LasHeader> header = parseLasHeader(*front, path());
  if (!header) return header.failure();
  header_ = std::move(*header);
  if (header_.pointDataOffset < header_.headerBytes ||
      header_.pointDataOffset > file_->sizeBytes()) {
    return Failure{
        fmt::format("{}: start of the points cannot be right, found byte {}, expected {} "
                    "to {}",
                    path(), header_.pointDataOffset, header_.headerBytes, file_->sizeBytes())};
  }
  if (header_.legacyPointCount != 0 && header_.legacyPointCount != header_.pointCount) {
    notes_.push_back(
        fmt::format("{}: point counts differ, found {} (32 bit) and {} (64 bit), the "
                    "latter is used",
                    path(), header_.legacyPointCount, header_.pointCount));
  }
  return {};
}

Outcome<void> LasFile::readRecordsAround() {
  Outcome<std::vector<VariableRecord>> vlrs = readVlrs(*file_, header_);
  if (!vlrs) return vlrs.failure();
  vlrs_ = std::move(*vlrs);
  Outcome<std::vector<VariableRecord>> evlrs = readEvlrs(*file_, header_, notes_);
  if (!evlrs) return evlrs.failure();
  evlrs_ = std::move(*evlrs);
  return {};
}

Outcome<void> LasFile::openPoints() {
  // Version 1.4 allows the description of the extra bytes behind the points, too.
  const bool isInFront = findRecord(vlrs_, kLasSpecUserId, kExtraBytesRecordId) != nullptr;
  Outcome<PointLayout> layout =
      PointLayout::make(header_.pointFormat, header_.recordBytes, isInFront ? vlrs_ : evlrs_);
  if (!layout) return Failure{fmt::format("{}: {}", path(), layout.error())};
  layout_ = std::move(*layout);
  for (const std::string& note : layout_->notes()) {
    notes_.push_back(fmt::format("{}: {}", path(), note));
  }
  const VariableRecord* laszip = findRecord(vlrs_, kLaszipUserId, kLaszipRecordId);
  if (header_.isCompressed && laszip == nullptr) {
    return Failure{fmt::format("{}: compressed points without a LASzip record", path())};
  }
  Outcome<std::unique_ptr<PointReader>> points =
      header_.isCompressed ? openLazPoints(file_, header_, laszip->payload)
                           : openPlainPoints(file_, header_);
  if (!points) return points.failure();
  points_ = std::move(*points);
  return {};
}

PointStorage LasFile::storage() const { return points_->storage(); }

const std::vector<PointRun>& LasFile::runs() const { return points_->runs(); }

std::uint64_t LasFile::decodedChunks() const { return points_->decodedChunks(); }

Outcome<void> LasFile::readRecords(std::uint64_t first, std::uint64_t count,
                                   std::span<std::byte> out) const {
  if (first > pointCount() || count > pointCount() - first) {
    return Failure{fmt::format("{}: points {} to {} asked for, found {} points", path(), first,
                               first + count, pointCount())};
  }
  if (out.size() / recordBytes() != count || out.size() % recordBytes() != 0) {
    return Failure{fmt::format("{}: room for points of other size, found {} bytes, expected {}",
                               path(), out.size(), count * recordBytes())};
  }
  if (count == 0) return {};
  return withoutExceptions(path(), [&] { return points_->read(first, out); });
}

}  // namespace Formats
