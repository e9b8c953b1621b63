// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FieldAttributes.hpp"

#include <fmt/format.h>

#include <array>

#include "datamodel/container/AttributeTable.hpp"
#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/ElementTypes.hpp"
#include "datamodel/container/FormatNames.hpp"

namespace Fiber::Container {

using MemCore::Attributes;
using MemCore::Outcome;

namespace {

void writeType(ObjectValues& values, const StoredField& field,
               std::optional<ScalarKind> storedKind) {
  if (!field.type) return;
  const bool isPlain = storedKind && plainType(*storedKind)->name() == field.type->name();
  if (!isPlain) setText(values, kElementTypeAttribute, field.type->name());
  if (field.rank != 1) setNumber(values, kRankAttribute, static_cast<std::uint32_t>(field.rank));
}

void writeFragmentation(ObjectValues& values, const StoredField& field) {
  if (!field.fragmentCounts) return;
  setNumbers<std::uint64_t>(values, kFragmentCountsAttribute, field.fragmentCounts->components);
  setText(values, kFragmentationAttribute, field.fragmentationName);
}

void writeInterfaces(ObjectValues& values, const StoredField& field) {
  if (field.box) {
    const auto& min = field.box->min();
    const auto& max = field.box->max();
    const std::array<double, 6> corners = {min.x, min.y, min.z, max.x, max.y, max.z};
    setNumbers<double>(values, kBoxAttribute, corners);
  }
  if (!field.range) return;
  const std::array<double, 2> range = {field.range->min, field.range->max};
  setNumbers<double>(values, kRangeAttribute, range);
}

void writeGrid(ObjectValues& values, const std::optional<CoordinateGrid>& grid) {
  if (!grid) return;
  std::array<double, 3> scale{};
  std::array<double, 3> offset{};
  for (std::size_t axis = 0; axis < grid->size(); ++axis) {
    scale[axis] = (*grid)[axis].scale;
    offset[axis] = (*grid)[axis].offset;
  }
  setNumbers<double>(values, kScaleAttribute, scale);
  setNumbers<double>(values, kOffsetAttribute, offset);
}

Outcome<void> writeProperties(OutputFile& output, const FieldTarget& target,
                              const StoredField& field) {
  StoredAttributes stored;
  addAttributes(stored, field.properties, kFieldWords, 0);
  std::uint32_t number = 0;
  for (const Attributes& set : field.attributeSets) {
    addAttributes(stored, set, kFieldWords, ++number);
  }
  ObjectValues& values = target.dataset.attributes;
  writePropertyBits(values, field.propertyBits);
  return writeAttributes(output, {values, target.group, largeGroupOf(target.name)}, stored);
}

}  // namespace

std::string largeGroupOf(const std::string& storedName) {
  return fmt::format("{}/{}", kLargeAttributes, storedName);
}

Outcome<void> writeFieldAttributes(OutputFile& output, const FieldTarget& target,
                                   const StoredField& field, std::optional<ScalarKind> storedKind,
                                   const std::optional<CoordinateGrid>& grid) {
  ObjectValues& values = target.dataset.attributes;
  writeType(values, field, storedKind);
  writeFragmentation(values, field);
  writeInterfaces(values, field);
  writeGrid(values, grid);
  return writeProperties(output, target, field);
}

}  // namespace Fiber::Container
