// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ModelBuilder.hpp"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <mutex>
#include <vector>

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

/// The rows of one representation, from which the creators of its fields are made. Threads: any.
class StoredRows {
 public:
  /// `stored` is part of a bundle description that it keeps alive.
  StoredRows(const FileIdentity& file, std::shared_ptr<const StoredRepresentation> stored)
      : stored_(std::move(stored)),
        table_(stored_->table),
        ownSource_(std::make_shared<StoredSource>(StoredSource{file, stored_->group})),
        folder_(std::filesystem::path(file.path).parent_path()),
        linkedSources_(table_.has(Column::kFile) ? table_.rowCount() : 0) {}

  /// The numbers of all fragments, ascending.
  std::vector<unsigned> numbers() const {
    std::vector<unsigned> numbers(table_.rowCount());
    for (std::size_t row = 0; row < numbers.size(); ++row) {
      numbers[row] = table_.get<std::uint32_t>(row, Column::kNumber);
    }
    return numbers;
  }

  /// Requires: a fragment has the number.
  std::string nameOf(unsigned number) const {
    return originalName(table_.text(rowOf(number), Column::kName));
  }

  /// The creator of field f for the fragment of a number; empty when there is none.
  CreatorHandle makeCreator(unsigned number, std::size_t f,
                            const std::shared_ptr<const std::string>& dataset) const {
    const std::size_t row = rowOf(number);
    if (row == table_.rowCount()) return nullptr;
    const FieldPart part = fieldPart(*stored_, row, f);
    if (!part.present) return nullptr;
    StoredPlace place;
    place.source = sourceOf(row);
    place.dataset = dataset;
    place.start = part.start;
    if (table_.has(Column::kChecksum)) {
      place.checksum = table_.get<std::uint32_t>(row, Column::kChecksum, f);
    }
    if (stored_->fields[f].name == kPositions) place.grid = gridOf(row);
    CreatorHandle creator = makeStrong<StoredCreator>(factsOf(row, f, part), std::move(place));
    if (const std::uint32_t set = attributeSet(row, f); set != 0) {
      creator->attributes() = stored_->fields[f].attributeSets[set - 1];
    }
    return creator;
  }

 private:
  /// The row of a fragment, by halving: rows are in ascending order of number. The count of rows
  /// where there is none.
  std::size_t rowOf(unsigned number) const {
    // A tiling without gaps needs no search.
    if (number < table_.rowCount() &&
        table_.get<std::uint32_t>(number, Column::kNumber) == number) {
      return number;
    }
    std::size_t low = 0;
    std::size_t high = table_.rowCount();
    while (low < high) {
      const std::size_t middle = low + (high - low) / 2;
      const auto found = table_.get<std::uint32_t>(middle, Column::kNumber);
      if (found == number) return middle;
      if (found < number) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return table_.rowCount();
  }

  std::uint32_t attributeSet(std::size_t row, std::size_t f) const {
    if (!table_.has(Column::kAttributeSet)) return 0;
    return table_.get<std::uint32_t>(row, Column::kAttributeSet, f);
  }

  ArrayFacts factsOf(std::size_t row, std::size_t f, const FieldPart& part) const {
    ArrayFacts facts;
    facts.type = stored_->fields[f].type;
    facts.size = part.size;
    if (stored_->fields[f].name == kPositions) facts.box = boxOf(row);
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

  /// The file of a row, shared by all fields.
  std::shared_ptr<const StoredSource> sourceOf(std::size_t row) const {
    if (!table_.isLinked(row)) return ownSource_;
    const std::lock_guard lock(mutex_);
    auto& known = linkedSources_[row];
    if (!known) known = linkedSource(row);
    return known;
  }

  std::shared_ptr<const StoredSource> linkedSource(std::size_t row) const {
    const auto group = table_.get<std::uint32_t>(row, Column::kSourceGroup);
    StoredSource source;
    source.file.path = (folder_ / table_.text(row, Column::kFile)).lexically_normal().string();
    source.file.sizeBytes = table_.get<std::uint64_t>(row, Column::kFileSize);
    source.file.contentId = table_.get<std::uint64_t>(row, Column::kContentId);
    source.group = stored_->sourceGroups[group];
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

  const std::shared_ptr<const StoredRepresentation> stored_;
  const FragmentTable& table_;
  const std::shared_ptr<const StoredSource> ownSource_;
  const std::filesystem::path folder_;
  mutable std::mutex mutex_;
  mutable std::vector<std::shared_ptr<const StoredSource>> linkedSources_;  ///< by row
};

/// The creators of one field.
class StoredFieldSource final : public CreatorSource {
 public:
  StoredFieldSource(std::shared_ptr<const StoredRows> rows, std::size_t field,
                    const std::string& name)
      : rows_(std::move(rows)),
        field_(field),
        dataset_(std::make_shared<const std::string>(storedName(name, kRepresentationWords))) {}

  CreatorHandle make(unsigned fragmentNumber) const override {
    return rows_->makeCreator(fragmentNumber, field_, dataset_);
  }

 private:
  std::shared_ptr<const StoredRows> rows_;
  std::size_t field_;
  std::shared_ptr<const std::string> dataset_;
};

/// The names of the fragments of one representation.
class StoredNames final : public FragmentNames {
 public:
  explicit StoredNames(std::shared_ptr<const StoredRows> rows) : rows_(std::move(rows)) {}
  std::string nameOf(unsigned number) const override { return rows_->nameOf(number); }

 private:
  std::shared_ptr<const StoredRows> rows_;
};

StrongPtr<Field> emptyField(const StoredField& stored,
                            const StrongPtr<FragmentIDCollection>& fragments) {
  if (!stored.fragmentCounts) return makeStrong<Field>(fragments);
  return makeStrong<RegularlyFragmentedField<3>>(*stored.fragmentCounts, stored.fragmentationName,
                                                 fragments);
}

void buildRepresentation(const FileIdentity& file,
                         const std::shared_ptr<const StoredRepresentation>& stored,
                         Representation& representation) {
  const auto rows = std::make_shared<const StoredRows>(file, stored);
  representation.fragments()->makeFragmentIDs(rows->numbers(), makeStrong<StoredNames>(rows));
  for (std::size_t f = 0; f < stored->fields.size(); ++f) {
    const StoredField& description = stored->fields[f];
    const auto field = emptyField(description, representation.fragments());
    field->properties() = description.properties;
    field->propertyBits = description.propertyBits;
    field->addInterface(description.box);
    if (description.range) field->addInterface(makeStrong<DataRangeBase>(*description.range));
    field->setCreatorSource(makeStrong<StoredFieldSource>(rows, f, description.name));
    representation.setField(description.name, field);
  }
}

void buildGrid(const std::shared_ptr<const StoredBundle>& bundle, const StoredGrid& stored,
               Grid& grid) {
  grid.attributes() = stored.attributes;
  grid.propertyBits = stored.propertyBits;
  for (const StoredSkeleton& skeleton : stored.skeletons) {
    const auto made = grid.skeletons()[SkeletonID{skeleton.dimension, skeleton.refinement}];
    for (const StoredRepresentation& representation : skeleton.representations) {
      grid.makeCartesianChart(representation.chart, 0);
      const auto target = (*made)[grid.baseSpace(representation.chart)];
      buildRepresentation(bundle->file, {bundle, &representation}, *target);
    }
  }
}

}  // namespace

Outcome<void> buildModel(const std::shared_ptr<const StoredBundle>& stored, Bundle& bundle) {
  for (const StoredSlice& storedSlice : stored->slices) {
    const auto slice = bundle[storedSlice.time];
    for (const StoredGrid& storedGrid : storedSlice.grids) {
      if (slice->findGrid(storedGrid.name)) {
        return Failure{fmt::format("{}: grid {} at time {}: the bundle has one of that name",
                                   stored->file.path, storedGrid.name, timeText(storedSlice.time))};
      }
      buildGrid(stored, storedGrid, *slice->newGrid(storedGrid.name));
    }
  }
  return {};
}

}  // namespace Fiber::Container
