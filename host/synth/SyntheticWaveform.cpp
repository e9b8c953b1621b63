// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticWaveform.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Synth {

namespace {

/// Samples in front of the first return (less up to one) and behind the last.
constexpr double kLead = 12.0;
constexpr double kTail = 20.0;

/// Deviation of the bell curve of a return, and how far it is drawn, in samples.
constexpr double kBellDeviation = 2.0;
constexpr double kBellReach = 9.0;

/// The steepest beam that a mirror at 20 degrees and the sway of the aircraft can make.
constexpr double kSmallestCosine = 0.9;

std::uint32_t lengthsFor(std::uint32_t samples, std::uint32_t samplesPerLength) {
  return (samples + samplesPerLength - 1) / samplesPerLength;
}

}  // namespace

std::uint32_t samplesForSpread(double spreadMetres) {
  const double picoseconds = spreadMetres / kMetresPerPicosecond;
  return static_cast<std::uint32_t>(
      std::ceil(kLead + picoseconds / kSampleSpacingPicoseconds + kTail));
}

std::uint8_t packetLengthCount(const SurveyOptions& options) {
  const double longest = kSearchHeight / kSmallestCosine +
                         2.0 * RandomStream::kLargestNormal * options.rangeNoiseMetres;
  return static_cast<std::uint8_t>(lengthsFor(samplesForSpread(longest), options.samplesPerPacket));
}

WavePacket WaveformRecorder::append(std::span<const PulseReturn> returns, RandomStream random,
                                    std::vector<std::byte>& stream) {
  const double spread = returns.back().range - returns.front().range;
  const double metresPerSample = kSampleSpacingPicoseconds * kMetresPerPicosecond;
  const std::uint32_t lengths = lengthsFor(samplesForSpread(spread), samplesPerLength_);
  samples_.resize(std::size_t{lengths} * samplesPerLength_);

  WavePacket packet;
  packet.lengthNumber = static_cast<std::uint8_t>(lengths);
  packet.byteOffset = stream.size();
  packet.byteSize = static_cast<std::uint32_t>(samples_.size() * sizeof(std::uint16_t));
  packet.startRange = returns.front().range - (kLead - random.uniform()) * metresPerSample;
  fillFloor(random);
  for (const PulseReturn& each : returns) {
    addBell((each.range - packet.startRange) / metresPerSample, each.intensity);
  }

  stream.resize(stream.size() + packet.byteSize);
  std::byte* to = stream.data() + packet.byteOffset;
  for (const float sample : samples_) {
    const auto counts = static_cast<std::uint16_t>(std::min(sample + 0.5F, 65535.0F));
    std::memcpy(to, &counts, sizeof counts);
    to += sizeof counts;
  }
  return packet;
}

void WaveformRecorder::fillFloor(RandomStream& random) {
  const std::uint32_t choices = 2 * noise_ + 1;
  const auto least = static_cast<float>(kWaveformFloor - noise_);
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < samples_.size(); ++i) {
    bits = i % 4 == 0 ? random.next() : bits >> 16U;
    const auto choice = static_cast<std::uint32_t>(bits & 0xFFFFU) * choices >> 16U;
    samples_[i] = least + static_cast<float>(choice);
  }
}

void WaveformRecorder::addBell(double centre, double height) {
  const auto first = static_cast<std::size_t>(std::max(std::ceil(centre - kBellReach), 0.0));
  const auto last = std::min(static_cast<std::size_t>(centre + kBellReach), samples_.size() - 1);
  // From one sample to the next the curve is multiplied by a factor that itself shrinks evenly, so
  // that two exponentials draw the whole of it.
  const double variance = kBellDeviation * kBellDeviation;
  const double shrink = std::exp(-1.0 / variance);
  const double start = static_cast<double>(first) - centre;
  double value = height * std::exp(-start * start / (2.0 * variance));
  double factor = std::exp(-(2.0 * start + 1.0) / (2.0 * variance));
  for (std::size_t i = first; i <= last; ++i) {
    samples_[i] += static_cast<float>(value);
    value *= factor;
    factor *= shrink;
  }
}

}  // namespace Synth
