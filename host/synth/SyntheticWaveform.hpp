// SPDX-License-Identifier: Apache-2.0
//
// SyntheticWaveform: what the digitiser records of a pulse: a noisy floor with a bell curve at each
// return, as high as its intensity. The returns of a pulse share one packet, which begins shortly
// before the first of them. Packets are 1, 2, 3, ... times as long as the shortest, as short as the
// pulse allows; a descriptor stands for each length. Units: samples of 16 bits, picoseconds.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "host/synth/SyntheticNoise.hpp"
#include "host/synth/SyntheticOptions.hpp"
#include "host/synth/SyntheticPulse.hpp"

namespace Synth {

inline constexpr std::uint32_t kSampleSpacingPicoseconds = 1000;

/// Counts that the digitiser shows without any light.
inline constexpr std::uint32_t kWaveformFloor = 200;

/// Metres that light goes in a picosecond, there and back.
inline constexpr double kMetresPerPicosecond = 299792458.0 * 1e-12 / 2.0;

/// Samples that an observed stretch of so many metres needs, lead and tail included.
std::uint32_t samplesForSpread(double spreadMetres);

/// Number of packet lengths: the longest one holds every pulse that a tracer can return.
/// Range: 1 to 31 for checked options.
std::uint8_t packetLengthCount(const SurveyOptions& options);

/// A packet within a stream of packets.
struct WavePacket {
  std::uint8_t lengthNumber = 0;  ///< 1 for the shortest length; the number of its descriptor.
  std::uint64_t byteOffset = 0;   ///< From the start of the stream that it was appended to.
  std::uint32_t byteSize = 0;
  double startRange = 0;  ///< Metres from the aircraft to the first sample.

  /// Picoseconds from the first sample to what lies at this range.
  double locationOf(double range) const { return (range - startRange) / kMetresPerPicosecond; }
};

/// Records pulses. Threads: one object per thread (it keeps a buffer).
class WaveformRecorder {
 public:
  /// Requires: checked options.
  explicit WaveformRecorder(const SurveyOptions& options)
      : samplesPerLength_(options.samplesPerPacket), noise_(options.waveformNoise) {}

  /// Appends the packet of a pulse to `stream`. Requires: returns in ascending order, at least one.
  WavePacket append(std::span<const PulseReturn> returns, RandomStream random,
                    std::vector<std::byte>& stream);

 private:
  void fillFloor(RandomStream& random);
  void addBell(double centre, double height);

  std::uint32_t samplesPerLength_;
  std::uint32_t noise_;
  std::vector<float> samples_;
};

}  // namespace Synth
