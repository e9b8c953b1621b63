// SPDX-License-Identifier: Apache-2.0
//
// ExportSource: a grid seen as what a point file is made of: its fragments in order, its positions,
// its other fields as columns of numbers, and what it keeps of the files that it came from.
// Nothing is read but facts.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "datamodel/fiber/Grid.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/SourceFiles.hpp"

namespace Formats {

/// A field of the grid. Shape of its data: [points][components].
struct ExportField {
  std::string name;
  ElementType type = ElementType::UInt8;
  std::size_t components = 1;
  MemCore::StrongPtr<Fiber::Field> field;
};

/// A fragment of the grid.
struct ExportFragment {
  Fiber::FragmentHandle id;
  std::uint64_t pointCount = 0;
  std::optional<Fiber::MultiIndex<3>> index;   ///< of a tile
  MemCore::StrongPtr<Eagle::BoundingBox> box;  ///< empty when not known
};

/// Invariant: `positions` is there; names of fields are unique and ascend.
struct ExportSource {
  std::string gridName;
  MemCore::StrongPtr<Fiber::Field> positions;
  std::vector<ExportField> fields;           ///< all but the positions and the waveforms
  MemCore::StrongPtr<Fiber::Field> samples;  ///< "Waveforms"; empty: none
  MemCore::StrongPtr<Fiber::Field> lengths;  ///< "FWFLength"; there when `samples` is
  std::vector<ExportFragment> fragments;     ///< those with points
  std::vector<SourceFile> files;             ///< in order; none for grids of other origin

  std::uint64_t pointCount() const;
  /// The field of a name, or null.
  const ExportField* find(const std::string& name) const;
  /// Its number in `fields`.
  std::optional<std::size_t> numberOf(const std::string& name) const;
};

/// Errors: a grid without positions, or whose attributes about its files are damaged; a field whose
/// data are no numbers per point.
MemCore::Outcome<ExportSource> exportSource(const Fiber::Grid& grid);

/// The element type of numbers of the data model.
ElementType elementTypeOf(Fiber::ScalarKind kind);

/// The data of one fragment of a field. Errors: the data cannot be made, or are not as many as
/// there are points.
MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> columnOf(const Fiber::Field& field,
                                                              const std::string& name,
                                                              const ExportFragment& fragment);

}  // namespace Formats
