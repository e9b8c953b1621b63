// SPDX-License-Identifier: Apache-2.0
//
// TileRig: one tile's field copy, set up by hand: the input grid, the selected points of each
// fragment and the tile's own grid, without a tiling around them.

#pragma once

#include <map>
#include <string>
#include <vector>

#include "assembly/FieldCopy.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace LidarLib::TestSupport {

/// An operation that is nothing but its field filter.
class FilterOnly final : public ConvLib::BasicConverterDefs {
 public:
  std::string printSecondary() override { return {}; }
  bool Run() override { return false; }
};

/// The two ways through the fields of a tile; their results are the same.
enum class CopyOrder { FieldByField, FragmentByFragment };

class TileRig {
 public:
  /// The selected points by fragment name. Fragments that are not named have no index list.
  using Selected = std::map<std::string, std::vector<unsigned int>>;

  /// The set of fragments is filled so that it is walked in order of number, which is checked.
  TileRig(const MemCore::StrongPtr<Fiber::Grid>& input, const Selected& selected);

  /// Makes the tile a fragment of the output grid, whose fields share the fragmentation of
  /// `positions`.
  void becomeFragmentOf(const MemCore::StrongPtr<Fiber::Grid>& output,
                        const MemCore::StrongPtr<Fiber::RegularlyFragmentedField<3>>& positions,
                        const Fiber::MultiIndex<3>& index);

  /// Scans the waveform lengths and copies every field of the input's vertices.
  void copyAll(CopyOrder order = CopyOrder::FieldByField);

  /// A field of the tile's grid; empty when there is none.
  MemCore::StrongPtr<Fiber::Field> field(const std::string& name) const;
  /// The tile's data of a field; empty when there are none.
  MemCore::StrongPtr<Fiber::MemBase> data(const std::string& name) const;
  /// Extents of the tile's data of a field, the fastest dimension first; none when there are none.
  std::vector<std::uint64_t> extents(const std::string& name) const;
  /// The tile's data as values; none when there are no data or of another type.
  template <class T>
  std::vector<T> values(const std::string& name) const {
    const auto array = data(name);
    const auto chunk = array ? MemCore::chunkCast<T>(array->elements()) : nullptr;
    return chunk ? std::vector<T>(chunk->begin(), chunk->end()) : std::vector<T>();
  }

  MemCore::StrongPtr<Fiber::Grid> input;
  FilterOnly operation;
  FieldCopy copy;

 private:
  Fiber::Bundle bundle_;
};

}  // namespace LidarLib::TestSupport
