// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticWaveform.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Synth {
namespace {

SurveyOptions optionsOf(std::uint32_t samplesPerPacket, std::uint32_t noise) {
  SurveyOptions options;
  options.samplesPerPacket = samplesPerPacket;
  options.waveformNoise = noise;
  return options;
}

std::vector<int> samplesOf(const WavePacket& packet, const std::vector<std::byte>& stream) {
  std::vector<int> samples;
  for (std::uint64_t at = packet.byteOffset; at < packet.byteOffset + packet.byteSize; at += 2) {
    std::uint16_t sample = 0;
    std::memcpy(&sample, stream.data() + at, sizeof sample);
    samples.push_back(sample);
  }
  return samples;
}

TEST(Waveform, PeaksAreAtTheReturnsAndAsHighAsTheirIntensity) {
  WaveformRecorder recorder(optionsOf(64, 0));
  const PulseReturn returns[] = {{600.0, 500, 5}, {604.0, 1200, 2}};
  std::vector<std::byte> stream;
  const WavePacket packet = recorder.append(returns, RandomStream(1, 1, 1), stream);
  const std::vector<int> samples = samplesOf(packet, stream);
  for (const PulseReturn& each : returns) {
    const double location = packet.locationOf(each.range) / kSampleSpacingPicoseconds;
    const auto at = static_cast<std::size_t>(std::lround(location));
    const double away = location - static_cast<double>(at);
    const double expected = kWaveformFloor + each.intensity * std::exp(-away * away / 8.0);
    EXPECT_NEAR(samples.at(at), expected, 1.0);
    EXPECT_GE(samples.at(at), samples.at(at - 1));
    EXPECT_GE(samples.at(at), samples.at(at + 1));
  }
  EXPECT_EQ(samples.front(), static_cast<int>(kWaveformFloor));
  EXPECT_EQ(samples.back(), static_cast<int>(kWaveformFloor));
}

TEST(Waveform, FloorStaysWithinTheNoise) {
  WaveformRecorder recorder(optionsOf(256, 3));
  const PulseReturn returns[] = {{600.0, 1, 2}};
  std::vector<std::byte> stream;
  const auto samples = samplesOf(recorder.append(returns, RandomStream(1, 1, 1), stream), stream);
  const auto [least, most] = std::minmax_element(samples.begin() + 30, samples.end());
  EXPECT_EQ(*least, 197);
  EXPECT_EQ(*most, 203);
}

TEST(Waveform, PacketIsAsLongAsThePulseNeeds) {
  WaveformRecorder recorder(optionsOf(64, 3));
  std::vector<std::byte> stream;
  const PulseReturn single[] = {{600.0, 900, 2}};
  const PulseReturn deep[] = {{600.0, 300, 5}, {612.0, 900, 2}};
  const WavePacket first = recorder.append(single, RandomStream(1, 1, 1), stream);
  const WavePacket second = recorder.append(deep, RandomStream(1, 1, 2), stream);
  EXPECT_EQ(first.lengthNumber, 1);
  EXPECT_EQ(first.byteSize, 128U);
  EXPECT_EQ(second.lengthNumber, 2);
  EXPECT_EQ(second.byteSize, 256U);
  EXPECT_EQ(second.byteOffset, first.byteOffset + first.byteSize);
  EXPECT_EQ(stream.size(), 384U);
}

TEST(Waveform, BrightReturnsSaturateTheDigitiser) {
  WaveformRecorder recorder(optionsOf(64, 3));
  const PulseReturn returns[] = {{600.0, 60000, 6}, {600.3, 60000, 2}};
  std::vector<std::byte> stream;
  const auto samples = samplesOf(recorder.append(returns, RandomStream(1, 1, 1), stream), stream);
  EXPECT_EQ(*std::max_element(samples.begin(), samples.end()), 65535);
}

TEST(Waveform, LongestPacketHoldsTheDeepestPulse) {
  for (const std::uint32_t samplesPerPacket : {8U, 64U, 512U}) {
    const SurveyOptions options = optionsOf(samplesPerPacket, 3);
    const std::uint32_t deepest = samplesForSpread(kSearchHeight / std::cos(0.4));
    const std::uint32_t longest = packetLengthCount(options) * samplesPerPacket;
    EXPECT_GE(longest, deepest);
    EXPECT_LT(longest, deepest + 40 + samplesPerPacket);
  }
}

}  // namespace
}  // namespace Synth
