// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FieldScan.hpp"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "datamodel/container/ElementTypes.hpp"
#include "datamodel/container/FieldAttributes.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/Hdf5Attributes.hpp"
#include "datamodel/container/Hdf5Types.hpp"
#include "datamodel/container/Hdf5Walk.hpp"
#include "datamodel/container/StoredName.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;

namespace {

using Point = Eagle::PhysicalSpace::point;

/// Extents of a dataset: none for a field without data.
struct Extents {
  bool none = false;
  std::uint64_t rows = 0;
  std::uint64_t columns = 1;
};

Outcome<Extents> extentsOf(hid_t dataset) {
  const DataspaceHandle space(H5Dget_space(dataset));
  if (!space.ok()) return Failure{takeHdf5Error()};
  Extents extents;
  if (H5Sget_simple_extent_type(space.get()) == H5S_NULL) {
    extents.none = true;
    return extents;
  }
  constexpr int kMaxRank = 2;
  std::array<hsize_t, kMaxRank> found = {0, 1};
  const int rank = H5Sget_simple_extent_ndims(space.get());
  if (rank < 1 || rank > kMaxRank ||
      H5Sget_simple_extent_dims(space.get(), found.data(), nullptr) != rank) {
    return Failure{fmt::format("wrong number of dimensions, found {}, expected 1 or 2", rank)};
  }
  extents.rows = found[0];
  extents.columns = found[1];
  return extents;
}

/// The element type: named by an attribute, or the plain number that the dataset holds.
Outcome<MemCore::StrongPtr<FiberTypeBase>> typeOf(hid_t dataset, std::uint64_t fileBytes) {
  if (hasAttribute(dataset, kElementTypeAttribute)) {
    const auto name = readText(dataset, kElementTypeAttribute, fileBytes);
    if (!name.ok()) return name.failure();
    auto type = FiberTypeBase::find(*name);
    if (!type) return Failure{fmt::format("element type is not known, found \"{}\"", *name)};
    return type;
  }
  const DatatypeHandle type(H5Dget_type(dataset));
  const auto kind = scalarKindOf(type.get());
  if (!kind) return Failure{"its numbers are of a type that bundle files do not use"};
  return plainType(*kind);
}

Outcome<void> scanType(hid_t dataset, std::uint64_t fileBytes, StoredField& field) {
  const auto extents = extentsOf(dataset);
  if (!extents.ok()) return extents.failure();
  if (extents->none) return {};
  auto type = typeOf(dataset, fileBytes);
  if (!type.ok()) return type.failure();
  field.type = std::move(type).value();
  field.rows = extents->rows;
  field.columns = extents->columns;
  if (!hasAttribute(dataset, kRankAttribute)) return {};
  const auto rank = readNumber<std::uint32_t>(dataset, kRankAttribute);
  if (!rank.ok()) return rank.failure();
  if (*rank < 1 || *rank > DynamicSize::kMaxRank) {
    return Failure{
        fmt::format("wrong rank, found {}, expected 1 to {}", *rank, DynamicSize::kMaxRank)};
  }
  field.rank = *rank;
  return {};
}

Outcome<void> scanFragmentation(hid_t dataset, std::uint64_t fileBytes, StoredField& field) {
  if (!hasAttribute(dataset, kFragmentCountsAttribute)) return {};
  const auto counts = readNumbers<std::uint64_t>(dataset, kFragmentCountsAttribute, 3);
  if (!counts.ok()) return counts.failure();
  auto name = readText(dataset, kFragmentationAttribute, fileBytes);
  if (!name.ok()) return name.failure();
  field.fragmentCounts = MultiIndex<3>{{(*counts)[0], (*counts)[1], (*counts)[2]}};
  field.fragmentationName = std::move(name).value();
  return {};
}

Outcome<void> scanInterfaces(hid_t dataset, StoredField& field) {
  if (hasAttribute(dataset, kBoxAttribute)) {
    const auto corners = readNumbers<double>(dataset, kBoxAttribute, 6);
    if (!corners.ok()) return corners.failure();
    const std::vector<double>& c = *corners;
    field.box = makeStrong<Eagle::BoundingBox>(Point{c[0], c[1], c[2]}, Point{c[3], c[4], c[5]});
  }
  if (hasAttribute(dataset, kRangeAttribute)) {
    const auto range = readNumbers<double>(dataset, kRangeAttribute, 2);
    if (!range.ok()) return range.failure();
    field.range = ValueRange{(*range)[0], (*range)[1]};
  }
  return {};
}

Outcome<void> scanAttributes(const FieldDataset& found, std::uint64_t fileBytes,
                             StoredField& field) {
  auto table = readAttributes(attributePlace(found), fileBytes);
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
  const auto bits = readPropertyBits(found.dataset);
  if (!bits.ok()) return bits.failure();
  field.propertyBits = *bits;
  return {};
}

}  // namespace

Outcome<StoredField> scanField(hid_t group, const std::string& name, std::uint64_t fileBytes) {
  const auto dataset = openDataset(group, name);
  if (!dataset.ok()) return dataset.failure();
  StoredField field;
  field.name = originalName(name);
  const hid_t id = dataset->get();
  if (auto done = scanType(id, fileBytes, field); !done.ok()) return done.failure();
  if (auto done = scanFragmentation(id, fileBytes, field); !done.ok()) return done.failure();
  if (auto done = scanInterfaces(id, field); !done.ok()) return done.failure();
  if (auto done = scanAttributes({id, group, name}, fileBytes, field); !done.ok())
    return done.failure();
  return field;
}

}  // namespace Fiber::Container
