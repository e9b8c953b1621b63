// SPDX-License-Identifier: Apache-2.0
//
// Field copy: builds one input field anew in a tile's grid and fills it with the values of the
// selected points, input fragment after input fragment. Waveforms are brought to a common number of
// samples per point.

#pragma once

#include "assembly/PointSelection.hpp"
#include "assembly/Waveforms.hpp"
#include "datamodel/convlib/BasicConverterDefs.hpp"

namespace LidarLib {

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
/// The output field is made when its first values arrive: one without values is not made at all.
/// Deliberate: a fragment that is skipped leaves no gap. The values after it move up, and the last
/// elements of the output keep their zeros. Threads: one per tile; the input may be shared.
bool copyFieldIntoTile(const FieldCopy& copy, const MemCore::WeakPtr<Fiber::BaseSpace>& space,
                       const Fiber::FieldID& id, const MemCore::StrongPtr<Fiber::Field>& field);

/// Copies all fields of a skeleton, with the same result and the same messages in the same order as
/// a walk with copyFieldIntoTile, but fragment by fragment: all fields of a fragment are taken
/// while it is in memory, so that a small cache has to read it once per tile and not once per
/// field.
void copyFieldsIntoTile(const FieldCopy& copy, Fiber::Skeleton& vertices);

}  // namespace LidarLib
