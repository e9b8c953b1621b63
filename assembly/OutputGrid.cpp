// SPDX-License-Identifier: Apache-2.0

#include "assembly/OutputGrid.hpp"

#include "planning/TilingAttributes.hpp"

namespace LidarLib {

using Eagle::PhysicalSpace;
using MemCore::Chunk;
using MemCore::makeStrong;

namespace {

constexpr int kSpaceDimension = 3;
constexpr double kNoCellSize = -1.0;

}  // namespace

RegularPositions makeRegularPositions(Fiber::Grid& grid, const Fiber::MultiIndex<3>& counts) {
  if (const auto present = grid.CartesianPositions()) {
    auto regular = MemCore::handleCast<Fiber::RegularlyFragmentedField<3>>(present);
    return regular && regular->counts() == counts ? regular : nullptr;
  }
  const auto representation = grid.makeCartesianRepresentation(kSpaceDimension, "", 0);
  if (!representation) return nullptr;
  auto made = makeStrong<Fiber::RegularlyFragmentedField<3>>(counts, "RegularFragment",
                                                             representation->fragments());
  representation->setPositions(made);
  return made;
}

void addTilingAttributes(const TilingLayout& layout, Fiber::Grid& grid) {
  MemCore::Attributes& attributes = grid.attributes();
  attributes.setAttribute(
      kFragDimsAttribute,
      makeStrong<Chunk<unsigned int>>(std::initializer_list<unsigned int>{
          static_cast<unsigned int>(layout.nx), static_cast<unsigned int>(layout.ny),
          static_cast<unsigned int>(layout.nz)}));
  const auto& length = layout.fragmentLength;
  attributes.setAttribute(kFragLengthAttribute,
                          makeStrong<Chunk<PhysicalSpace::point>>(
                              1, PhysicalSpace::point{length[0], length[1], length[2]}));
  attributes.setAttribute(kOverlapAttribute,
                          makeStrong<Chunk<double>>(1, layout.normalizedOverlap));
}

OutputGrid buildOutputGrid(const Fiber::Grid& inputGrid, Fiber::Grid& outputGrid,
                           const TilingLayout& layout, std::string& message) {
  outputGrid.attributes() = inputGrid.attributes();
  outputGrid.propertyBits = inputGrid.propertyBits;
  addTilingAttributes(layout, outputGrid);
  const RegularPositions positions =
      makeRegularPositions(outputGrid, {{layout.nx, layout.ny, layout.nz}});
  if (!positions) {
    message = "no output positions";
    return {};
  }
  const auto representation = outputGrid.makeCartesianRepresentation(kSpaceDimension, "", 0);
  if (!representation) {
    message = "no output representation";
    return {};
  }
  // The view sees to the vertex skeleton and its positions; nothing else is wanted of it.
  const Fiber::GridWithCartesianVertices view(outputGrid.handle(), positions);
  return {representation, positions};
}

void finishTilePositions(const Fiber::CreatorHandle& creator,
                         const MemCore::StrongPtr<Fiber::Field>& positions) {
  if (!creator) return;
  setCellSizeAttribute(*creator, kNoCellSize);
  const auto attached = positions ? positions->findInterface<Eagle::BoundingBox>() : nullptr;
  if (!attached) {
    MemCore::StrongPtr<Eagle::BoundingBox> box;
    Fiber::expandBoundingBox(positions, box);
    return;
  }
  // The tiles before this one are in the field's box already: walking all of them again for every
  // tile would take quadratic time.
  auto grown = makeStrong<Eagle::BoundingBox>(*attached);
  Fiber::ExpandBBox(grown, *creator, Fiber::DataCreationMode::KnownOrCreate);
  positions->addInterface(grown);
}

}  // namespace LidarLib
