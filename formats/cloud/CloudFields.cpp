// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/CloudFields.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>
#include <unordered_map>

#include "formats/cloud/FieldProperties.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

using Files = std::span<const std::shared_ptr<LasFile>>;

bool namesWaveformPacket(std::string_view field) {
  return field == kWaveDescriptorField || field == kWaveOffsetField || field == kWaveSizeField;
}

/// Fields under their names, in order of appearance, each with what every file stores.
std::vector<CloudField> gatherFields(Files files) {
  std::vector<CloudField> fields;
  std::unordered_map<std::string_view, std::size_t> places;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (files[i]->pointCount() == 0) continue;
    for (const PointField& stored : files[i]->layout().fields()) {
      const auto [place, isNew] = places.try_emplace(stored.name, fields.size());
      if (isNew) {
        fields.push_back({stored.name, stored.type, describeField(stored),
                          std::vector<FieldSupply>(files.size())});
      }
      FieldSupply& supply = fields[place->second].supplies[i];
      supply = {&stored, {stored.type, stored.type, 1.0, 0.0}};
    }
  }
  return fields;
}

std::size_t firstFileOf(const CloudField& field) {
  std::size_t first = 0;
  while (field.supplies[first].field == nullptr) ++first;
  return first;
}

/// The first stored field, and so the one that others are compared with.
const PointField& modelOf(const CloudField& field) {
  return *field.supplies[firstFileOf(field)].field;
}

Failure cannotJoin(Files files, const CloudField& field, std::size_t file) {
  return Failure{fmt::format("{}: field {} cannot be joined with that of {}, found {}, expected {}",
                             files[file]->path(), field.name, files[firstFileOf(field)]->path(),
                             elementTypeName(field.supplies[file].field->type),
                             elementTypeName(modelOf(field).type))};
}

bool scalingsDiffer(const CloudField& field) {
  const FieldScaling model = scalingOf(modelOf(field));
  for (const FieldSupply& supply : field.supplies) {
    if (supply.field != nullptr && !(scalingOf(*supply.field) == model)) return true;
  }
  return false;
}

/// The narrowest type for all files.
Outcome<void> settleType(Files files, CloudField& field) {
  for (std::size_t i = 0; i < files.size(); ++i) {
    const PointField* stored = field.supplies[i].field;
    if (stored == nullptr || stored->type == field.type) continue;
    const auto common = commonType(field.type, stored->type);
    if (!common || namesWaveformPacket(field.name)) return cannotJoin(files, field, i);
    field.type = *common;
  }
  return {};
}

/// Type and conversions of one field that all files agree to.
Outcome<void> settle(Files files, CloudField& field) {
  const bool hasScalings = scalingsDiffer(field);
  if (hasScalings) {
    field.type = ElementType::Float64;
    forgetStoredUnits(field.properties);
  } else if (const auto settled = settleType(files, field); !settled) {
    return settled.failure();
  }
  const bool isAngle = field.name == "ScanAngle" && field.type == ElementType::Int16;
  for (FieldSupply& supply : field.supplies) {
    if (supply.field == nullptr) continue;
    supply.conversion.to = field.type;
    if (hasScalings) {
      const FieldScaling scaling = scalingOf(*supply.field);
      supply.conversion.scale = scaling.scale;
      supply.conversion.offset = scaling.offset;
    } else if (isAngle && supply.field->type == ElementType::Int8) {
      supply.conversion.scale = 1.0 / kScanAngleStepDegrees;
    }
  }
  return {};
}

std::string conversionNote(const CloudField& field, const ValueConversion& conversion) {
  const char* from = elementTypeName(conversion.from);
  const char* to = elementTypeName(conversion.to);
  if (conversion.keepsValues()) {
    return fmt::format("field {} is {}: widened to {}", field.name, from, to);
  }
  if (conversion.offset == 0.0 && conversion.to == ElementType::Int16) {
    return fmt::format("field {} counts whole degrees: turned into steps of {} degrees", field.name,
                       kScanAngleStepDegrees);
  }
  return fmt::format("field {} has a scale and offset that others do not share: turned into {}",
                     field.name, to);
}

/// What one file's points do not have as the cloud has it.
void noteDifferences(const LasFile& file, std::size_t index, CloudFields& joined) {
  std::vector<std::string_view> missing;
  for (const CloudField& field : joined.fields) {
    const FieldSupply& supply = field.supplies[index];
    if (supply.field == nullptr) {
      missing.push_back(field.name);
    } else if (!supply.conversion.isIdentity()) {
      joined.notes.push_back(
          fmt::format("{}: {}", file.path(), conversionNote(field, supply.conversion)));
    }
  }
  if (missing.empty()) return;
  joined.notes.push_back(fmt::format("{}: has no {} {}: zeros are supplied", file.path(),
                                     missing.size() == 1 ? "field" : "fields",
                                     fmt::join(missing, ", ")));
}

}  // namespace

Outcome<CloudFields> joinFields(Files files) {
  CloudFields joined;
  joined.fields = gatherFields(files);
  for (CloudField& field : joined.fields) {
    if (const auto settled = settle(files, field); !settled) return settled.failure();
  }
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (files[i]->pointCount() != 0) noteDifferences(*files[i], i, joined);
  }
  return joined;
}

}  // namespace Formats
