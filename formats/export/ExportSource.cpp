// SPDX-License-Identifier: Apache-2.0

#include "formats/export/ExportSource.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "formats/cloud/WaveformFragmentSource.hpp"

namespace Formats {

using Fiber::ScalarKind;
using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

std::vector<ExportFragment> fragmentsOf(const StrongPtr<Fiber::Field>& positions) {
  std::vector<ExportFragment> fragments;
  for (const auto& id : positions->getFragmentIDs()) {
    const auto creator = positions->getCreator(id);
    if (!creator) continue;
    ExportFragment fragment{id, Fiber::pointCountOf(*creator), Fiber::parseTileIndex(id->name()),
                            creator->facts().box};
    if (fragment.pointCount > 0) fragments.push_back(std::move(fragment));
  }
  return fragments;
}

/// Elements per point of an array; 0 when it has another number of points.
std::size_t elementsPerPoint(const Fiber::DynamicSize& size, std::uint64_t points) {
  if (size.rank() == 0 || points == 0 || size[size.rank() - 1] != points) return 0;
  return static_cast<std::size_t>(size.elementCount() / points);
}

/// A field as its first fragment shows it. Absent when no fragment has any data.
Outcome<std::optional<ExportField>> describe(const std::string& name,
                                             const StrongPtr<Fiber::Field>& field,
                                             const std::vector<ExportFragment>& fragments) {
  for (const ExportFragment& fragment : fragments) {
    const auto creator = field->getCreator(fragment.id);
    if (!creator) continue;
    const auto size = Fiber::getSize(*creator);
    const auto type = creator->facts().type;
    const std::size_t elements = size ? elementsPerPoint(*size, fragment.pointCount) : 0;
    if (!type || elements == 0) {
      return Failure{fmt::format("field {}: fragment {}: no values for its points", name,
                                 fragment.id->name())};
    }
    return std::optional(
        ExportField{name, elementTypeOf(type->scalar()), elements * type->componentCount(), field});
  }
  return std::optional<ExportField>();
}

/// The data of a creator, past the cache: an export needs them once, and what the cache kept would
/// only make every fragment take fresh memory.
StrongPtr<Fiber::MemBase> dataOnce(Fiber::CreativeArrayBase& creator) {
  const bool wasCached = creator.cachingEnabled();
  creator.enableCaching(false);
  auto data = creator.data();
  creator.enableCaching(wasCached);
  return data;
}

}  // namespace

ElementType elementTypeOf(ScalarKind kind) {
  switch (kind) {
    case ScalarKind::Int8:
      return ElementType::Int8;
    case ScalarKind::UInt8:
      return ElementType::UInt8;
    case ScalarKind::Int16:
      return ElementType::Int16;
    case ScalarKind::UInt16:
      return ElementType::UInt16;
    case ScalarKind::Int32:
      return ElementType::Int32;
    case ScalarKind::UInt32:
      return ElementType::UInt32;
    case ScalarKind::Int64:
      return ElementType::Int64;
    case ScalarKind::UInt64:
      return ElementType::UInt64;
    case ScalarKind::Float32:
      return ElementType::Float32;
    case ScalarKind::Float64:
      break;
  }
  return ElementType::Float64;
}

std::uint64_t ExportSource::pointCount() const {
  return std::accumulate(
      fragments.begin(), fragments.end(), std::uint64_t{0},
      [](std::uint64_t sum, const ExportFragment& fragment) { return sum + fragment.pointCount; });
}

const ExportField* ExportSource::find(const std::string& name) const {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [&](const ExportField& field) { return field.name == name; });
  return found == fields.end() ? nullptr : &*found;
}

std::optional<std::size_t> ExportSource::numberOf(const std::string& name) const {
  const ExportField* field = find(name);
  if (field == nullptr) return std::nullopt;
  return static_cast<std::size_t>(field - fields.data());
}

Outcome<ExportSource> exportSource(const Fiber::Grid& grid) {
  ExportSource source;
  source.gridName = grid.name();
  source.positions = grid.CartesianPositions();
  if (!source.positions) return Failure{fmt::format("grid {}: no positions", grid.name())};
  source.fragments = fragmentsOf(source.positions);
  auto files = sourceFilesOf(grid.attributes());
  if (!files) return Failure{fmt::format("grid {}: {}", grid.name(), files.error())};
  source.files = std::move(*files);
  const auto representation = grid.getCartesianRepresentation("");
  source.samples = representation->findField(kWaveformsField);
  source.lengths = representation->findField(kWaveformLengthField);
  if (!source.lengths) source.samples = nullptr;
  for (const auto& [name, field] : representation->fields()) {
    if (field == source.positions || name == kWaveformsField || name == kWaveformLengthField) {
      continue;
    }
    auto described = describe(name, field, source.fragments);
    if (!described) {
      return Failure{fmt::format("grid {}: {}", grid.name(), described.error())};
    }
    if (*described) source.fields.push_back(std::move(**described));
  }
  return source;
}

Outcome<StrongPtr<Fiber::MemBase>> columnOf(const Fiber::Field& field, const std::string& name,
                                            const ExportFragment& fragment) {
  const auto creator = field.getCreator(fragment.id);
  const auto data = creator ? dataOnce(*creator) : nullptr;
  if (!data) {
    return Failure{fmt::format("field {}: fragment {}: {}", name, fragment.id->name(),
                               creator ? creator->failure() : "no values for its points")};
  }
  if (!data->elements() || elementsPerPoint(data->size(), fragment.pointCount) == 0) {
    return Failure{
        fmt::format("field {}: fragment {}: no values for its points, found {}, "
                    "expected {}",
                    name, fragment.id->name(), data->size().elementCount(), fragment.pointCount)};
  }
  return data;
}

}  // namespace Formats
