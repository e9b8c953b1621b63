// SPDX-License-Identifier: Apache-2.0
//
// Field copy: builds one input field anew in a tile's grid and fills it with the values of the
// selected points, input fragment after input fragment. Waveforms are brought to a common number of
// samples per point.

#pragma once

#include <cstdint>
#include <string>

#include "assembly/PointSelection.hpp"
#include "datamodel/convlib/BasicConverterDefs.hpp"

namespace LidarLib {

/// Longest waveforms, in samples, among a tile's selected points.
struct WaveformLengths {
  std::uint32_t maxWaveformLength = 0;
  std::uint32_t maxWaveformLengthHp = 0;
};

/// Everything that the copy of any field of one tile needs.
struct FieldCopy {
  MemCore::StrongPtr<Fiber::Field> inputPositions;
  ConvLib::BasicConverterDefs* operation = nullptr;  ///< asked UseThisField; not owned
  Fiber::MultiIndex<3> tileIndex;
  TileSelection selection;
  MemCore::StrongPtr<Fiber::Grid> outputGrid;
  FragmentSet fragments;  ///< a copy of the tile's set: walked in the order of the selection
  WaveformLengths waveformLengths;
  /// Only when tiles become fragments of one output grid: the tile's fragment there, and the field
  /// whose fragmentation the output fields share. Empty: the tile has a grid of its own.
  Fiber::FragmentHandle outputFragment;
  MemCore::StrongPtr<Fiber::RegularlyFragmentedField<3>> templateField;
};

/// Copies one input field into the tile; the visitor of Skeleton::iterate_fields. Always true.
bool copyFieldIntoTile(const FieldCopy& copy, const MemCore::WeakPtr<Fiber::BaseSpace>& space,
                       const Fiber::FieldID& id, const MemCore::StrongPtr<Fiber::Field>& field);

/// Scans "FWFLength" and "FWFLength_hp" of the selected points; 0 for a field that is absent.
WaveformLengths scanWaveformLengths(
    Fiber::Grid& inputGrid, const FragmentSet& fragments,
    const MemCore::Chunk<MemCore::StrongPtr<Fiber::IndexList>>& indexLists);

/// Sample indices of one fragment's selected points, and the positions within its block of output
/// samples that are padding. Either may be empty.
struct WaveformIndices {
  MemCore::StrongPtr<Fiber::IndexList> samples;
  MemCore::StrongPtr<Fiber::IndexList> padding;
};

WaveformIndices expandWaveformIndices(const MemCore::StrongPtr<Fiber::IndexList>& points,
                                      std::uint64_t inputSamplesPerPoint,
                                      const std::string& fieldName, const WaveformLengths& lengths);

}  // namespace LidarLib
