// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FieldScan.hpp"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "datamodel/container/AttributeTable.hpp"
#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/ElementTypes.hpp"
#include "datamodel/container/FieldAttributes.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/StoredName.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;

namespace {

using Point = Eagle::PhysicalSpace::point;

/// The element type: named by an attribute, or the plain number that the dataset holds.
Outcome<MemCore::StrongPtr<FiberTypeBase>> typeOf(const ObjectDataset& dataset) {
  if (hasValue(dataset.attributes, kElementTypeAttribute)) {
    const auto name = textIn(dataset.attributes, kElementTypeAttribute);
    if (!name.ok()) return name.failure();
    auto type = FiberTypeBase::find(*name);
    if (!type) return Failure{fmt::format("element type is not known, found \"{}\"", *name)};
    return type;
  }
  const ObjectType& type = dataset.value.type;
  if (type.kind == ObjectType::Kind::kNumber) return plainType(type.scalar);
  return Failure{"its numbers are of a type that bundle files do not use"};
}

Outcome<void> scanType(const ObjectDataset& dataset, StoredField& field) {
  const ObjectExtents& extents = dataset.value.extents;
  if (extents.rank == ObjectExtents::kNone) return {};
  if (extents.rank < 1 || extents.rank > ObjectExtents::kMostRank) {
    return Failure{
        fmt::format("wrong number of dimensions, found {}, expected 1 or 2", extents.rank)};
  }
  auto type = typeOf(dataset);
  if (!type.ok()) return type.failure();
  field.type = std::move(type).value();
  field.rows = extents.counts[0];
  field.columns = extents.counts[1];
  if (!hasValue(dataset.attributes, kRankAttribute)) return {};
  const auto rank = numberIn<std::uint32_t>(dataset.attributes, kRankAttribute);
  if (!rank.ok()) return rank.failure();
  if (*rank < 1 || *rank > DynamicSize::kMaxRank) {
    return Failure{
        fmt::format("wrong rank, found {}, expected 1 to {}", *rank, DynamicSize::kMaxRank)};
  }
  field.rank = *rank;
  return {};
}

Outcome<void> scanFragmentation(const ObjectValues& values, StoredField& field) {
  if (!hasValue(values, kFragmentCountsAttribute)) return {};
  const auto counts = numbersIn<std::uint64_t>(values, kFragmentCountsAttribute, 3);
  if (!counts.ok()) return counts.failure();
  auto name = textIn(values, kFragmentationAttribute);
  if (!name.ok()) return name.failure();
  field.fragmentCounts = MultiIndex<3>{{(*counts)[0], (*counts)[1], (*counts)[2]}};
  field.fragmentationName = std::move(name).value();
  return {};
}

Outcome<void> scanInterfaces(const ObjectValues& values, StoredField& field) {
  if (hasValue(values, kBoxAttribute)) {
    const auto corners = numbersIn<double>(values, kBoxAttribute, 6);
    if (!corners.ok()) return corners.failure();
    const std::vector<double>& c = *corners;
    field.box = makeStrong<Eagle::BoundingBox>(Point{c[0], c[1], c[2]}, Point{c[3], c[4], c[5]});
  }
  if (hasValue(values, kRangeAttribute)) {
    const auto range = numbersIn<double>(values, kRangeAttribute, 2);
    if (!range.ok()) return range.failure();
    field.range = ValueRange{(*range)[0], (*range)[1]};
  }
  return {};
}

Outcome<void> scanAttributes(const AttributeSource& source, StoredField& field) {
  auto table = readAttributes(source);
  if (!table.ok()) return table.failure();
  field.properties = std::move(table->attributes);
  std::uint32_t expected = 0;
  for (auto& [number, attributes] : table->sets) {
    if (number != ++expected) {
      return Failure{
          fmt::format("an attribute set is missing, found {}, expected {}", number, expected)};
    }
    field.attributeSets.push_back(std::move(attributes));
  }
  const auto bits = readPropertyBits(source.values);
  if (!bits.ok()) return bits.failure();
  field.propertyBits = *bits;
  return {};
}

}  // namespace

Outcome<StoredField> scanField(const ObjectFile& file, const ObjectGroup& group,
                               const std::string& name) {
  const ObjectDataset& dataset = group.datasets.at(name);
  const ObjectValues& values = dataset.attributes;
  StoredField field;
  field.name = originalName(name);
  if (auto done = scanType(dataset, field); !done.ok()) return done.failure();
  if (auto done = scanFragmentation(values, field); !done.ok()) return done.failure();
  if (auto done = scanInterfaces(values, field); !done.ok()) return done.failure();
  const AttributeSource source{file, values, group, largeGroupOf(name), kFieldWords};
  if (auto done = scanAttributes(source, field); !done.ok()) return done.failure();
  return field;
}

}  // namespace Fiber::Container
