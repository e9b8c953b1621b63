// SPDX-License-Identifier: Apache-2.0

#include "formats/text/ColumnNames.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <unordered_map>
#include <unordered_set>

#include "formats/las/SafeName.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

using enum ElementType;
constexpr std::array kByte{UInt8};
constexpr std::array kShort{UInt16};
constexpr std::array kDouble{Float64};
/// Whole degrees, or the finer steps of later point formats.
constexpr std::array kAngle{Int8, Int16};

struct KnownField {
  const char* name;
  std::span<const ElementType> types;
};

/// Names in their plain form (see plainForm) of the fields that LAS knows.
const std::unordered_map<std::string_view, KnownField>& knownFields() {
  static const std::unordered_map<std::string_view, KnownField> kFields{
      {"intensity", {"Intensity", kShort}},
      {"i", {"Intensity", kShort}},
      {"returnnumber", {"ReturnNumber", kByte}},
      {"return", {"ReturnNumber", kByte}},
      {"numberofreturns", {"NumberOfReturns", kByte}},
      {"numreturns", {"NumberOfReturns", kByte}},
      {"returns", {"NumberOfReturns", kByte}},
      {"classification", {"Classification", kByte}},
      {"class", {"Classification", kByte}},
      {"scanangle", {"ScanAngle", kAngle}},
      {"scananglerank", {"ScanAngle", kAngle}},
      {"userdata", {"UserData", kByte}},
      {"pointsourceid", {"PointSourceId", kShort}},
      {"pointsource", {"PointSourceId", kShort}},
      {"gpstime", {"GpsTime", kDouble}},
      {"t", {"GpsTime", kDouble}},
      {"r", {"Red", kShort}},
      {"red", {"Red", kShort}},
      {"g", {"Green", kShort}},
      {"green", {"Green", kShort}},
      {"b", {"Blue", kShort}},
      {"blue", {"Blue", kShort}},
      {"infrared", {"Infrared", kShort}},
      {"nir", {"Infrared", kShort}},
      {"scandirectionflag", {"ScanDirectionFlag", kByte}},
      {"edgeofflightline", {"EdgeOfFlightLine", kByte}},
      {"scanchannel", {"ScanChannel", kByte}},
      {"scannerchannel", {"ScanChannel", kByte}},
      {"synthetic", {"Synthetic", kByte}},
      {"keypoint", {"KeyPoint", kByte}},
      {"withheld", {"Withheld", kByte}},
      {"overlap", {"Overlap", kByte}},
  };
  return kFields;
}

/// The names of each axis; the first one goes before the others.
constexpr std::array<std::array<std::string_view, 6>, 3> kAxisNames{{
    {"x", "easting", "east", "longitude", "lon", "long"},
    {"y", "northing", "north", "latitude", "lat", ""},
    {"z", "depth", "height", "elevation", "elev", "altitude"},
}};

/// Letters and digits in lower case, without a unit in brackets at the end.
std::string plainForm(std::string_view name) {
  const std::size_t bracket = name.find_first_of("([");
  // "Echo[2]" is no unit, but one of several.
  const bool isUnit = bracket != std::string_view::npos && bracket > 0 &&
                      name.find_first_of("0123456789", bracket) != bracket + 1;
  if (isUnit) name = name.substr(0, bracket);
  std::string form;
  for (const char c : name) {
    if (c >= 'A' && c <= 'Z') form += static_cast<char>(c - 'A' + 'a');
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || static_cast<unsigned char>(c) >= 0x80) {
      form += c;
    }
  }
  return form;
}

/// The columns that may be one axis: those of its first name if there are any, else of the others.
std::vector<std::size_t> columnsOfAxis(std::span<const std::string> forms, std::size_t axis) {
  const auto& names = kAxisNames[axis];
  std::vector<std::size_t> first;
  std::vector<std::size_t> others;
  for (std::size_t i = 0; i < forms.size(); ++i) {
    if (forms[i].empty()) continue;
    const auto* const found = std::find(names.begin(), names.end(), forms[i]);
    if (found == names.end()) continue;
    (found == names.begin() ? first : others).push_back(i);
  }
  return first.empty() ? others : first;
}

Outcome<void> findAxes(std::span<const std::string> names, std::span<const std::string> forms,
                       std::vector<ColumnRole>& roles) {
  constexpr std::size_t kMostShown = 20;
  for (std::size_t axis = 0; axis < kAxisNames.size(); ++axis) {
    const std::vector<std::size_t> columns = columnsOfAxis(forms, axis);
    if (columns.size() == 1) {
      roles[columns[0]] = {ColumnRole::Kind::Axis, axis, {}, {}};
      continue;
    }
    std::vector<std::string> shown;
    for (std::size_t i = 0; i < std::min(names.size(), kMostShown); ++i) {
      shown.push_back(safeName(names[i]).substr(0, 40));
    }
    return Failure{fmt::format("{} for {}, found \"{}\"{}, expected one of each of x, y and z",
                               columns.empty() ? "no column" : "several columns", "xyz"[axis],
                               fmt::join(shown, " "), names.size() > kMostShown ? ", ..." : "")};
  }
  return {};
}

/// Gives each field a name of its own.
class FieldNamer {
 public:
  std::string nameFor(const std::string& wanted) {
    if (used_.insert(wanted).second) return wanted;
    std::size_t& number = lastNumber_.try_emplace(wanted, 1).first->second;
    std::string name;
    do {
      name = fmt::format("{}_{}", wanted, ++number);
    } while (!used_.insert(name).second);
    return name;
  }

 private:
  std::unordered_set<std::string> used_{"Position", "Positions", "Waveforms", "FWFLength"};
  std::unordered_map<std::string, std::size_t> lastNumber_;
};

}  // namespace

Outcome<std::vector<ColumnRole>> rolesOf(std::span<const std::string> names) {
  std::vector<std::string> forms;
  for (const std::string& name : names) {
    forms.push_back(name == kSkippedColumn ? std::string() : plainForm(name));
  }
  std::vector<ColumnRole> roles(names.size());
  if (const auto found = findAxes(names, forms, roles); !found) return found.failure();
  FieldNamer namer;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (roles[i].kind == ColumnRole::Kind::Axis || names[i] == kSkippedColumn) continue;
    const auto known = knownFields().find(forms[i]);
    const bool isKnown = known != knownFields().end();
    roles[i].kind = ColumnRole::Kind::Field;
    roles[i].field = namer.nameFor(isKnown ? known->second.name : safeName(names[i]));
    if (isKnown) roles[i].types = known->second.types;
  }
  return roles;
}

std::vector<std::string> defaultColumnNames(std::size_t count) {
  std::vector<std::string> names{"x", "y", "z"};
  for (std::size_t i = names.size(); i < count; ++i)
    names.push_back(fmt::format("Column{}", i + 1));
  return names;
}

}  // namespace Formats
