// SPDX-License-Identifier: Apache-2.0

#include "formats/las/LasWriter.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "formats/las/ByteStream.hpp"
#include "formats/las/ExceptionEdge.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::uint8_t kNewestMinor = 4;
constexpr std::uint64_t kMaxLegacyPoints = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kMaxVlrPayload = std::numeric_limits<std::uint16_t>::max();

/// Where the return number stands in every point format, and how wide it is.
constexpr std::size_t kReturnByte = 14;
constexpr unsigned kOldReturnMask = 0x07;
constexpr unsigned kNewReturnMask = 0x0F;

constexpr std::size_t kUserIdBytes = 16;
constexpr std::size_t kDescriptionBytes = 32;

/// The oldest version 1.x that has the point format.
std::uint8_t oldestMinorOf(std::uint8_t pointFormat) {
  if (pointFormat >= 6) return 4;
  if (pointFormat >= 4) return 3;
  return pointFormat >= 2 ? 2 : 0;
}

Failure refuse(const std::string& path, const LasHeader& header, const std::string& what) {
  return Failure{fmt::format("{}: LAS {}.{} cannot hold {}", path, header.versionMajor,
                             header.versionMinor, what)};
}

Outcome<void> checkVersion(const std::string& path, const LasWriterOptions& options) {
  const LasHeader& header = options.header;
  if (header.versionMajor != 1 || header.versionMinor > kNewestMinor) {
    return Failure{fmt::format("{}: LAS version not known, found {}.{}, expected 1.0 to 1.{}", path,
                               header.versionMajor, header.versionMinor, kNewestMinor)};
  }
  if (header.versionMinor < oldestMinorOf(header.pointFormat)) {
    return refuse(path, header, fmt::format("point format {}", header.pointFormat));
  }
  if (!options.evlrs.empty() && header.versionMinor < 4) {
    return refuse(path, header, "extended variable length records");
  }
  if (options.waveforms != WaveformPlace::Nowhere && !formatHasWaveforms(header.pointFormat)) {
    return Failure{
        fmt::format("{}: waveforms need another point format, found {}, expected 4, 5, 9 "
                    "or 10",
                    path, header.pointFormat)};
  }
  return {};
}

Outcome<void> checkRecords(const std::string& path, const LasWriterOptions& options) {
  std::uint64_t frontBytes = kLas14HeaderBytes + options.header.trailingBytes.size();
  for (const VariableRecord& record : options.vlrs) {
    frontBytes += kVlrHeaderBytes + record.payload.size();
    if (record.payload.size() > kMaxVlrPayload) {
      return Failure{
          fmt::format("{}: variable length record {} {} too long, found {} bytes, expected "
                      "at most {}",
                      path, textBeforeNul(record.userId), record.recordId, record.payload.size(),
                      kMaxVlrPayload)};
    }
  }
  if (frontBytes > std::numeric_limits<std::uint32_t>::max()) {
    return Failure{
        fmt::format("{}: variable length records too long, found {} bytes, expected less "
                    "than 4 GiB",
                    path, frontBytes)};
  }
  for (const VariableRecord& record : options.evlrs) {
    if (!record.isLoaded) {
      return Failure{fmt::format("{}: extended record {} {} not in memory", path,
                                 textBeforeNul(record.userId), record.recordId)};
    }
  }
  return {};
}

void putRecordHeader(ByteWriter& writer, const VariableRecord& record, std::uint64_t payloadBytes,
                     bool isExtended) {
  writer.put(record.reserved);
  writer.putText(record.userId, kUserIdBytes);
  writer.put(record.recordId);
  if (isExtended) {
    writer.put(payloadBytes);
  } else {
    writer.put(static_cast<std::uint16_t>(payloadBytes));
  }
  writer.putText(record.description, kDescriptionBytes);
}

/// The header of the record that holds the waveform packets.
std::vector<std::byte> packetRecordHeader(std::uint64_t packetBytes) {
  VariableRecord record;
  record.userId = kLasSpecUserId;
  record.recordId = kWaveformPacketsRecordId;
  record.description = "Waveform data packets";
  ByteWriter writer;
  putRecordHeader(writer, record, packetBytes, true);
  return writer.finish();
}

/// NAME.las -> NAME.wdp
std::string packetPathOf(const std::string& path) {
  const std::size_t nameAt = path.find_last_of('/') + 1;
  const std::size_t dot = path.find_last_of('.');
  const bool hasExtension = dot != std::string::npos && dot > nameAt;
  return path.substr(0, hasExtension ? dot : path.size()) + ".wdp";
}

}  // namespace

LasWriter::~LasWriter() = default;

Outcome<std::unique_ptr<LasWriter>> LasWriter::create(const std::string& path,
                                                      LasWriterOptions options) {
  return withoutExceptions(path, [&] { return prepare(path, std::move(options)); });
}

Outcome<std::unique_ptr<LasWriter>> LasWriter::prepare(const std::string& path,
                                                       LasWriterOptions options) {
  LasHeader& header = options.header;
  header.isCompressed = false;
  std::erase_if(options.vlrs, [](const VariableRecord& record) {
    return hasId(record, kLaszipUserId, kLaszipRecordId);
  });
  if (header.recordBytes == 0) header.recordBytes = standardRecordBytes(header.pointFormat);
  Outcome<PointLayout> layout =
      PointLayout::make(header.pointFormat, header.recordBytes, options.vlrs);
  if (!layout) return Failure{fmt::format("{}: {}", path, layout.error())};
  if (const auto fits = checkVersion(path, options); !fits) return fits.failure();
  if (const auto fits = checkRecords(path, options); !fits) return fits.failure();
  Outcome<OutputFile> file = OutputFile::create(path);
  if (!file) return file.failure();
  std::unique_ptr<LasWriter> writer(
      new LasWriter(std::move(*layout), std::move(options), std::move(*file)));
  if (const auto begun = writer->writeFront(); !begun) return begun.failure();
  return writer;
}

Outcome<void> LasWriter::writeFront() {
  LasHeader& header = options_.header;
  ByteWriter records;
  for (const VariableRecord& record : options_.vlrs) {
    putRecordHeader(records, record, record.payload.size(), false);
    records.putBytes(record.payload);
  }
  // Version 1.0 alone marks the start of the points.
  if (header.versionMinor == 0) records.put(std::uint16_t{0xCCDD});
  const std::size_t headerBytes =
      standardHeaderBytes(header.versionMinor) + header.trailingBytes.size();
  header.variableRecordCount = static_cast<std::uint32_t>(options_.vlrs.size());
  header.pointDataOffset = static_cast<std::uint32_t>(headerBytes + records.size());
  if (auto written = file_.append(serialiseLasHeader(header)); !written) return written;
  if (auto written = file_.append(records.finish()); !written) return written;
  if (options_.waveforms == WaveformPlace::Nowhere) return {};
  Outcome<OutputFile> packets = OutputFile::create(packetPathOf(file_.path()));
  if (!packets) return packets.failure();
  packets_ = std::move(*packets);
  return packets_->append(packetRecordHeader(0));
}

Outcome<void> LasWriter::writeRecords(std::span<const std::byte> records) {
  const std::size_t recordBytes = layout_.recordBytes();
  if (records.size() % recordBytes != 0) {
    return Failure{fmt::format("{}: points cut off, found {} bytes, expected a multiple of {}",
                               file_.path(), records.size(), recordBytes)};
  }
  const std::uint64_t pointCount = totals_.pointCount + records.size() / recordBytes;
  if (options_.header.versionMinor < 4 && pointCount > kMaxLegacyPoints) {
    canFinish_ = false;
    return refuse(file_.path(), options_.header, fmt::format("{} points", pointCount));
  }
  addToTotals(records);
  Outcome<void> written = withoutExceptions(file_.path(), [&] { return file_.append(records); });
  canFinish_ = canFinish_ && written.ok();
  return written;
}

void LasWriter::addToTotals(std::span<const std::byte> records) {
  const std::size_t recordBytes = layout_.recordBytes();
  const unsigned mask = layout_.pointFormat() >= 6 ? kNewReturnMask : kOldReturnMask;
  for (std::size_t at = 0; at < records.size(); at += recordBytes) {
    const std::byte* record = records.data() + at;
    const auto raw = loadValue<std::array<std::int32_t, 3>>(record);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      totals_.minimum[axis] = std::min(totals_.minimum[axis], raw[axis]);
      totals_.maximum[axis] = std::max(totals_.maximum[axis], raw[axis]);
    }
    // Return number 0 occurs, and has no place in the header.
    const unsigned returnNumber = static_cast<unsigned>(record[kReturnByte]) & mask;
    if (returnNumber > 0) ++totals_.byReturn[returnNumber - 1];
  }
  totals_.pointCount += records.size() / recordBytes;
}

Outcome<std::uint64_t> LasWriter::writeWaveformPacket(std::span<const std::byte> packet) {
  if (!packets_) {
    return Failure{fmt::format("{}: waveforms have no place, found a packet of {} bytes",
                               file_.path(), packet.size())};
  }
  const std::uint64_t offset = packets_->sizeBytes();
  const Outcome<void> written =
      withoutExceptions(file_.path(), [&] { return packets_->append(packet); });
  canFinish_ = canFinish_ && written.ok();
  if (!written) return written.failure();
  return offset;
}

Outcome<void> LasWriter::finish() {
  if (!std::exchange(canFinish_, false)) {
    return Failure{fmt::format("{}: cannot be finished after a failure or twice", file_.path())};
  }
  return withoutExceptions(file_.path(), [this] { return complete(); });
}

Outcome<void> LasWriter::complete() {
  if (auto written = writeBehind(); !written) return written;
  completeHeader();
  if (auto done = file_.overwrite(0, serialiseLasHeader(options_.header)); !done) return done;
  if (options_.waveforms == WaveformPlace::Beside) {
    const auto packetHeader = packetRecordHeader(packets_->sizeBytes() - kEvlrHeaderBytes);
    if (auto done = packets_->overwrite(0, packetHeader); !done) return done;
    if (auto done = packets_->publish(options_.isDurable); !done) return done;
  }
  return file_.publish(options_.isDurable);
}

Outcome<void> LasWriter::writeBehind() {
  LasHeader& header = options_.header;
  header.waveformDataOffset = 0;
  header.firstEvlrOffset = 0;
  header.evlrCount = static_cast<std::uint32_t>(options_.evlrs.size());
  const std::uint64_t start = file_.sizeBytes();
  if (options_.waveforms == WaveformPlace::Inside) {
    header.waveformDataOffset = start;
    ++header.evlrCount;
    if (auto written = writePacketsInside(); !written) return written;
  }
  for (const VariableRecord& record : options_.evlrs) {
    ByteWriter writer;
    putRecordHeader(writer, record, record.payload.size(), true);
    writer.putBytes(record.payload);
    if (auto written = file_.append(writer.finish()); !written) return written;
  }
  if (header.evlrCount > 0) header.firstEvlrOffset = start;
  return {};
}

Outcome<void> LasWriter::writePacketsInside() {
  const auto packetHeader = packetRecordHeader(packets_->sizeBytes() - kEvlrHeaderBytes);
  if (auto done = packets_->overwrite(0, packetHeader); !done) return done;
  if (auto done = file_.appendAll(*packets_); !done) return done;
  packets_.reset();
  return {};
}

void LasWriter::completeHeader() {
  LasHeader& header = options_.header;
  header.pointCount = totals_.pointCount;
  header.pointsByReturn = totals_.byReturn;
  const bool isLegacy = header.pointFormat < 6 && totals_.pointCount <= kMaxLegacyPoints;
  header.legacyPointCount = isLegacy ? static_cast<std::uint32_t>(totals_.pointCount) : 0;
  for (std::size_t index = 0; index < header.legacyPointsByReturn.size(); ++index) {
    header.legacyPointsByReturn[index] =
        isLegacy ? static_cast<std::uint32_t>(totals_.byReturn[index]) : 0;
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double first = totals_.minimum[axis] * header.scale[axis] + header.offset[axis];
    const double last = totals_.maximum[axis] * header.scale[axis] + header.offset[axis];
    header.minimum[axis] = totals_.pointCount == 0 ? 0 : std::min(first, last);
    header.maximum[axis] = totals_.pointCount == 0 ? 0 : std::max(first, last);
  }
  header.globalEncoding &= static_cast<std::uint16_t>(~(kWaveformsInside | kWaveformsOutside));
  if (options_.waveforms == WaveformPlace::Inside) header.globalEncoding |= kWaveformsInside;
  if (options_.waveforms == WaveformPlace::Beside) header.globalEncoding |= kWaveformsOutside;
}

}  // namespace Formats
