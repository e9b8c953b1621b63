// SPDX-License-Identifier: Apache-2.0

#include "formats/export/PointFormatChoice.hpp"

#include <algorithm>
#include <array>
#include <vector>

namespace Formats {

namespace {

constexpr std::uint8_t kFirstNewFormat = 6;

std::vector<std::string> fieldNamesOf(std::uint8_t format) {
  std::vector<std::string> names;
  const auto layout = PointLayout::make(format, standardRecordBytes(format), {});
  if (!layout) return names;
  for (const PointField& field : layout->fields()) names.push_back(field.name);
  return names;
}

/// The field names of every point format.
const std::array<std::vector<std::string>, kMaxPointFormat + 1>& allFieldNames() {
  static const auto kNames = [] {
    std::array<std::vector<std::string>, kMaxPointFormat + 1> names;
    for (std::uint8_t format = 0; format <= kMaxPointFormat; ++format) {
      names[format] = fieldNamesOf(format);
    }
    return names;
  }();
  return kNames;
}

bool hasField(std::uint8_t format, const std::string& name) {
  const auto& names = allFieldNames()[format];
  return std::find(names.begin(), names.end(), name) != names.end();
}

/// The standard fields that a format must have a place for.
std::vector<std::string> neededFields(const ExportSource& source,
                                      std::span<const std::uint8_t> fileFormats,
                                      bool namesPackets) {
  std::vector<std::string> needed;
  for (std::uint8_t format : fileFormats) {
    const auto& names = allFieldNames()[format];
    needed.insert(needed.end(), names.begin(), names.end());
  }
  for (const ExportField& field : source.fields) {
    if (field.components == 1 && isStandardField(field.name)) needed.push_back(field.name);
  }
  std::erase_if(needed, isWavePacketField);
  if (namesPackets) needed.emplace_back("WaveDescriptor");
  return needed;
}

bool suits(std::uint8_t format, const std::vector<std::string>& needed, bool namesPackets) {
  if (formatHasWaveforms(format) != namesPackets) return false;
  return std::all_of(needed.begin(), needed.end(),
                     [&](const std::string& name) { return hasField(format, name); });
}

}  // namespace

bool isStandardField(const std::string& name) {
  for (std::uint8_t format = 0; format <= kMaxPointFormat; ++format) {
    if (hasField(format, name)) return true;
  }
  return false;
}

bool isWavePacketField(const std::string& name) {
  constexpr std::uint8_t kWithPackets = 4;
  constexpr std::uint8_t kWithout = 1;
  return hasField(kWithPackets, name) && !hasField(kWithout, name);
}

std::uint8_t choosePointFormat(const ExportSource& source,
                               std::span<const std::uint8_t> fileFormats, bool namesPackets,
                               const LasExportOptions& options) {
  if (options.pointFormat) return *options.pointFormat;
  const auto needed = neededFields(source, fileFormats, namesPackets);
  if (fileFormats.size() == 1 && suits(fileFormats.front(), needed, namesPackets)) {
    return fileFormats.front();
  }
  const bool isOld = !fileFormats.empty() && fileFormats.back() < kFirstNewFormat;
  for (std::uint8_t format = isOld ? 0 : kFirstNewFormat; format <= kMaxPointFormat; ++format) {
    if (suits(format, needed, namesPackets)) return format;
  }
  return namesPackets ? kMaxPointFormat : 8;
}

}  // namespace Formats
