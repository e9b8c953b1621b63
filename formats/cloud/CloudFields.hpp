// SPDX-License-Identifier: Apache-2.0
//
// CloudFields: the fields that a cloud of several files has, and how each file supplies them. Every
// fragment of a grid must carry every field of the grid, so the fields are those of all files
// together; a file that lacks one supplies zeros, and a file whose values are of another type or
// unit has them converted. Files without points have no say.

#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Attributes.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/ColumnTypes.hpp"
#include "formats/las/LasFile.hpp"

namespace Formats {

/// The fields of a point record that name its waveform packet.
inline constexpr const char* kWaveDescriptorField = "WaveDescriptor";
inline constexpr const char* kWaveOffsetField = "WaveOffset";
inline constexpr const char* kWaveSizeField = "WaveSize";

/// Steps of the two-byte scan angle of point formats 6 to 10; formats 0 to 5 count whole degrees.
inline constexpr double kScanAngleStepDegrees = 0.006;

/// How one file supplies one field.
struct FieldSupply {
  const PointField* field = nullptr;  ///< Null: the file has no such field, zeros are supplied.
  ValueConversion conversion;         ///< Meaningful where `field` is set.
};

/// One field of the cloud.
struct CloudField {
  std::string name;
  ElementType type = ElementType::UInt8;
  /// What extra bytes say about their values, as it goes into the field's property map (see
  /// describeField); taken from the first file that has the field.
  MemCore::Attributes properties;
  std::vector<FieldSupply> supplies;  ///< One per file, in the order of the files.
};

/// The fields of a cloud, in the order in which the files first show them.
struct CloudFields {
  std::vector<CloudField> fields;
  std::vector<std::string> notes;  ///< One line for each thing supplied or converted.
};

/// Joins the fields of all files. The supplies point into the files' layouts, which must outlive
/// them. Values are converted where files disagree: to the narrowest type that holds both; old scan
/// angles (whole degrees) to the new ones' steps, when both occur; extra bytes of different scale
/// or offset to the values that they stand for, as doubles.
/// Errors: a field whose types have no common type, naming both files.
MemCore::Outcome<CloudFields> joinFields(std::span<const std::shared_ptr<LasFile>> files);

}  // namespace Formats
