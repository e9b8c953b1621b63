// SPDX-License-Identifier: Apache-2.0

#include "tests/assembly/TileRig.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace LidarLib::TestSupport {

using Fiber::IndexList;
using MemCore::makeStrong;
using MemCore::StrongPtr;

TileRig::TileRig(const StrongPtr<Fiber::Grid>& inputGrid, const Selected& selected)
    : input(inputGrid) {
  copy.inputPositions = input->CartesianPositions();
  copy.operation = &operation;
  copy.tileIndex = {{3, 0, 12}};
  copy.outputGrid = bundle_[0.0]->newGrid("tile");
  const auto ids = copy.inputPositions->getFragmentIDs();
  copy.fragments = {ids.rbegin(), ids.rend()};
  EXPECT_TRUE(std::equal(ids.begin(), ids.end(), copy.fragments.begin()))
      << "this standard library walks the set in another order than the tests expect";
  copy.selection.indexLists = makeStrong<MemCore::Chunk<StrongPtr<IndexList>>>();
  for (const Fiber::FragmentHandle& fragment : copy.fragments) {
    const auto chosen = selected.find(fragment->name());
    StrongPtr<IndexList> list;
    if (chosen != selected.end()) {
      list = makeStrong<IndexList>(std::span<const unsigned int>(chosen->second));
      copy.selection.pointCount += static_cast<std::uint32_t>(list->size());
    }
    copy.selection.indexLists->push_back(list);
  }
}

void TileRig::becomeFragmentOf(const StrongPtr<Fiber::Grid>& output,
                               const StrongPtr<Fiber::RegularlyFragmentedField<3>>& positions,
                               const Fiber::MultiIndex<3>& index) {
  copy.outputGrid = output;
  copy.templateField = positions;
  copy.tileIndex = index;
  copy.outputFragment = positions->fragmentAt(index);
}

void TileRig::copyAll(CopyOrder order) {
  copy.waveformLengths = scanWaveformLengths(*input, copy.fragments, *copy.selection.indexLists);
  const auto vertices = input->skeletons().findVertices(-1);
  if (order == CopyOrder::FragmentByFragment) return copyFieldsIntoTile(copy, *vertices);
  std::unordered_set<unsigned long long> visited;
  vertices->iterate_fields(
      [this](const MemCore::WeakPtr<Fiber::BaseSpace>& space, Fiber::Representation&,
             const Fiber::FieldID& id, const StrongPtr<Fiber::Field>& source) {
        return copyFieldIntoTile(copy, space, id, source);
      },
      visited);
}

StrongPtr<Fiber::Field> TileRig::field(const std::string& name) const {
  const auto representation = copy.outputGrid->getCartesianRepresentation("");
  return representation ? representation->findField(name) : nullptr;
}

StrongPtr<Fiber::MemBase> TileRig::data(const std::string& name) const {
  const auto output = field(name);
  if (!output) return nullptr;
  return output->getData(output->getFragmentID(Fiber::tileIndexText(copy.tileIndex)));
}

std::vector<std::uint64_t> TileRig::extents(const std::string& name) const {
  const auto array = data(name);
  if (!array) return {};
  const auto sizes = array->size().extents();
  return {sizes.begin(), sizes.end()};
}

}  // namespace LidarLib::TestSupport
