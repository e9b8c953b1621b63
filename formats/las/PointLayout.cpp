// SPDX-License-Identifier: Apache-2.0

#include "formats/las/PointLayout.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <span>
#include <unordered_map>
#include <unordered_set>

#include "formats/las/SafeName.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::array<std::uint16_t, kMaxPointFormat + 1> kRecordBytes{20, 28, 26, 34, 57, 63,
                                                                      30, 36, 38, 59, 67};

/// A field of the tables below. Offsets of optional groups count from the group's first byte.
struct FieldSpec {
  const char* name;
  ElementType type;
  std::uint16_t byteOffset;
  std::uint8_t bitShift = 0;
  std::uint8_t bitCount = 0;
};

constexpr std::array kOldBase{FieldSpec{"Intensity", ElementType::UInt16, 12},
                              FieldSpec{"ReturnNumber", ElementType::UInt8, 14, 0, 3},
                              FieldSpec{"NumberOfReturns", ElementType::UInt8, 14, 3, 3},
                              FieldSpec{"ScanDirectionFlag", ElementType::UInt8, 14, 6, 1},
                              FieldSpec{"EdgeOfFlightLine", ElementType::UInt8, 14, 7, 1},
                              FieldSpec{"Classification", ElementType::UInt8, 15, 0, 5},
                              FieldSpec{"Synthetic", ElementType::UInt8, 15, 5, 1},
                              FieldSpec{"KeyPoint", ElementType::UInt8, 15, 6, 1},
                              FieldSpec{"Withheld", ElementType::UInt8, 15, 7, 1},
                              FieldSpec{"ScanAngle", ElementType::Int8, 16},
                              FieldSpec{"UserData", ElementType::UInt8, 17},
                              FieldSpec{"PointSourceId", ElementType::UInt16, 18}};

constexpr std::array kNewBase{FieldSpec{"Intensity", ElementType::UInt16, 12},
                              FieldSpec{"ReturnNumber", ElementType::UInt8, 14, 0, 4},
                              FieldSpec{"NumberOfReturns", ElementType::UInt8, 14, 4, 4},
                              FieldSpec{"Synthetic", ElementType::UInt8, 15, 0, 1},
                              FieldSpec{"KeyPoint", ElementType::UInt8, 15, 1, 1},
                              FieldSpec{"Withheld", ElementType::UInt8, 15, 2, 1},
                              FieldSpec{"Overlap", ElementType::UInt8, 15, 3, 1},
                              FieldSpec{"ScanChannel", ElementType::UInt8, 15, 4, 2},
                              FieldSpec{"ScanDirectionFlag", ElementType::UInt8, 15, 6, 1},
                              FieldSpec{"EdgeOfFlightLine", ElementType::UInt8, 15, 7, 1},
                              FieldSpec{"Classification", ElementType::UInt8, 16},
                              FieldSpec{"UserData", ElementType::UInt8, 17},
                              FieldSpec{"ScanAngle", ElementType::Int16, 18},
                              FieldSpec{"PointSourceId", ElementType::UInt16, 20}};

constexpr std::array kGpsTime{FieldSpec{"GpsTime", ElementType::Float64, 0}};

constexpr std::array kColours{FieldSpec{"Red", ElementType::UInt16, 0},
                              FieldSpec{"Green", ElementType::UInt16, 2},
                              FieldSpec{"Blue", ElementType::UInt16, 4}};

constexpr std::array kInfrared{FieldSpec{"Infrared", ElementType::UInt16, 0}};

constexpr std::array kWavePacket{FieldSpec{"WaveDescriptor", ElementType::UInt8, 0},
                                 FieldSpec{"WaveOffset", ElementType::UInt64, 1},
                                 FieldSpec{"WaveSize", ElementType::UInt32, 9},
                                 FieldSpec{"WaveReturnLocation", ElementType::Float32, 13},
                                 FieldSpec{"WaveXt", ElementType::Float32, 17},
                                 FieldSpec{"WaveYt", ElementType::Float32, 21},
                                 FieldSpec{"WaveZt", ElementType::Float32, 25}};

using Group = std::span<const FieldSpec>;

/// The groups of a point format in the order of their bytes.
std::vector<Group> groupsOf(std::uint8_t format) {
  if (format > 5) {
    std::vector<Group> groups{kNewBase, kGpsTime};
    if (format != 6 && format != 9) groups.emplace_back(kColours);
    if (format == 8 || format == 10) groups.emplace_back(kInfrared);
    if (formatHasWaveforms(format)) groups.emplace_back(kWavePacket);
    return groups;
  }
  std::vector<Group> groups{kOldBase};
  if (format != 0 && format != 2) groups.emplace_back(kGpsTime);
  if (format == 2 || format == 3 || format == 5) groups.emplace_back(kColours);
  if (formatHasWaveforms(format)) groups.emplace_back(kWavePacket);
  return groups;
}

/// Appends a group that begins at `start`; returns the byte behind it.
std::uint16_t addGroup(std::vector<PointField>& fields, Group group, std::uint16_t start) {
  std::uint16_t end = start;
  for (const FieldSpec& spec : group) {
    PointField field;
    field.name = spec.name;
    field.type = spec.type;
    field.byteOffset = static_cast<std::uint16_t>(start + spec.byteOffset);
    field.bitShift = spec.bitShift;
    field.bitCount = spec.bitCount;
    end = static_cast<std::uint16_t>(field.byteOffset + elementBytes(spec.type));
    fields.push_back(std::move(field));
  }
  return end;
}

/// Places extra bytes behind the fields of a point format, under names that nobody else has.
class ExtraBytesPlacer {
 public:
  ExtraBytesPlacer(std::vector<PointField>& fields, std::vector<std::string>& notes,
                   std::uint16_t start, std::uint16_t end)
      : fields_(fields), notes_(notes), next_(start), end_(end) {
    used_ = {"Position", "Positions", "Waveforms", "FWFLength", "SourceFile", "SourceIndex"};
    for (const PointField& field : fields) used_.insert(field.name);
  }

  /// False when this descriptor, and so all behind it, cannot be placed.
  bool place(ExtraBytesDescriptor descriptor) {
    if (descriptor.dataType > kMaxExtraBytesType) {
      notes_.push_back(
          fmt::format("extra bytes {}: data type not known, found {}, expected 0 to {}",
                      safeName(descriptor.name), descriptor.dataType, kMaxExtraBytesType));
      return false;
    }
    if (extraBytesWidth(descriptor) > static_cast<std::size_t>(end_ - next_)) {
      notes_.push_back(
          fmt::format("extra bytes {}: described but not in the records, found {} "
                      "bytes, expected {}",
                      safeName(descriptor.name), end_ - next_, extraBytesWidth(descriptor)));
      return false;
    }
    const bool isBytes = descriptor.dataType == 0;
    const std::string name = safeName(descriptor.name);
    append(name, std::make_shared<const ExtraBytesDescriptor>(std::move(descriptor)), isBytes);
    return true;
  }

  /// What no descriptor covers.
  void placeRest() {
    if (next_ == end_) return;
    ExtraBytesDescriptor rest;
    rest.componentCount = static_cast<std::uint16_t>(end_ - next_);
    const std::size_t first = fields_.size();
    append("ExtraBytes", std::make_shared<const ExtraBytesDescriptor>(std::move(rest)), true);
    for (std::size_t at = first; at < fields_.size(); ++at) fields_[at].meaning.reset();
  }

 private:
  static std::string nameOf(const std::string& base, std::size_t component, bool isArray) {
    return isArray ? fmt::format("{}[{}]", base, component) : base;
  }

  bool isFree(const std::string& base, std::size_t componentCount, bool isArray) const {
    for (std::size_t component = 0; component < componentCount; ++component) {
      if (used_.contains(nameOf(base, component, isArray))) return false;
    }
    return true;
  }

  /// `base`, or `base` with the first number behind it that makes all its fields' names new.
  /// Numbers already given out are remembered, so that thousands of equal names stay cheap.
  std::string freeBase(const std::string& base, std::size_t componentCount, bool isArray) {
    if (isFree(base, componentCount, isArray)) return base;
    std::size_t& number = lastNumber_.try_emplace(base, 1).first->second;
    std::string candidate;
    do {
      candidate = fmt::format("{}_{}", base, ++number);
    } while (!isFree(candidate, componentCount, isArray));
    return candidate;
  }

  void append(const std::string& wanted, const std::shared_ptr<const ExtraBytesDescriptor>& meaning,
              bool isBytes) {
    const std::size_t componentCount = meaning->componentCount;
    const bool isArray = isBytes || componentCount > 1;
    const std::string base = freeBase(wanted, componentCount, isArray);
    for (std::size_t component = 0; component < componentCount; ++component) {
      PointField field;
      field.name = nameOf(base, component, isArray);
      field.type = meaning->type;
      field.byteOffset = next_;
      field.meaning = meaning;
      field.component = static_cast<std::uint16_t>(component);
      next_ = static_cast<std::uint16_t>(next_ + elementBytes(field.type));
      used_.insert(field.name);
      fields_.push_back(std::move(field));
    }
  }

  std::vector<PointField>& fields_;
  std::vector<std::string>& notes_;
  std::uint16_t next_;
  std::uint16_t end_;
  std::unordered_set<std::string> used_;
  std::unordered_map<std::string, std::size_t> lastNumber_;
};

void placeDescribed(ExtraBytesPlacer& placer, const std::vector<VariableRecord>& records) {
  for (const VariableRecord& record : records) {
    if (!hasId(record, kLasSpecUserId, kExtraBytesRecordId)) continue;
    for (ExtraBytesDescriptor& descriptor : parseExtraBytes(record.payload)) {
      if (!placer.place(std::move(descriptor))) return;
    }
  }
}

}  // namespace

std::uint16_t standardRecordBytes(std::uint8_t pointFormat) {
  return pointFormat <= kMaxPointFormat ? kRecordBytes[pointFormat] : std::uint16_t{0};
}

bool formatHasWaveforms(std::uint8_t pointFormat) {
  return pointFormat == 4 || pointFormat == 5 || pointFormat == 9 || pointFormat == 10;
}

const PointField& PointLayout::axis(std::size_t axis) {
  static const auto kFields = [] {
    std::array<PointField, 3> fields;
    for (std::size_t a = 0; a < fields.size(); ++a) {
      fields[a].name = std::string(1, "XYZ"[a]);
      fields[a].type = ElementType::Int32;
      fields[a].byteOffset = static_cast<std::uint16_t>(a * sizeof(std::int32_t));
    }
    return fields;
  }();
  return kFields[axis];
}

Outcome<PointLayout> PointLayout::make(std::uint8_t pointFormat, std::uint16_t recordBytes,
                                       const std::vector<VariableRecord>& records) {
  if (pointFormat > kMaxPointFormat) {
    return Failure{fmt::format("point format: not known, found {}, expected 0 to {}", pointFormat,
                               kMaxPointFormat)};
  }
  const std::uint16_t standardBytes = standardRecordBytes(pointFormat);
  if (recordBytes < standardBytes) {
    return Failure{
        fmt::format("point records: too short for format {}, found {} bytes, expected at "
                    "least {}",
                    pointFormat, recordBytes, standardBytes)};
  }
  PointLayout layout;
  layout.pointFormat_ = pointFormat;
  layout.recordBytes_ = recordBytes;
  layout.position_.name = "Position";
  layout.position_.type = ElementType::Int32;
  layout.position_.componentCount = 3;
  std::uint16_t next = 0;
  for (const Group group : groupsOf(pointFormat)) next = addGroup(layout.fields_, group, next);
  ExtraBytesPlacer placer(layout.fields_, layout.notes_, standardBytes, recordBytes);
  placeDescribed(placer, records);
  placer.placeRest();
  return layout;
}

const PointField* PointLayout::find(std::string_view name) const {
  const auto found = std::find_if(fields_.begin(), fields_.end(),
                                  [&](const PointField& field) { return field.name == name; });
  return found == fields_.end() ? nullptr : &*found;
}

}  // namespace Formats
