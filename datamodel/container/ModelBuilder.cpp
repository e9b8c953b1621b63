// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ModelBuilder.hpp"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <map>

#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/StoredCreator.hpp"
#include "datamodel/container/StoredName.hpp"
#include "datamodel/container/TableCheck.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

using Point = Eagle::PhysicalSpace::point;

/// Builds the fields of one representation.
class RepresentationBuilder {
 public:
  RepresentationBuilder(const FileIdentity& file, const StoredRepresentation& stored,
                        Representation& representation)
      : stored_(stored),
        table_(stored.table),
        representation_(representation),
        ownSource_(std::make_shared<StoredSource>(StoredSource{file, stored.group})),
        folder_(std::filesystem::path(file.path).parent_path()) {}

  void build() {
    makeFragments();
    for (std::size_t f = 0; f < stored_.fields.size(); ++f) {
      representation_.setField(stored_.fields[f].name, buildField(f));
    }
  }

 private:
  void makeFragments() {
    const auto& collection = representation_.fragments();
    for (std::size_t row = 0; row < table_.rowCount(); ++row) {
      fragments_.push_back(
          collection->makeFragmentID(originalName(table_.text(row, Column::kName)),
                                     table_.get<std::uint32_t>(row, Column::kNumber)));
      sources_.push_back(sourceOf(row));
      grids_.push_back(gridOf(row));
    }
  }

  StrongPtr<Field> buildField(std::size_t f) {
    const StoredField& stored = stored_.fields[f];
    auto field = emptyField(stored);
    field->properties() = stored.properties;
    field->propertyBits = stored.propertyBits;
    field->addInterface(stored.box);
    if (stored.range) field->addInterface(makeStrong<DataRangeBase>(*stored.range));
    const auto dataset =
        std::make_shared<const std::string>(storedName(stored.name, kRepresentationWords));
    for (std::size_t row = 0; row < table_.rowCount(); ++row) {
      if (const auto creator = makeCreator(row, f, dataset)) {
        field->setCreator(fragments_[row], creator);
      }
    }
    return field;
  }

  StrongPtr<Field> emptyField(const StoredField& stored) const {
    if (!stored.fragmentCounts) return makeStrong<Field>(representation_.fragments());
    return makeStrong<RegularlyFragmentedField<3>>(*stored.fragmentCounts, stored.fragmentationName,
                                                   representation_.fragments());
  }

  CreatorHandle makeCreator(std::size_t row, std::size_t f,
                            const std::shared_ptr<const std::string>& dataset) const {
    const FieldPart part = fieldPart(stored_, row, f);
    if (!part.present) return nullptr;
    StoredPlace place;
    place.source = sources_[row];
    place.dataset = dataset;
    place.start = part.start;
    if (table_.has(Column::kChecksum)) {
      place.checksum = table_.get<std::uint32_t>(row, Column::kChecksum, f);
    }
    if (stored_.fields[f].name == kPositions) place.grid = grids_[row];
    CreatorHandle creator = makeStrong<StoredCreator>(factsOf(row, f, part), std::move(place));
    if (const std::uint32_t set = attributeSet(row, f); set != 0) {
      creator->attributes() = stored_.fields[f].attributeSets[set - 1];
    }
    return creator;
  }

  std::uint32_t attributeSet(std::size_t row, std::size_t f) const {
    if (!table_.has(Column::kAttributeSet)) return 0;
    return table_.get<std::uint32_t>(row, Column::kAttributeSet, f);
  }

  ArrayFacts factsOf(std::size_t row, std::size_t f, const FieldPart& part) const {
    ArrayFacts facts;
    facts.type = stored_.fields[f].type;
    facts.size = part.size;
    if (stored_.fields[f].name == kPositions) facts.box = boxOf(row);
    const ValueRange range{table_.get<double>(row, Column::kFieldMin, f),
                           table_.get<double>(row, Column::kFieldMax, f)};
    if (!std::isnan(range.min) && !std::isnan(range.max)) facts.range = range;
    return facts;
  }

  Point pointAt(std::size_t row, Column column) const {
    return {table_.get<double>(row, column, 0), table_.get<double>(row, column, 1),
            table_.get<double>(row, column, 2)};
  }

  StrongPtr<Eagle::BoundingBox> boxOf(std::size_t row) const {
    const Point min = pointAt(row, Column::kBoxMin);
    const Point max = pointAt(row, Column::kBoxMax);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (std::isnan(min[axis]) || std::isnan(max[axis])) return nullptr;
    }
    return makeStrong<Eagle::BoundingBox>(min, max);
  }

  std::shared_ptr<const StoredSource> sourceOf(std::size_t row) {
    if (!table_.isLinked(row)) return ownSource_;
    const auto group = table_.get<std::uint32_t>(row, Column::kSourceGroup);
    StoredSource source;
    source.file.path = (folder_ / table_.text(row, Column::kFile)).lexically_normal().string();
    source.file.sizeBytes = table_.get<std::uint64_t>(row, Column::kFileSize);
    source.file.contentId = table_.get<std::uint64_t>(row, Column::kContentId);
    source.group = stored_.sourceGroups[group];
    return std::make_shared<const StoredSource>(std::move(source));
  }

  std::shared_ptr<const CoordinateGrid> gridOf(std::size_t row) const {
    if (!table_.has(Column::kGridScale)) return nullptr;
    CoordinateGrid grid;
    for (std::size_t axis = 0; axis < grid.size(); ++axis) {
      grid[axis] = {table_.get<double>(row, Column::kGridScale, axis),
                    table_.get<double>(row, Column::kGridOffset, axis)};
    }
    if (std::isnan(grid[0].scale)) return nullptr;
    return std::make_shared<const CoordinateGrid>(grid);
  }

  const StoredRepresentation& stored_;
  const FragmentTable& table_;
  Representation& representation_;
  std::shared_ptr<const StoredSource> ownSource_;
  std::filesystem::path folder_;
  std::vector<FragmentHandle> fragments_;  ///< by row, as the two below
  std::vector<std::shared_ptr<const StoredSource>> sources_;
  std::vector<std::shared_ptr<const CoordinateGrid>> grids_;
};

void buildGrid(const FileIdentity& file, const StoredGrid& stored, Grid& grid) {
  grid.attributes() = stored.attributes;
  grid.propertyBits = stored.propertyBits;
  for (const StoredSkeleton& skeleton : stored.skeletons) {
    const auto made = grid.skeletons()[SkeletonID{skeleton.dimension, skeleton.refinement}];
    for (const StoredRepresentation& representation : skeleton.representations) {
      grid.makeCartesianChart(representation.chart, 0);
      const auto target = (*made)[grid.baseSpace(representation.chart)];
      RepresentationBuilder(file, representation, *target).build();
    }
  }
}

}  // namespace

Outcome<void> buildModel(const StoredBundle& stored, Bundle& bundle) {
  for (const StoredSlice& storedSlice : stored.slices) {
    const auto slice = bundle[storedSlice.time];
    for (const StoredGrid& storedGrid : storedSlice.grids) {
      if (slice->findGrid(storedGrid.name)) {
        return Failure{fmt::format("{}: grid {} at time {}: the bundle has one of that name",
                                   stored.file.path, storedGrid.name, timeText(storedSlice.time))};
      }
      buildGrid(stored.file, storedGrid, *slice->newGrid(storedGrid.name));
    }
  }
  return {};
}

}  // namespace Fiber::Container
