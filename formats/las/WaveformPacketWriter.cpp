// SPDX-License-Identifier: Apache-2.0

#include "formats/las/WaveformPacketWriter.hpp"

#include <fmt/format.h>

#include <utility>
#include <vector>

#include "formats/las/VariableRecord.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

std::vector<std::byte> packetRecordHeader(std::uint64_t packetBytes) {
  VariableRecord record;
  record.userId = kLasSpecUserId;
  record.recordId = kWaveformPacketsRecordId;
  record.description = "Waveform data packets";
  return serialiseExtendedHeader(record, packetBytes);
}

/// NAME.las -> NAME.wdp
std::string packetPathOf(const std::string& path) {
  const std::size_t nameAt = path.find_last_of('/') + 1;
  const std::size_t dot = path.find_last_of('.');
  const bool hasExtension = dot != std::string::npos && dot > nameAt;
  return path.substr(0, hasExtension ? dot : path.size()) + ".wdp";
}

}  // namespace

Outcome<WaveformPacketWriter> WaveformPacketWriter::create(const std::string& pointPath) {
  Outcome<OutputFile> file = OutputFile::create(packetPathOf(pointPath));
  if (!file) return file.failure();
  if (const auto begun = file->append(packetRecordHeader(0)); !begun) return begun.failure();
  return WaveformPacketWriter(std::move(*file));
}

Outcome<std::uint64_t> WaveformPacketWriter::append(std::span<const std::byte> packet) {
  const std::uint64_t offset = file_.sizeBytes();
  if (const auto written = file_.append(packet); !written) return written.failure();
  return offset;
}

Outcome<std::uint64_t> WaveformPacketWriter::reserve(std::uint64_t byteCount) {
  Outcome<std::uint64_t> offset = file_.reserve(byteCount);
  if (!offset) return offset;
  reservedBegin_ = *offset;
  reservedEnd_ = *offset + byteCount;
  return offset;
}

Outcome<void> WaveformPacketWriter::writeAt(std::uint64_t byteOffset,
                                            std::span<const std::byte> packet) const {
  const bool fits = byteOffset >= reservedBegin_ && byteOffset <= reservedEnd_ &&
                    packet.size() <= reservedEnd_ - byteOffset;
  if (fits) return file_.writeReserved(byteOffset, packet);
  return Failure{fmt::format(
      "{}: waveform packet has no place, found {} bytes at byte {}, expected bytes {} to {}",
      file_.path(), packet.size(), byteOffset, reservedBegin_, reservedEnd_)};
}

Outcome<void> WaveformPacketWriter::copyInto(OutputFile& file) {
  if (auto done = writeHeader(); !done) return done;
  return file.appendAll(file_);
}

Outcome<void> WaveformPacketWriter::publish(bool durable) {
  if (auto done = writeHeader(); !done) return done;
  return file_.publish(durable);
}

Outcome<void> WaveformPacketWriter::writeHeader() {
  return file_.overwrite(0, packetRecordHeader(file_.sizeBytes() - kEvlrHeaderBytes));
}

}  // namespace Formats
