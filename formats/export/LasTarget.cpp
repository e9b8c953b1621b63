// SPDX-License-Identifier: Apache-2.0

#include "formats/export/LasTarget.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <set>

#include "formats/cloud/CloudFields.hpp"
#include "formats/cloud/SourceOrder.hpp"
#include "formats/export/ExtraBytesPlan.hpp"
#include "formats/export/PointFormatChoice.hpp"
#include "formats/export/SourceMerge.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr const char* kSystemIdentifier = "OTHER";
constexpr const char* kGeneratingSoftware = "refragment";

/// The header and records of a grid that did not come from LAS files.
MergedSource freshSource() {
  MergedSource fresh;
  fresh.header.systemIdentifier = kSystemIdentifier;
  fresh.header.generatingSoftware = kGeneratingSoftware;
  return fresh;
}

/// The scan angle counts whole degrees in old formats and steps in new ones.
double scanAngleFactor(ElementType from, ElementType to) {
  const bool isStepsFrom = from == ElementType::Int16;
  const bool isStepsTo = to == ElementType::Int16;
  if (isStepsFrom == isStepsTo) return 1.0;
  return isStepsTo ? 1.0 / kScanAngleStepDegrees : kScanAngleStepDegrees;
}

/// Whether every value of a field is known, or found, to be 0.
bool isAllZero(const ExportField& field) {
  std::string name;
  const auto range = Fiber::getRange(*field.field, name, false, true);
  return range && range->range().min == 0.0 && range->range().max == 0.0;
}

/// Settles one target step by step.
class TargetMaker {
 public:
  TargetMaker(const ExportSource& source, const LasExportOptions& options)
      : source_(source), options_(options) {}

  Outcome<LasTarget> make() {
    auto merged =
        source_.files.empty() ? Outcome<MergedSource>(freshSource()) : mergeSources(source_.files);
    if (!merged) return merged.failure();
    target_.notes = merged->notes;
    target_.writer.header = merged->header;
    target_.writer.vlrs = std::move(merged->vlrs);
    target_.writer.evlrs = std::move(merged->evlrs);
    const bool namesPackets = keepsPacketFields();
    const std::uint8_t format =
        choosePointFormat(source_, merged->pointFormats, namesPackets, options_);
    target_.writer.header.pointFormat = format;
    if (auto mapped = mapFields(); !mapped) return mapped.failure();
    settleVersion();
    target_.writer.header.isCompressed = options_.isCompressed;
    target_.writer.isDurable = options_.isDurable;
    if (namesPackets && source_.samples && formatHasWaveforms(format)) {
      target_.writer.waveforms = options_.waveforms;
    } else if (!namesPackets) {
      forgetWaveformDescriptors();
    }
    return std::move(target_);
  }

 private:
  /// Whether points are to name waveform packets; says so when something is missing for that.
  bool keepsPacketFields() {
    if (options_.waveforms == WaveformPlace::Nowhere) return false;
    if (source_.fragments.empty()) return isFromWaveformFiles();
    const bool isNamed = source_.find(kWaveDescriptorField) && source_.find(kWaveOffsetField) &&
                         source_.find(kWaveSizeField);
    if (source_.samples && !isNamed) {
      target_.notes.push_back(fmt::format(
          "grid {}: its waveforms are left out: the fields {}, {} and {} that describe them are "
          "missing",
          source_.gridName, kWaveDescriptorField, kWaveOffsetField, kWaveSizeField));
    } else if (isNamed && !source_.samples) {
      target_.notes.push_back(fmt::format(
          "grid {}: has no waveforms: points name packets that are not there", source_.gridName));
    }
    return isNamed;
  }

  /// A grid without points has no fields to tell by.
  bool isFromWaveformFiles() const {
    return std::any_of(source_.files.begin(), source_.files.end(), [](const SourceFile& file) {
      return formatHasWaveforms(file.header.pointFormat);
    });
  }

  /// Descriptors of packets that no point names.
  void forgetWaveformDescriptors() { std::erase_if(target_.writer.vlrs, isWaveformDescriptor); }

  Outcome<void> mapFields() {
    const std::uint8_t format = target_.writer.header.pointFormat;
    const auto standard = PointLayout::make(format, standardRecordBytes(format), {});
    if (!standard) return standard.failure();
    std::set<std::string> placed;
    std::vector<std::string> missing;
    for (const PointField& field : standard->fields()) {
      if (mapStandardField(field)) {
        placed.insert(field.name);
      } else {
        missing.push_back(field.name);
      }
    }
    if (!source_.files.empty() && !source_.fragments.empty() && !missing.empty()) {
      target_.notes.push_back(fmt::format("grid {}: has no {}: zeros are written", source_.gridName,
                                          fmt::join(missing, ", ")));
    }
    return mapOthers(placed);
  }

  bool mapStandardField(const PointField& target) {
    for (std::size_t i = 0; i < source_.fields.size(); ++i) {
      const ExportField& field = source_.fields[i];
      if (field.name != target.name || field.components != 1) continue;
      const double factor =
          target.name == "ScanAngle" ? scanAngleFactor(field.type, target.type) : 1.0;
      target_.mappings.push_back({target, i, 0, factor});
      return true;
    }
    return false;
  }

  Outcome<void> mapOthers(const std::set<std::string>& placed) {
    std::vector<std::size_t> extra;
    for (std::size_t i = 0; i < source_.fields.size(); ++i) {
      const ExportField& field = source_.fields[i];
      if (placed.contains(field.name) || isOrderField(field.name)) continue;
      if (field.components == 1 && isStandardField(field.name)) {
        if (auto left = leaveOut(field); !left) return left;
      } else {
        extra.push_back(i);
      }
    }
    return mapExtraBytes(extra);
  }

  /// A field that other point formats have.
  Outcome<void> leaveOut(const ExportField& field) {
    if (isWavePacketField(field.name) || isAllZero(field)) return {};
    const auto what = fmt::format("grid {}: field {} has no place in point format {}",
                                  source_.gridName, field.name, target_.writer.header.pointFormat);
    if (!options_.isLossy) return Failure{what + " (a lossy export leaves it out)"};
    target_.notes.push_back(what + ": left out");
    return {};
  }

  Outcome<void> mapExtraBytes(const std::vector<std::size_t>& fields) {
    LasHeader& header = target_.writer.header;
    const std::uint16_t start = standardRecordBytes(header.pointFormat);
    auto plan = planExtraBytes(source_, fields);
    if (!plan) return plan.failure();
    for (const ExtraBytesPlace& place : plan->places) {
      PointField target;
      target.name = source_.fields[place.field].name;
      target.type = source_.fields[place.field].type;
      target.byteOffset = static_cast<std::uint16_t>(start + place.byteOffset);
      target_.mappings.push_back({std::move(target), place.field, place.component, 1.0});
    }
    if (plan->byteCount > UINT16_MAX - start) {
      return Failure{
          fmt::format("point records: too long, found {} extra bytes, expected at most "
                      "{}",
                      plan->byteCount, UINT16_MAX - start)};
    }
    header.recordBytes = static_cast<std::uint16_t>(start + plan->byteCount);
    if (!plan->isVerbatim) describeExtraBytesBy(plan->descriptors);
    target_.notes.insert(target_.notes.end(), plan->notes.begin(), plan->notes.end());
    return {};
  }

  /// One record with the descriptors in the place of all that there were.
  void describeExtraBytesBy(const std::vector<ExtraBytesDescriptor>& descriptors) {
    auto& vlrs = target_.writer.vlrs;
    const auto isDescription = [](const VariableRecord& record) {
      return hasId(record, kLasSpecUserId, kExtraBytesRecordId);
    };
    auto first = std::find_if(vlrs.begin(), vlrs.end(), isDescription);
    const auto at = first - vlrs.begin();
    std::erase_if(vlrs, isDescription);
    if (descriptors.empty()) return;
    VariableRecord record;
    record.userId = kLasSpecUserId;
    record.recordId = kExtraBytesRecordId;
    record.description = "Extra Bytes";
    record.payload = serialiseExtraBytes(descriptors);
    record.payloadBytes = record.payload.size();
    vlrs.insert(vlrs.begin() + std::min<std::ptrdiff_t>(at, std::ssize(vlrs)), std::move(record));
  }

  /// The oldest version that holds all of it, but none older than the files'.
  void settleVersion() {
    LasHeader& header = target_.writer.header;
    const std::uint8_t before = header.versionMinor;
    header.versionMinor = std::max(header.versionMinor, oldestMinorOf(header.pointFormat));
    if (!target_.writer.evlrs.empty() || source_.pointCount() > UINT32_MAX) header.versionMinor = 4;
    if (header.versionMinor != before) header.trailingBytes.clear();
  }

  const ExportSource& source_;
  const LasExportOptions& options_;
  LasTarget target_;
};

}  // namespace

bool isOrderField(const std::string& name) {
  return name == kSourceFileField || name == kSourceIndexField;
}

Outcome<LasTarget> lasTargetOf(const ExportSource& source, const LasExportOptions& options) {
  return TargetMaker(source, options).make();
}

}  // namespace Formats
