// SPDX-License-Identifier: Apache-2.0

#include "host/BundleFacts.hpp"

#include <algorithm>
#include <filesystem>

#include "datamodel/container/StoredCreator.hpp"
#include "planning/TilingAttributes.hpp"

namespace Host {

using Fiber::DataCreationMode;
using MemCore::StrongPtr;
namespace fs = std::filesystem;

namespace {

template <class T>
const MemCore::Chunk<T>* attribute(const Fiber::Grid& grid, const std::string& name,
                                   std::size_t count) {
  const auto chunk = MemCore::chunkCast<T>(grid.attributes().getAttribute(name));
  return chunk && chunk->size() == count ? chunk.get() : nullptr;
}

TilingFacts tilingFacts(const Fiber::Grid& grid) {
  using Eagle::PhysicalSpace;
  TilingFacts facts;
  if (const auto* length =
          attribute<PhysicalSpace::point>(grid, LidarLib::kFragLengthAttribute, 1)) {
    facts.fragmentLength = {(*length)[0].x, (*length)[0].y, (*length)[0].z};
  }
  if (const auto* counts = attribute<std::uint32_t>(grid, LidarLib::kFragDimsAttribute, 3)) {
    facts.dimensions = {(*counts)[0], (*counts)[1], (*counts)[2]};
  }
  if (const auto* overlap = attribute<double>(grid, LidarLib::kOverlapAttribute, 1)) {
    facts.overlap = (*overlap)[0];
  }
  return facts;
}

std::vector<Fiber::CreatorHandle> creatorsOf(const Fiber::Field& field) {
  std::vector<Fiber::CreatorHandle> creators;
  for (const auto& id : field.getFragmentIDs()) {
    if (auto creator = field.getCreator(id)) creators.push_back(std::move(creator));
  }
  return creators;
}

std::optional<Fiber::ValueRange> joined(const std::optional<Fiber::ValueRange>& a,
                                        const Fiber::ValueRange& b) {
  if (!a) return b;
  return Fiber::ValueRange{std::min(a->min, b.min), std::max(a->max, b.max)};
}

std::optional<Fiber::ValueRange> rangeOfField(const std::vector<Fiber::CreatorHandle>& creators,
                                              bool compute) {
  std::optional<Fiber::ValueRange> range;
  for (const auto& creator : creators) {
    const bool isEmpty = creator->facts().size && creator->facts().size->elementCount() == 0;
    if (isEmpty) continue;
    const auto own = compute ? Fiber::rangeOf(*creator) : creator->facts().range;
    if (!own) return std::nullopt;
    range = joined(range, *own);
  }
  return range;
}

FieldFacts fieldFacts(const std::string& name, const Fiber::Field& field, bool computeRanges) {
  FieldFacts facts;
  facts.name = name;
  const auto creators = creatorsOf(field);
  for (const auto& creator : creators) {
    const Fiber::ArrayFacts known = creator->facts();
    if (known.type && facts.type.empty()) facts.type = known.type->name();
    if (known.size && facts.rank == 0) facts.rank = known.size->rank();
  }
  facts.range = rangeOfField(creators, computeRanges);
  return facts;
}

/// The file that a linked fragment's data are in, told from the folder of the bundle; empty for
/// data in the bundle itself or in no bundle.
std::string linkedFile(const Fiber::CreatorHandle& creator, const fs::path& bundle) {
  const auto stored = MemCore::handleCast<Fiber::Container::StoredCreator>(creator);
  if (!stored || bundle.empty()) return {};
  const fs::path file = fs::absolute(stored->place().source->file.path).lexically_normal();
  return file == bundle ? std::string() : file.lexically_relative(bundle.parent_path()).string();
}

std::vector<FragmentFacts> fragmentFacts(const Fiber::Field& positions,
                                         const FactOptions& options) {
  const auto mode =
      options.computeRanges ? DataCreationMode::KnownOrCreate : DataCreationMode::KnownOnly;
  std::vector<FragmentFacts> fragments;
  for (const auto& id : positions.getFragmentIDs()) {
    const auto creator = positions.getCreator(id);
    if (!creator) continue;
    FragmentFacts facts;
    facts.name = id->name();
    facts.index = Fiber::parseTileIndex(id->name());
    facts.pointCount = Fiber::pointCountOf(*creator);
    Fiber::ExpandBBox(facts.box, *creator, mode);
    facts.file = linkedFile(creator, options.file);
    fragments.push_back(std::move(facts));
  }
  return fragments;
}

/// Sums up the fragments; a box is known when that of every fragment with points is.
void summarise(GridFacts& facts) {
  bool isBoxKnown = true;
  for (const FragmentFacts& fragment : facts.fragments) {
    facts.pointCount += fragment.pointCount;
    if (!fragment.box) {
      isBoxKnown = isBoxKnown && fragment.pointCount == 0;
    } else if (facts.box) {
      facts.box->expand(*fragment.box);
    } else {
      facts.box = MemCore::makeStrong<Eagle::BoundingBox>(fragment.box->min(), fragment.box->max());
    }
  }
  if (!isBoxKnown) facts.box = nullptr;
}

GridFacts gridFacts(double time, const Fiber::Grid& grid, const FactOptions& options) {
  GridFacts facts;
  facts.name = grid.name();
  facts.time = time;
  facts.tiling = tilingFacts(grid);
  if (const auto vertices = grid.skeletons().findVertices(-1)) {
    for (const auto& [chart, entry] : vertices->representations().all()) {
      for (const auto& [name, field] : entry.representation->fields()) {
        facts.fields.push_back(fieldFacts(name, *field, options.computeRanges));
      }
    }
  }
  if (const auto positions = grid.CartesianPositions()) {
    facts.fragments = fragmentFacts(*positions, options);
  }
  summarise(facts);
  return facts;
}

}  // namespace

std::vector<GridFacts> gatherFacts(const Fiber::Bundle& bundle, const FactOptions& options) {
  std::vector<GridFacts> all;
  for (const auto& [time, slice] : bundle.slices()) {
    if (!slice) continue;
    slice->accessSlice();
    for (const auto& [name, grid] : slice->grids()) {
      if (grid) all.push_back(gridFacts(time, *grid, options));
    }
  }
  return all;
}

}  // namespace Host
