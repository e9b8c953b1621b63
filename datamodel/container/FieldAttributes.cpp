// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FieldAttributes.hpp"

#include <fmt/format.h>

#include <array>

#include "datamodel/container/ElementTypes.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/Hdf5Attributes.hpp"

namespace Fiber::Container {

using MemCore::Attributes;
using MemCore::Outcome;

namespace {

Outcome<void> writeType(hid_t dataset, const StoredField& field,
                        std::optional<ScalarKind> storedKind) {
  if (!field.type) return {};
  const bool isPlain = storedKind && plainType(*storedKind)->name() == field.type->name();
  if (!isPlain) {
    auto done = writeText(dataset, kElementTypeAttribute, field.type->name());
    if (!done.ok()) return done;
  }
  if (field.rank == 1) return {};
  return writeNumber(dataset, kRankAttribute, static_cast<std::uint32_t>(field.rank));
}

Outcome<void> writeFragmentation(hid_t dataset, const StoredField& field) {
  if (!field.fragmentCounts) return {};
  const std::span<const std::uint64_t> counts(field.fragmentCounts->components);
  auto done = writeNumbers<std::uint64_t>(dataset, kFragmentCountsAttribute, counts);
  if (!done.ok()) return done;
  return writeText(dataset, kFragmentationAttribute, field.fragmentationName);
}

Outcome<void> writeInterfaces(hid_t dataset, const StoredField& field) {
  if (field.box) {
    const auto& min = field.box->min();
    const auto& max = field.box->max();
    const std::array<double, 6> corners = {min.x, min.y, min.z, max.x, max.y, max.z};
    if (auto done = writeNumbers<double>(dataset, kBoxAttribute, corners); !done.ok()) return done;
  }
  if (!field.range) return {};
  const std::array<double, 2> range = {field.range->min, field.range->max};
  return writeNumbers<double>(dataset, kRangeAttribute, range);
}

Outcome<void> writeGrid(hid_t dataset, const std::optional<CoordinateGrid>& grid) {
  if (!grid) return {};
  std::array<double, 3> scale{};
  std::array<double, 3> offset{};
  for (std::size_t axis = 0; axis < grid->size(); ++axis) {
    scale[axis] = (*grid)[axis].scale;
    offset[axis] = (*grid)[axis].offset;
  }
  if (auto done = writeNumbers<double>(dataset, kScaleAttribute, scale); !done.ok()) return done;
  return writeNumbers<double>(dataset, kOffsetAttribute, offset);
}

Outcome<void> writeProperties(const FieldDataset& target, const StoredField& field) {
  StoredAttributes stored;
  addAttributes(stored, field.properties, kFieldWords, 0);
  std::uint32_t number = 0;
  for (const Attributes& set : field.attributeSets) {
    addAttributes(stored, set, kFieldWords, ++number);
  }
  if (auto done = writeAttributes(attributePlace(target), stored); !done.ok()) return done;
  return writePropertyBits(target.dataset, field.propertyBits);
}

}  // namespace

AttributePlace attributePlace(const FieldDataset& target) {
  return {target.dataset, target.group, fmt::format("{}/{}", kLargeAttributes, target.name),
          kFieldWords};
}

Outcome<void> writeFieldAttributes(const FieldDataset& target, const StoredField& field,
                                   std::optional<ScalarKind> storedKind,
                                   const std::optional<CoordinateGrid>& grid) {
  const hid_t dataset = target.dataset;
  if (auto done = writeType(dataset, field, storedKind); !done.ok()) return done;
  if (auto done = writeFragmentation(dataset, field); !done.ok()) return done;
  if (auto done = writeInterfaces(dataset, field); !done.ok()) return done;
  if (auto done = writeGrid(dataset, grid); !done.ok()) return done;
  return writeProperties(target, field);
}

}  // namespace Fiber::Container
