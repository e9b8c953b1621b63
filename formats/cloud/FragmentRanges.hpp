// SPDX-License-Identifier: Apache-2.0
//
// FragmentRanges: how the points of one file become fragments: runs of consecutive points that are
// cheap to decode by themselves and small enough to be held in memory.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "formats/las/LasFile.hpp"

namespace Formats {

/// Points `firstPoint` to `firstPoint + pointCount` (half-open) of a file.
struct PointRange {
  std::uint64_t firstPoint = 0;
  std::uint64_t pointCount = 0;
  friend bool operator==(const PointRange&, const PointRange&) = default;
};

/// How large fragments may become.
struct FragmentLimits {
  std::uint64_t fragmentPoints = 250000;  ///< Wanted; at least 1.
  std::uint64_t samplesPerPoint = 0;      ///< Longest waveform of the file; 0 = no waveforms.
};

/// Cuts `pointCount` points into fragments, in order and without gaps. Runs (of compressed files)
/// stay whole and neighbours go together as long as the limit is kept; a run that is too long by
/// itself becomes a fragment of its own, or, where it would not fit into memory, several that all
/// cost its decoding. Without runs any cut is as good as another: all fragments but the last are as
/// long as the limit says. Long records or waveforms lower the limit.
std::vector<PointRange> cutIntoFragments(std::span<const PointRun> runs, std::uint64_t pointCount,
                                         std::size_t recordBytes, const FragmentLimits& limits);

/// The fragments of a file.
std::vector<PointRange> cutIntoFragments(const LasFile& file, const FragmentLimits& limits);

}  // namespace Formats
