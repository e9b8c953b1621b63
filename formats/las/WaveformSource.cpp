// SPDX-License-Identifier: Apache-2.0

#include "formats/las/WaveformSource.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <system_error>

#include "formats/las/ByteStream.hpp"
#include "formats/las/ExceptionEdge.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::size_t kDescriptorBytes = 26;
constexpr unsigned kBitsPerByte = 8;

/// Descriptor index 1 stands in record 100.
constexpr unsigned kIndexToRecordId = kFirstWaveformDescriptorId - 1U;

/// Digitizers record some hundred samples per pulse; more than this in one packet is damage.
constexpr std::uint32_t kMaxSamples = 1U << 20;

/// Packets may overlap, but not so much that the samples take many times the room of the file.
constexpr std::uint64_t kMaxOverlap = 16;

/// Neighbouring packets are read together up to this size, even across a gap this small.
constexpr std::uint64_t kReadBytes = std::uint64_t{4} << 20;
constexpr std::uint64_t kGapBytes = 4096;

Outcome<WaveformDescriptor> parseDescriptor(const VariableRecord& record, const std::string& path) {
  if (record.payload.size() < kDescriptorBytes) {
    return Failure{fmt::format("{}: waveform descriptor {} cut off, found {} bytes, expected {}",
                               path, record.recordId - kIndexToRecordId, record.payload.size(),
                               kDescriptorBytes)};
  }
  WaveformDescriptor descriptor;
  ByteReader reader(record.payload);
  descriptor.bitsPerSample = reader.take<std::uint8_t>();
  descriptor.compression = reader.take<std::uint8_t>();
  descriptor.sampleCount = reader.take<std::uint32_t>();
  descriptor.sampleSpacingPicoseconds = reader.take<std::uint32_t>();
  descriptor.digitizerGain = reader.take<double>();
  descriptor.digitizerOffset = reader.take<double>();
  return descriptor;
}

bool isDescriptor(const VariableRecord& record) {
  return record.recordId >= kFirstWaveformDescriptorId &&
         record.recordId <= kLastWaveformDescriptorId && record.isLoaded &&
         textBeforeNul(record.userId) == kLasSpecUserId;
}

/// The names under which the packets of a file may stand beside it.
std::vector<std::string> packetPaths(const std::string& path) {
  std::vector<std::string> paths;
  for (const char* extension : {".wdp", ".WDP", ".Wdp"}) {
    paths.push_back(std::filesystem::path(path).replace_extension(extension).string());
  }
  return paths;
}

/// Widens samples of 1 or 2 bytes.
void convertSamples(std::span<const std::byte> bytes, std::span<std::uint16_t> samples) {
  if (samples.empty()) return;
  if (bytes.size() == samples.size()) {
    std::transform(bytes.begin(), bytes.end(), samples.begin(),
                   [](std::byte value) { return static_cast<std::uint16_t>(value); });
  } else {
    std::memcpy(samples.data(), bytes.data(), bytes.size());
  }
}

bool isBefore(const WaveformPacketRef& left, const WaveformPacketRef& right) {
  if (left.byteOffset != right.byteOffset) return left.byteOffset < right.byteOffset;
  if (left.byteSize != right.byteSize) return left.byteSize < right.byteSize;
  return left.descriptorIndex < right.descriptorIndex;
}

std::uint64_t endOf(const WaveformPacketRef& packet) { return packet.byteOffset + packet.byteSize; }

}  // namespace

std::vector<std::byte> serialiseWaveformDescriptor(const WaveformDescriptor& descriptor) {
  ByteWriter writer;
  writer.put(descriptor.bitsPerSample);
  writer.put(descriptor.compression);
  writer.put(descriptor.sampleCount);
  writer.put(descriptor.sampleSpacingPicoseconds);
  writer.put(descriptor.digitizerGain);
  writer.put(descriptor.digitizerOffset);
  return writer.finish();
}

bool WaveformSource::hasWaveforms(const LasFile& file) {
  return formatHasWaveforms(file.header().pointFormat);
}

Outcome<std::shared_ptr<const WaveformSource>> WaveformSource::open(
    const std::shared_ptr<const LasFile>& file) {
  if (!hasWaveforms(*file)) {
    return Failure{fmt::format("{}: no waveforms, found point format {}, expected 4, 5, 9 or 10",
                               file->path(), file->header().pointFormat)};
  }
  return withoutExceptions(file->path(), [&]() -> Outcome<std::shared_ptr<const WaveformSource>> {
    std::shared_ptr<WaveformSource> source(new WaveformSource);
    if (const Outcome<void> done = source->readDescriptors(*file); !done) return done.failure();
    if (const Outcome<void> done = source->findPackets(*file); !done) return done.failure();
    return std::shared_ptr<const WaveformSource>(std::move(source));
  });
}

Outcome<void> WaveformSource::readDescriptors(const LasFile& file) {
  for (const auto* records : {&file.vlrs(), &file.evlrs()}) {
    for (const VariableRecord& record : *records) {
      if (!isDescriptor(record)) continue;
      const Outcome<WaveformDescriptor> descriptor = parseDescriptor(record, file.path());
      if (!descriptor) return descriptor.failure();
      descriptors_[record.recordId - kIndexToRecordId] = *descriptor;
    }
  }
  return {};
}

Outcome<void> WaveformSource::findPackets(const LasFile& file) {
  const LasHeader& header = file.header();
  isInternal_ = (header.globalEncoding & kWaveformsOutside) == 0 && header.waveformDataOffset > 0;
  if (isInternal_) {
    packets_ = file.file();
    baseOffset_ = std::min(header.waveformDataOffset, packets_->sizeBytes());
    dataBytes_ = packets_->sizeBytes() - baseOffset_;
    return {};
  }
  for (const std::string& path : packetPaths(file.path())) {
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) continue;
    Outcome<std::shared_ptr<const InputFile>> opened = InputFile::open(path);
    if (!opened) return opened.failure();
    packets_ = std::move(*opened);
    dataBytes_ = packets_->sizeBytes();
    return {};
  }
  return Failure{fmt::format("{}: waveform packets missing, expected {} beside it", file.path(),
                             packetPaths(file.path()).front())};
}

const WaveformDescriptor* WaveformSource::descriptor(std::uint8_t index) const {
  return descriptors_[index] ? &*descriptors_[index] : nullptr;
}

bool WaveformSource::isAbsent(const WaveformPacketRef& packet) const {
  return packet.descriptorIndex == 0 || packet.byteOffset > dataBytes_ ||
         packet.byteSize > dataBytes_ - packet.byteOffset;
}

Outcome<std::uint32_t> WaveformSource::samplesIn(const WaveformPacketRef& packet) const {
  const WaveformDescriptor* found = descriptor(packet.descriptorIndex);
  if (found == nullptr) {
    return Failure{
        fmt::format("{}: waveform descriptor {} missing", packetPath(), packet.descriptorIndex)};
  }
  if (found->compression != 0) {
    return Failure{
        fmt::format("{}: waveform descriptor {}: compressed packets cannot be read, found "
                    "type {}, expected 0",
                    packetPath(), packet.descriptorIndex, found->compression)};
  }
  if (found->bitsPerSample != 8 && found->bitsPerSample != 16) {
    return Failure{
        fmt::format("{}: waveform descriptor {}: samples cannot be read, found {} bits, "
                    "expected 8 or 16",
                    packetPath(), packet.descriptorIndex, found->bitsPerSample)};
  }
  // Packets may be padded, and descriptors may stand for longer ones than this.
  const std::uint32_t stored = packet.byteSize / (found->bitsPerSample / kBitsPerByte);
  const std::uint32_t count = std::min(stored, found->sampleCount);
  if (count > kMaxSamples) {
    return Failure{
        fmt::format("{}: waveform packet at byte {} too long, found {} samples, expected "
                    "at most {}",
                    packetPath(), packet.byteOffset, count, kMaxSamples)};
  }
  return count;
}

Outcome<bool> WaveformSource::readPacket(const WaveformPacketRef& packet,
                                         std::vector<std::uint16_t>& samples) const {
  Outcome<WaveformBatch> batch = readPackets({&packet, 1});
  if (!batch) return batch.failure();
  samples = std::move(batch->samples);
  return batch->distinctPackets > 0;
}

/// Reads the packets of one call. Each distinct packet is planned once, in the order of the file;
/// then stretches of neighbouring packets are read and their samples converted.
class WaveformSource::BatchReader {
 public:
  BatchReader(const WaveformSource& source, std::span<const WaveformPacketRef> packets)
      : source_(source), packets_(packets) {}

  Outcome<WaveformBatch> read() {
    sortPresent();
    if (const Outcome<void> planned = plan(); !planned) return planned.failure();
    batch_.samples.resize(sampleCount_);
    for (std::size_t first = 0; first < distinct_.size();) {
      const std::size_t last = stretchEnd(first);
      if (const Outcome<void> done = readStretch(first, last); !done) return done.failure();
      first = last;
    }
    return std::move(batch_);
  }

 private:
  void sortPresent() {
    batch_.places.resize(packets_.size());
    for (std::size_t index = 0; index < packets_.size(); ++index) {
      const WaveformPacketRef& packet = packets_[index];
      if (packet.descriptorIndex == 0) {
        ++batch_.withoutWaveform;
      } else if (source_.isAbsent(packet)) {
        ++batch_.absentPackets;
      } else {
        order_.push_back(index);
      }
    }
    std::sort(order_.begin(), order_.end(), [this](std::size_t left, std::size_t right) {
      return isBefore(packets_[left], packets_[right]);
    });
  }

  /// Gives every reference its place among the samples.
  Outcome<void> plan() {
    std::uint64_t byteCount = 0;
    for (const std::size_t index : order_) {
      const WaveformPacketRef& packet = packets_[index];
      if (distinct_.empty() || packets_[distinct_.back()] != packet) {
        const Outcome<std::uint32_t> count = source_.samplesIn(packet);
        if (!count) return count.failure();
        byteCount += packet.byteSize;
        if (byteCount / kMaxOverlap > source_.dataBytes_) {
          return Failure{
              fmt::format("{}: waveform packets overlap too much, found more than {} bytes "
                          "in {}",
                          source_.packetPath(), byteCount, source_.dataBytes_)};
        }
        distinct_.push_back(index);
        place_ = {sampleCount_, *count};
        sampleCount_ += *count;
        batch_.longestPacket = std::max(batch_.longestPacket, *count);
      }
      batch_.places[index] = place_;
    }
    batch_.distinctPackets = distinct_.size();
    return {};
  }

  /// One past the last packet that is read together with the packet `first`.
  std::size_t stretchEnd(std::size_t first) const {
    const std::uint64_t begin = packets_[distinct_[first]].byteOffset;
    std::uint64_t end = endOf(packets_[distinct_[first]]);
    std::size_t last = first + 1;
    for (; last < distinct_.size(); ++last) {
      const WaveformPacketRef& next = packets_[distinct_[last]];
      if (next.byteOffset > end + kGapBytes || endOf(next) > begin + kReadBytes) break;
      end = std::max(end, endOf(next));
    }
    return last;
  }

  Outcome<void> readStretch(std::size_t first, std::size_t last) {
    const std::uint64_t begin = packets_[distinct_[first]].byteOffset;
    std::uint64_t end = begin;
    for (std::size_t at = first; at < last; ++at) {
      end = std::max(end, endOf(packets_[distinct_[at]]));
    }
    bytes_.resize(end - begin);
    Outcome<void> done = source_.packets_->read(source_.baseOffset_ + begin, bytes_);
    if (!done) return done;
    for (std::size_t at = first; at < last; ++at) {
      const WaveformPacketRef& packet = packets_[distinct_[at]];
      const WaveformBatch::Place& place = batch_.places[distinct_[at]];
      const std::size_t width =
          source_.descriptor(packet.descriptorIndex)->bitsPerSample / kBitsPerByte;
      convertSamples(std::span<const std::byte>(bytes_).subspan(packet.byteOffset - begin,
                                                                place.sampleCount * width),
                     std::span(batch_.samples).subspan(place.firstSample, place.sampleCount));
    }
    return {};
  }

  const WaveformSource& source_;
  std::span<const WaveformPacketRef> packets_;
  std::vector<std::size_t> order_;     ///< Present references in the order of the file.
  std::vector<std::size_t> distinct_;  ///< The first reference of each distinct packet.
  WaveformBatch::Place place_;         ///< Of the last distinct packet.
  std::uint64_t sampleCount_ = 0;
  std::vector<std::byte> bytes_;
  WaveformBatch batch_;
};

Outcome<WaveformBatch> WaveformSource::readPackets(
    std::span<const WaveformPacketRef> packets) const {
  return withoutExceptions(packetPath(), [&] { return BatchReader(*this, packets).read(); });
}

}  // namespace Formats
