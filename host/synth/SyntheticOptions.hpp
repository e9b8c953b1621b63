// SPDX-License-Identifier: Apache-2.0
//
// SyntheticOptions: what the maker of a synthetic survey may choose. The area is not among it: it
// follows from the number of points and their density.

#pragma once

#include <cstdint>

#include "datamodel/memcore/Outcome.hpp"

namespace Synth {

/// More points than this are refused.
inline constexpr std::uint64_t kMostPoints = 1'000'000'000'000;

/// A survey to be made. The same options give the same bytes, whatever the number of threads.
struct SurveyOptions {
  std::uint64_t pointCount = 5'000'000;  ///< About so many; at least 1.
  std::uint64_t seed = 1;
  std::uint32_t flightLines = 2;        ///< Parallel, overlapping by 30 %. Range: 1 to 1000.
  double pulsesPerSquareMetre = 8.0;    ///< Of one flight line. Range: 0.01 to 100.
  double rangeNoiseMetres = 0.015;      ///< Deviation of the measured distance. Range: 0 to 0.1.
  bool hasWaveforms = true;             ///< Point format 9 with packets, otherwise 6 without.
  std::uint32_t samplesPerPacket = 64;  ///< Of 1 ns, in the shortest packet. Range: 8 to 512.
  std::uint32_t waveformNoise = 3;  ///< Largest deviation from the floor. Range: 0 to 100 counts.
  int threadCount = 0;              ///< 0 = as OpenMP is set up.
};

/// Errors: the first option that is out of its range.
MemCore::Outcome<void> checkOptions(const SurveyOptions& options);

}  // namespace Synth
