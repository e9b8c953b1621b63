// SPDX-License-Identifier: Apache-2.0
//
// WaveformSource: the waveform packets of a LAS or LAZ file, which stand either inside it (behind
// the points) or in a .wdp file beside it. A point names its packet by descriptor, byte offset and
// size; points of one pulse usually name the same packet. An *absent* packet is no failure:
// descriptor 0 (the point has no waveform) or a packet that lies past the end of the data. It gives
// no samples and is counted. A failure is a read error or a packet that cannot be understood.
// Threads: const members may be called by any number of threads at once.
// Source: ASPRS LAS Specification 1.4 - R15, table 23 (descriptors) and section 2.6.6 (packets).

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/InputFile.hpp"
#include "formats/las/LasFile.hpp"

namespace Formats {

/// How packets of one descriptor are to be read. Volts = digitizerOffset + digitizerGain * sample.
struct WaveformDescriptor {
  std::uint8_t bitsPerSample = 0;
  std::uint8_t compression = 0;
  std::uint32_t sampleCount = 0;
  std::uint32_t sampleSpacingPicoseconds = 0;
  double digitizerGain = 1;
  double digitizerOffset = 0;
};

/// The payload (26 bytes) of the record (LASF_Spec, 99 + index) of a descriptor, for writers.
std::vector<std::byte> serialiseWaveformDescriptor(const WaveformDescriptor& descriptor);

/// A packet as a point names it (fields WaveDescriptor, WaveOffset, WaveSize).
struct WaveformPacketRef {
  std::uint8_t descriptorIndex = 0;  ///< 1 to 255; 0 = no waveform.
  std::uint64_t byteOffset = 0;      ///< From the start of the packet record's header.
  std::uint32_t byteSize = 0;

  friend bool operator==(const WaveformPacketRef&, const WaveformPacketRef&) = default;
};

/// The samples of many packets.
struct WaveformBatch {
  /// Where the samples of one reference stand in `samples`; shared packets share their place.
  struct Place {
    std::uint64_t firstSample = 0;
    std::uint32_t sampleCount = 0;
  };

  std::vector<std::uint16_t> samples;
  std::vector<Place> places;          ///< One per reference, in the order of the references.
  std::uint32_t longestPacket = 0;    ///< Samples of the longest packet.
  std::uint64_t distinctPackets = 0;  ///< Packets read.
  std::uint64_t withoutWaveform = 0;  ///< References with descriptor 0.
  std::uint64_t absentPackets = 0;    ///< References whose packet lies past the end of the data.
};

/// The open packets of one file.
class WaveformSource {
 public:
  /// Errors: a file without waveforms (see hasWaveforms), a missing .wdp, damaged descriptors.
  static MemCore::Outcome<std::shared_ptr<const WaveformSource>> open(
      const std::shared_ptr<const LasFile>& file);

  /// Does the file's point format carry packet references at all?
  static bool hasWaveforms(const LasFile& file);

  /// The file that holds the packets: the LAS file itself or its .wdp.
  const std::string& packetPath() const { return packets_->path(); }
  bool isInternal() const { return isInternal_; }

  /// The descriptor of this index, or null.
  const WaveformDescriptor* descriptor(std::uint8_t index) const;

  /// Reads one packet; returns false (and no samples) where it is absent.
  /// Errors: unknown descriptor, compressed packets, samples that are neither 8 nor 16 bits wide,
  /// read failures.
  MemCore::Outcome<bool> readPacket(const WaveformPacketRef& packet,
                                    std::vector<std::uint16_t>& samples) const;

  /// Reads many packets: each once, in the order of the file, neighbours in one read.
  /// Errors: as readPacket, for the first packet in file order that fails.
  MemCore::Outcome<WaveformBatch> readPackets(std::span<const WaveformPacketRef> packets) const;

 private:
  class BatchReader;

  WaveformSource() = default;
  MemCore::Outcome<void> readDescriptors(const LasFile& file);
  MemCore::Outcome<void> findPackets(const LasFile& file);
  bool isAbsent(const WaveformPacketRef& packet) const;
  MemCore::Outcome<std::uint32_t> samplesIn(const WaveformPacketRef& packet) const;

  std::array<std::optional<WaveformDescriptor>, 256> descriptors_;
  std::shared_ptr<const InputFile> packets_;
  std::uint64_t baseOffset_ = 0;  ///< Of the packet record's header in the packet file.
  std::uint64_t dataBytes_ = 0;   ///< From there to the end of the packets.
  bool isInternal_ = false;
};

}  // namespace Formats
