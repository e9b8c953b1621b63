// SPDX-License-Identifier: Apache-2.0
//
// Waveforms of a tile: fragments differ in their samples per point, a tile has one number for all.
// Longer waveforms are cut after it, shorter ones are padded with zero samples.

#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "assembly/PointSelection.hpp"
#include "datamodel/fiber/Grid.hpp"

namespace LidarLib {

/// Longest waveforms, in samples, among a tile's selected points.
struct WaveformLengths {
  std::uint32_t maxWaveformLength = 0;
  std::uint32_t maxWaveformLengthHp = 0;
};

/// Scans "FWFLength" and "FWFLength_hp" of the selected points; 0 for a field that is absent.
WaveformLengths scanWaveformLengths(
    Fiber::Grid& inputGrid, const FragmentSet& fragments,
    const MemCore::Chunk<MemCore::StrongPtr<Fiber::IndexList>>& indexLists);

/// Samples per point that a two-dimensional field of that name has in the tile; 0 means that the
/// field is not copied, which holds for every name but "Waveforms" and "Waveforms_hp".
std::uint32_t waveformLengthOf(const std::string& fieldName, const WaveformLengths& lengths);

/// Sample indices of one fragment's selected points, and the positions within its block of output
/// samples that are padding. Either may be empty.
struct WaveformIndices {
  MemCore::StrongPtr<Fiber::IndexList> samples;
  MemCore::StrongPtr<Fiber::IndexList> padding;
};

/// The samples of the points in list order, as many per point as the tile has. All counts and
/// indices are unsigned 32-bit and wrap: the lists hold the first (samples per point x points)
/// mod 2^32 positions. No padding list when waveforms are cut.
WaveformIndices expandWaveformIndices(const MemCore::StrongPtr<Fiber::IndexList>& points,
                                      std::uint64_t inputSamplesPerPoint,
                                      const std::string& fieldName, const WaveformLengths& lengths);

/// One fragment's waveforms on their way into a tile. Shape of both arrays: [points][samples].
struct WaveformBlock {
  std::span<const unsigned int> points;  ///< the selected points
  std::uint64_t inputSamples = 0;        ///< samples per point of the fragment
  std::uint32_t outputSamples = 0;       ///< samples per point of the tile
  std::uint32_t outputOffset = 0;        ///< first output sample of the block
};

/// Copies the selected points' waveforms, whole runs of samples at a time: the same elements as
/// gathering by expandWaveformIndices and zeroing the padding, for blocks that need no wrapping
/// (fitsIndices). Returns false, and copies nothing, when there are no points, the element sizes
/// differ, elements are no plain bytes, both arrays are one, or a point or the block lies outside.
bool copyWaveforms(MemCore::ChunkBase& output, const MemCore::ChunkBase& input,
                   const WaveformBlock& block);

/// Whether every sample of the block has a 32-bit index in both arrays.
bool fitsIndices(const WaveformBlock& block, std::uint64_t inputElements);

}  // namespace LidarLib
