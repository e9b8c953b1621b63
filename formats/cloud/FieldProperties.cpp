// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/FieldProperties.hpp"

#include <cmath>

namespace Formats {

using MemCore::Attributes;
using MemCore::Chunk;
using MemCore::makeStrong;

namespace {

constexpr std::size_t kMaxDescribedComponents = 3;

template <class T>
void setNumber(Attributes& properties, const char* name, T value) {
  properties.setAttribute(name, makeStrong<Chunk<T>>(1, value));
}

/// Which of a descriptor's three values are the field's; the components of undocumented bytes have
/// none of their own, and no values either.
std::size_t describedComponent(const PointField& field) {
  return field.component < kMaxDescribedComponents ? field.component : 0;
}

}  // namespace

Attributes describeField(const PointField& field) {
  Attributes properties;
  if (!field.meaning) return properties;
  const ExtraBytesDescriptor& meaning = *field.meaning;
  const std::size_t component = describedComponent(field);
  MemCore::setTextAttribute(properties, "ExtraBytesName", meaning.name);
  setNumber(properties, "ExtraBytesComponent", std::uint64_t{field.component});
  if (!meaning.description.empty()) {
    MemCore::setTextAttribute(properties, "Description", meaning.description);
  }
  if (meaning.scale) setNumber(properties, "Scale", (*meaning.scale)[component]);
  if (meaning.offset) setNumber(properties, "Offset", (*meaning.offset)[component]);
  if (meaning.noData) {
    std::visit([&](auto value) { setNumber(properties, "NoData", value); },
               (*meaning.noData)[component]);
  }
  return properties;
}

FieldScaling scalingOf(const PointField& field) {
  FieldScaling scaling;
  if (!field.meaning) return scaling;
  const std::size_t component = describedComponent(field);
  const double scale = field.meaning->scale ? (*field.meaning->scale)[component] : 1.0;
  const double offset = field.meaning->offset ? (*field.meaning->offset)[component] : 0.0;
  if (std::isfinite(scale) && scale != 0.0) scaling.scale = scale;
  if (std::isfinite(offset)) scaling.offset = offset;
  return scaling;
}

void forgetStoredUnits(Attributes& properties) {
  for (const char* name : {"Scale", "Offset", "NoData"}) {
    properties.setAttribute(name, nullptr);
  }
}

}  // namespace Formats
