// SPDX-License-Identifier: Apache-2.0

#include "formats/las/LasWriter.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "formats/las/ByteStream.hpp"
#include "formats/las/ExceptionEdge.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

LasWriter::~LasWriter() = default;

template <class Step>
auto LasWriter::attempt(Step step) -> decltype(step()) {
  auto outcome = withoutExceptions(file_.path(), std::move(step));
  if (!outcome) canFinish_ = false;
  return outcome;
}

Outcome<std::unique_ptr<LasWriter>> LasWriter::create(const std::string& path,
                                                      LasWriterOptions options) {
  return withoutExceptions(path, [&] { return prepare(path, std::move(options)); });
}

Outcome<std::unique_ptr<LasWriter>> LasWriter::prepare(const std::string& path,
                                                       LasWriterOptions options) {
  LasHeader& header = options.header;
  std::erase_if(options.vlrs, [](const VariableRecord& record) {
    return hasId(record, kLaszipUserId, kLaszipRecordId);
  });
  if (header.recordBytes == 0) header.recordBytes = standardRecordBytes(header.pointFormat);
  Outcome<PointLayout> layout =
      PointLayout::make(header.pointFormat, header.recordBytes, options.vlrs);
  if (!layout) return Failure{fmt::format("{}: {}", path, layout.error())};
  if (const auto fits = checkWriterOptions(path, options); !fits) return fits.failure();
  std::optional<LazChunkWriter> chunks;
  if (header.isCompressed) {
    Outcome<LazChunkWriter> made = LazChunkWriter::make(header.pointFormat, header.recordBytes);
    if (!made) return Failure{fmt::format("{}: {}", path, made.error())};
    chunks = std::move(*made);
    options.vlrs.push_back(chunks->record());
  }
  Outcome<OutputFile> file = OutputFile::create(path);
  if (!file) return file.failure();
  std::unique_ptr<LasWriter> writer(
      new LasWriter(std::move(*layout), std::move(options), std::move(*file), std::move(chunks)));
  if (const auto begun = writer->writeFront(); !begun) return begun.failure();
  return writer;
}

Outcome<void> LasWriter::writeFront() {
  LasHeader& header = options_.header;
  ByteWriter records;
  for (const VariableRecord& record : options_.vlrs) {
    records.putBytes(serialiseRecordHeader(record));
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
  if (chunks_) {
    if (auto begun = chunks_->begin(file_); !begun) return begun;
  }
  if (options_.waveforms == WaveformPlace::Nowhere) return {};
  Outcome<WaveformPacketWriter> packets = WaveformPacketWriter::create(file_.path());
  if (!packets) return packets.failure();
  packets_ = std::move(*packets);
  return {};
}

Outcome<void> LasWriter::checkRecords(std::span<const std::byte> records) const {
  if (records.size() % layout_.recordBytes() == 0) return {};
  return Failure{fmt::format("{}: points cut off, found {} bytes, expected a multiple of {}",
                             file_.path(), records.size(), layout_.recordBytes())};
}

Outcome<void> LasWriter::writeRecords(std::span<const std::byte> records) {
  if (auto whole = checkRecords(records); !whole) return whole;
  return attempt([&] { return chunks_ ? gather(records) : encodeAndWrite(records); });
}

Outcome<void> LasWriter::gather(std::span<const std::byte> records) {
  const std::size_t chunkBytes = chunkPoints() * layout_.recordBytes();
  while (!records.empty()) {
    const std::size_t part = std::min(records.size(), chunkBytes - pending_.size());
    if (pending_.empty() && part == chunkBytes) {
      if (auto written = encodeAndWrite(records.first(part)); !written) return written;
    } else {
      pending_.insert(pending_.end(), records.begin(),
                      records.begin() + static_cast<std::ptrdiff_t>(part));
    }
    records = records.subspan(part);
    if (pending_.size() < chunkBytes) continue;
    if (auto written = encodeAndWrite(pending_); !written) return written;
    pending_.clear();
  }
  return {};
}

Outcome<void> LasWriter::encodeAndWrite(std::span<const std::byte> records) {
  const Outcome<EncodedChunk> encoded = encodeChunk(records);
  if (!encoded) return encoded.failure();
  return append(records, *encoded);
}

Outcome<EncodedChunk> LasWriter::encodeChunk(std::span<const std::byte> records) const {
  if (const auto whole = checkRecords(records); !whole) return whole.failure();
  return withoutExceptions(file_.path(), [&]() -> Outcome<EncodedChunk> {
    EncodedChunk encoded;
    encoded.totals = totalsOf(records, layout_.pointFormat(), layout_.recordBytes());
    if (!chunks_ || records.empty()) return encoded;
    Outcome<std::vector<std::byte>> bytes = chunks_->compress(records);
    if (!bytes) return Failure{fmt::format("{}: {}", file_.path(), bytes.error())};
    encoded.bytes = std::move(*bytes);
    return encoded;
  });
}

Outcome<void> LasWriter::writeChunk(std::span<const std::byte> records,
                                    const EncodedChunk& encoded) {
  return attempt([&]() -> Outcome<void> {
    if (!pending_.empty()) {
      return Failure{fmt::format("{}: chunk behind single records, found {} of them, expected none",
                                 file_.path(), pending_.size() / layout_.recordBytes())};
    }
    return append(records, encoded);
  });
}

Outcome<void> LasWriter::append(std::span<const std::byte> records, const EncodedChunk& encoded) {
  const PointTotals& totals = encoded.totals;
  if (totals.pointCount == 0) return {};
  const std::uint64_t pointsAfter = totals_.pointCount + totals.pointCount;
  if (pointsAfter > mostPointsOf(options_.header)) {
    return cannotHold(file_.path(), options_.header, fmt::format("{} points", pointsAfter));
  }
  totals_.merge(totals);
  if (chunks_) return chunks_->append(file_, encoded.bytes, totals.pointCount);
  if (records.size() == totals.pointCount * layout_.recordBytes()) return file_.append(records);
  return Failure{fmt::format("{}: other records than those encoded, found {} bytes, expected {}",
                             file_.path(), records.size(),
                             totals.pointCount * layout_.recordBytes())};
}

Outcome<std::uint64_t> LasWriter::writeWaveformPacket(std::span<const std::byte> packet) {
  if (!packets_) {
    return Failure{fmt::format("{}: waveforms have no place, found a packet of {} bytes",
                               file_.path(), packet.size())};
  }
  return attempt([&] { return packets_->append(packet); });
}

Outcome<std::uint64_t> LasWriter::reserveWaveformPackets(std::uint64_t byteCount) {
  if (!packets_) {
    return Failure{fmt::format("{}: waveforms have no place, found packets of {} bytes",
                               file_.path(), byteCount)};
  }
  return attempt([&] { return packets_->reserve(byteCount); });
}

Outcome<void> LasWriter::writeWaveformPacketAt(std::uint64_t byteOffset,
                                               std::span<const std::byte> packet) {
  if (!packets_) {
    return Failure{fmt::format("{}: waveforms have no place, found a packet of {} bytes",
                               file_.path(), packet.size())};
  }
  return attempt([&] { return packets_->writeAt(byteOffset, packet); });
}

Outcome<void> LasWriter::finish() {
  if (!canFinish_.exchange(false)) {
    return Failure{fmt::format("{}: cannot be finished after a failure or twice", file_.path())};
  }
  return withoutExceptions(file_.path(), [this] { return complete(); });
}

Outcome<void> LasWriter::complete() {
  if (auto written = encodeAndWrite(std::exchange(pending_, {})); !written) return written;
  if (chunks_) {
    if (auto written = chunks_->finish(file_); !written) return written;
  }
  if (auto written = writeBehind(); !written) return written;
  completeHeader();
  if (auto done = file_.overwrite(0, serialiseLasHeader(options_.header)); !done) return done;
  if (options_.waveforms == WaveformPlace::Beside) {
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
    if (auto written = packets_->copyInto(file_); !written) return written;
    packets_.reset();
  }
  for (const VariableRecord& record : options_.evlrs) {
    if (auto done = file_.append(serialiseExtendedHeader(record, record.payload.size())); !done) {
      return done;
    }
    if (auto written = file_.append(record.payload); !written) return written;
  }
  if (header.evlrCount > 0) header.firstEvlrOffset = start;
  return {};
}

void LasWriter::completeHeader() {
  LasHeader& header = options_.header;
  putTotals(totals_, header);
  header.globalEncoding &= static_cast<std::uint16_t>(~(kWaveformsInside | kWaveformsOutside));
  if (options_.waveforms == WaveformPlace::Inside) header.globalEncoding |= kWaveformsInside;
  if (options_.waveforms == WaveformPlace::Beside) header.globalEncoding |= kWaveformsOutside;
}

}  // namespace Formats
