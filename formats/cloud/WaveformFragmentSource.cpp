// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/WaveformFragmentSource.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <span>

namespace Formats {

using Fiber::MemArray;
using MemCore::Chunk;
using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;

namespace {

constexpr unsigned kBitsPerByte = 8;
constexpr unsigned kDescriptorIndices = 256;

/// Uncompressed samples of one or two bytes.
bool isReadable(const WaveformDescriptor& descriptor) {
  return descriptor.compression == 0 &&
         (descriptor.bitsPerSample == 8 || descriptor.bitsPerSample == 16);
}

/// Rows of equal length, each a packet and zeros behind it.
DecodedHandle padded(const WaveformBatch& batch) {
  const std::size_t rowSamples = std::max<std::uint32_t>(batch.longestPacket, 1);
  const std::size_t points = batch.places.size();
  const auto samples = Chunk<std::uint16_t>::uninitialised(rowSamples * points);
  const auto lengths = Chunk<std::uint16_t>::uninitialised(points);
  for (std::size_t i = 0; i < points; ++i) {
    const WaveformBatch::Place& place = batch.places[i];
    const auto packet =
        std::span(batch.samples)
            .subspan(static_cast<std::size_t>(place.firstSample), place.sampleCount);
    std::uint16_t* row = samples->data() + i * rowSamples;
    std::fill(std::copy(packet.begin(), packet.end(), row), row + rowSamples, std::uint16_t{0});
    (*lengths)[i] = static_cast<std::uint16_t>(place.sampleCount);
  }
  return makeStrong<DecodedFragment>(std::vector<MemCore::StrongPtr<Fiber::MemBase>>{
      makeStrong<MemArray<2, std::uint16_t>>(std::array<std::uint64_t, 2>{rowSamples, points},
                                             samples),
      Fiber::makeArray(lengths)});
}

}  // namespace

std::uint32_t longestDescribedPacket(const WaveformSource& source) {
  std::uint32_t longest = 0;
  for (unsigned index = 1; index < kDescriptorIndices; ++index) {
    const WaveformDescriptor* descriptor = source.descriptor(static_cast<std::uint8_t>(index));
    if (descriptor == nullptr || !isReadable(*descriptor)) continue;
    longest = std::max(longest, std::clamp(descriptor->sampleCount, 1U, kMaxWaveformSamples));
  }
  return longest;
}

std::vector<std::string> unreadableDescriptors(const WaveformSource& source) {
  std::vector<std::string> notes;
  for (unsigned index = 1; index < kDescriptorIndices; ++index) {
    const WaveformDescriptor* descriptor = source.descriptor(static_cast<std::uint8_t>(index));
    if (descriptor == nullptr || isReadable(*descriptor)) continue;
    notes.push_back(fmt::format(
        "{}: waveform descriptor {}: packets cannot be read, found {} bits and compression {}, "
        "expected 8 or 16 bits and compression 0: their points are left without waveforms",
        source.packetPath(), index, descriptor->bitsPerSample, descriptor->compression));
  }
  return notes;
}

Outcome<DecodedHandle> WaveformFragmentSource::decode() {
  const Outcome<DecodedHandle> points = points_->decoded();
  if (!points) return points.failure();
  const Outcome<NamedPackets> named = packetsOf(**points);
  if (!named) return named.failure();
  const Outcome<WaveformBatch> batch = file_->source->readPackets(named->packets);
  if (!batch) return batch.failure();
  if (!hasCounted_) file_->lostPackets += named->unreadable + batch->absentPackets;
  hasCounted_ = true;
  return padded(*batch);
}

bool WaveformFragmentSource::isReadable(const WaveformPacketRef& packet) const {
  const WaveformDescriptor* descriptor = file_->source->descriptor(packet.descriptorIndex);
  if (descriptor == nullptr || !Formats::isReadable(*descriptor)) return false;
  const std::uint32_t stored = packet.byteSize / (descriptor->bitsPerSample / kBitsPerByte);
  return std::min(stored, descriptor->sampleCount) <= kMaxWaveformSamples;
}

Outcome<WaveformFragmentSource::NamedPackets> WaveformFragmentSource::packetsOf(
    const DecodedFragment& points) const {
  const auto columnOf = [&](std::size_t which) {
    return points.column(file_->packetColumns[which]);
  };
  const auto descriptors = MemCore::handleCast<MemArray<1, std::uint8_t>>(columnOf(0));
  const auto offsets = MemCore::handleCast<MemArray<1, std::uint64_t>>(columnOf(1));
  const auto sizes = MemCore::handleCast<MemArray<1, std::uint32_t>>(columnOf(2));
  if (!descriptors || !offsets || !sizes) {
    return Failure{fmt::format("{}: the fields that name waveform packets have other types",
                               file_->source->packetPath())};
  }
  NamedPackets named;
  named.packets.resize(static_cast<std::size_t>(descriptors->count()));
  for (std::size_t i = 0; i < named.packets.size(); ++i) {
    WaveformPacketRef& packet = named.packets[i];
    packet = {(*descriptors)[i], (*offsets)[i], (*sizes)[i]};
    if (packet.descriptorIndex == 0 || isReadable(packet)) continue;
    packet = {};
    ++named.unreadable;
  }
  return named;
}

}  // namespace Formats
