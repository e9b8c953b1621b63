// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/CoordinateSystem.hpp"

#include <algorithm>
#include <map>

#include "formats/las/ByteStream.hpp"

namespace Formats {

namespace {

constexpr std::uint16_t kWktRecordId = 2112;
constexpr std::uint16_t kGeoKeyRecordId = 34735;

constexpr std::uint16_t kModelTypeKey = 1024;
constexpr std::uint16_t kGeographicTypeKey = 2048;
constexpr std::uint16_t kProjectedTypeKey = 3072;
constexpr std::uint16_t kVerticalTypeKey = 4096;

constexpr std::uint16_t kGeographicModel = 2;
/// Codes outside of this (half-open) range mean "not defined" or "defined by its parameters".
constexpr std::uint16_t kFirstCode = 1024;
constexpr std::uint16_t kUserDefinedCode = 32767;

using GeoKeys = std::map<std::uint16_t, std::uint16_t>;

const VariableRecord* findProjection(std::span<const VariableRecord> records, std::uint16_t id) {
  const auto found = std::find_if(
      records.begin(), records.end(),
      [id](const VariableRecord& record) { return hasId(record, kLasProjectionUserId, id); });
  return found == records.end() ? nullptr : &*found;
}

/// The record's text without what pads it.
std::string wktOf(const VariableRecord& record) {
  const std::string_view padded(reinterpret_cast<const char*>(record.payload.data()),
                                record.payload.size());
  const std::string_view text = textBeforeNul(padded);
  constexpr const char* kBlanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return std::string(text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin));
}

/// The keys whose value stands in the directory itself.
GeoKeys keysOf(const VariableRecord& record) {
  ByteReader reader(record.payload);
  reader.takeBytes(3 * sizeof(std::uint16_t));  // the version
  const auto keyCount = reader.take<std::uint16_t>();
  GeoKeys keys;
  for (std::uint16_t number = 0; number < keyCount; ++number) {
    const auto id = reader.take<std::uint16_t>();
    const auto place = reader.take<std::uint16_t>();
    const auto count = reader.take<std::uint16_t>();
    const auto value = reader.take<std::uint16_t>();
    if (reader.isShort()) break;
    if (place == 0 && count == 1) keys.emplace(id, value);
  }
  return keys;
}

std::optional<std::uint16_t> codeOf(const GeoKeys& keys, std::uint16_t key) {
  const auto found = keys.find(key);
  if (found == keys.end()) return std::nullopt;
  const bool isCode = found->second >= kFirstCode && found->second != kUserDefinedCode;
  return isCode ? std::optional(found->second) : std::nullopt;
}

/// A projected system also names the geographic one below it, which alone says nothing.
std::optional<std::uint16_t> horizontalCodeOf(const GeoKeys& keys) {
  if (keys.count(kProjectedTypeKey) != 0) return codeOf(keys, kProjectedTypeKey);
  const auto model = keys.find(kModelTypeKey);
  const bool canBeGeographic = model == keys.end() || model->second == kGeographicModel;
  return canBeGeographic ? codeOf(keys, kGeographicTypeKey) : std::nullopt;
}

}  // namespace

std::optional<CoordinateSystem> coordinateSystemOf(std::span<const VariableRecord> records) {
  CoordinateSystem system;
  if (const VariableRecord* record = findProjection(records, kWktRecordId)) {
    system.wkt = wktOf(*record);
    if (!system.wkt.empty()) return system;
  }
  const VariableRecord* record = findProjection(records, kGeoKeyRecordId);
  if (record == nullptr) return std::nullopt;
  const GeoKeys keys = keysOf(*record);
  system.epsg = horizontalCodeOf(keys);
  if (!system.epsg) return std::nullopt;
  system.heightEpsg = codeOf(keys, kVerticalTypeKey);
  return system;
}

}  // namespace Formats
