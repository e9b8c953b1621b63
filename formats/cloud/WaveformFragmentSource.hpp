// SPDX-License-Identifier: Apache-2.0
//
// WaveformFragmentSource: decodes the waveforms of one fragment, apart from its other columns:
// "Waveforms", shape [points][samples], as many samples as the fragment's longest packet has (at
// least one), shorter packets followed by zeros; and "FWFLength", the samples of each point's own
// packet, 0 without one. What else a packet says stays in the fields of the point record.
//
// A packet that lies past the end of the data or is coded in a way that cannot be read counts as
// none (length 0), so that the point itself is not lost; such packets are counted per file.

#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/cloud/DecodedFragment.hpp"
#include "formats/las/WaveformSource.hpp"

namespace Formats {

/// Names of the two fields, and where their columns stand in the decoded fragment.
inline constexpr const char* kWaveformsField = "Waveforms";
inline constexpr const char* kWaveformLengthField = "FWFLength";
inline constexpr std::size_t kWaveformColumn = 0;
inline constexpr std::size_t kWaveformLengthColumn = 1;

/// Lengths are unsigned 16-bit numbers; a longer packet counts as one that cannot be read.
inline constexpr std::uint32_t kMaxWaveformSamples = 65535;

/// What the waveform fragments of one file share.
struct FileWaveforms {
  std::shared_ptr<const WaveformSource> source;
  /// Columns of WaveDescriptor, WaveOffset, WaveSize in the decoded points.
  std::array<std::size_t, 3> packetColumns{};
  std::atomic<std::uint64_t> lostPackets{0};  ///< Points whose packet could not be had so far.
};

/// Samples of the longest packet that the descriptors allow for, at most kMaxWaveformSamples; 0
/// when no descriptor can be read.
std::uint32_t longestDescribedPacket(const WaveformSource& source);

/// One line for each descriptor whose packets cannot be read.
std::vector<std::string> unreadableDescriptors(const WaveformSource& source);

/// Threads: as its base.
class WaveformFragmentSource final : public DecodedFragmentSource {
 public:
  /// `points` decodes the columns of the same fragment.
  WaveformFragmentSource(std::shared_ptr<FileWaveforms> file,
                         MemCore::StrongPtr<DecodedFragmentSource> points)
      : file_(std::move(file)), points_(std::move(points)) {}

 protected:
  MemCore::Outcome<DecodedHandle> decode() override;

 private:
  /// The packets that the points name, unreadable ones as none.
  struct NamedPackets {
    std::vector<WaveformPacketRef> packets;
    std::uint64_t unreadable = 0;
  };
  bool isReadable(const WaveformPacketRef& packet) const;
  MemCore::Outcome<NamedPackets> packetsOf(const DecodedFragment& points) const;

  std::shared_ptr<FileWaveforms> file_;
  MemCore::StrongPtr<DecodedFragmentSource> points_;
  bool hasCounted_ = false;  ///< Lost packets are counted by the first decoding alone.
};

}  // namespace Formats
