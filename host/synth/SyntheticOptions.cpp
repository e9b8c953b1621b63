// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticOptions.hpp"

#include <fmt/format.h>

#include <string>

namespace Synth {

namespace {

using MemCore::Failure;
using MemCore::Outcome;

template <class Number>
Outcome<void> checkRange(const char* name, Number value, Number least, Number most) {
  // Written so that NaN is refused too.
  if (value >= least && value <= most) return {};
  return Failure{fmt::format("synthetic survey: {} is out of range, found {}, expected {} to {}",
                             name, value, least, most)};
}

}  // namespace

Outcome<void> checkOptions(const SurveyOptions& options) {
  const Outcome<void> checks[] = {
      checkRange<std::uint64_t>("number of points", options.pointCount, 1, kMostPoints),
      checkRange("number of flight lines", options.flightLines, 1U, 1000U),
      checkRange("number of pulses per square metre", options.pulsesPerSquareMetre, 0.01, 100.0),
      checkRange("range noise in metres", options.rangeNoiseMetres, 0.0, 0.1),
      checkRange("number of samples per packet", options.samplesPerPacket, 8U, 512U),
      checkRange("waveform noise", options.waveformNoise, 0U, 100U),
      checkRange("number of threads", options.threadCount, 0, 4096)};
  for (const Outcome<void>& check : checks) {
    if (!check) return check;
  }
  return {};
}

}  // namespace Synth
