// SPDX-License-Identifier: Apache-2.0

#include "formats/export/SourceMerge.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

using Records = std::vector<VariableRecord>;

bool isSame(const VariableRecord& a, const VariableRecord& b) {
  return a.userId == b.userId && a.recordId == b.recordId && a.description == b.description &&
         a.reserved == b.reserved && a.payload == b.payload;
}

bool isCrsRecord(const VariableRecord& record) {
  return textBeforeNul(record.userId) == kLasProjectionUserId;
}

/// The payloads that tell the coordinate system, by record id.
std::set<std::pair<std::uint16_t, std::vector<std::byte>>> crsOf(const SourceFile& file) {
  std::set<std::pair<std::uint16_t, std::vector<std::byte>>> crs;
  for (const Records* records : {&file.vlrs, &file.evlrs}) {
    for (const VariableRecord& record : *records) {
      if (isCrsRecord(record)) crs.emplace(record.recordId, record.payload);
    }
  }
  return crs;
}

Failure cannotMerge(const SourceFile& file, const SourceFile& first, const std::string& what) {
  return Failure{
      fmt::format("{}: cannot go into one file with {}: {}", file.name, first.name, what)};
}

Outcome<void> requireSameCrs(std::span<const SourceFile> files, MergedSource& merged) {
  const SourceFile* first = nullptr;
  for (const SourceFile& file : files) {
    if (crsOf(file).empty()) continue;
    if (first == nullptr) first = &file;
    if (crsOf(file) != crsOf(*first)) {
      return cannotMerge(file, *first, "another coordinate system");
    }
  }
  if (first == nullptr) return {};
  for (const SourceFile& file : files) {
    if (!crsOf(file).empty()) continue;
    merged.notes.push_back(fmt::format("{}: names no coordinate system: taken for that of {}",
                                       file.name, first->name));
  }
  return {};
}

Outcome<void> requireSameTimes(std::span<const SourceFile> files) {
  const auto kindOf = [](const SourceFile& file) {
    return (file.header.globalEncoding & kGpsTimeIsStandard) != 0;
  };
  for (const SourceFile& file : files) {
    if (kindOf(file) == kindOf(files.front())) continue;
    return cannotMerge(file, files.front(),
                       "GPS times count from another beginning (week, standard)");
  }
  return {};
}

/// Adds what is not there yet. Errors: two descriptors of one number.
Outcome<void> addRecords(const SourceFile& file, const SourceFile& first, const Records& from,
                         Records& into, std::vector<std::string>& notes) {
  for (const VariableRecord& record : from) {
    if (&file != &first && hasId(record, kLasSpecUserId, kExtraBytesRecordId)) continue;
    const auto sameId = [&](const VariableRecord& other) {
      return other.userId == record.userId && other.recordId == record.recordId;
    };
    const bool isKnown = std::any_of(into.begin(), into.end(), [&](const VariableRecord& other) {
      return isSame(other, record);
    });
    if (isKnown && &file != &first) continue;
    if (&file != &first && std::any_of(into.begin(), into.end(), sameId)) {
      if (isWaveformDescriptor(record)) {
        return cannotMerge(file, first,
                           fmt::format("another waveform descriptor {}",
                                       record.recordId - kFirstWaveformDescriptorId + 1));
      }
      notes.push_back(fmt::format("{}: another record {} {} than other files: all are kept",
                                  file.name, textBeforeNul(record.userId), record.recordId));
    }
    into.push_back(record);
  }
  return {};
}

/// Identifiers hold for all points or not at all.
void mergeHeader(const SourceFile& file, LasHeader& header) {
  const LasHeader& other = file.header;
  if (header.fileSourceId != other.fileSourceId) header.fileSourceId = 0;
  if (header.projectGuid != other.projectGuid) header.projectGuid = {};
  if (header.systemIdentifier != other.systemIdentifier) header.systemIdentifier = "MERGE";
  if (header.trailingBytes != other.trailingBytes) header.trailingBytes.clear();
  if (header.versionMinor != other.versionMinor) header.trailingBytes.clear();
  header.versionMinor = std::max(header.versionMinor, other.versionMinor);
  header.globalEncoding |= other.globalEncoding & kWktCoordinateSystem;
}

}  // namespace

Outcome<MergedSource> mergeSources(std::span<const SourceFile> files) {
  MergedSource merged;
  if (auto same = requireSameCrs(files, merged); !same) return same.failure();
  if (auto same = requireSameTimes(files); !same) return same.failure();
  const SourceFile& first = files.front();
  merged.header = first.header;
  std::set<std::uint8_t> formats;
  for (const SourceFile& file : files) {
    formats.insert(file.header.pointFormat);
    mergeHeader(file, merged.header);
    if (auto added = addRecords(file, first, file.vlrs, merged.vlrs, merged.notes); !added) {
      return added.failure();
    }
    if (auto added = addRecords(file, first, file.evlrs, merged.evlrs, merged.notes); !added) {
      return added.failure();
    }
  }
  merged.pointFormats.assign(formats.begin(), formats.end());
  return merged;
}

}  // namespace Formats
