// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextCloudFields.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <unordered_map>

namespace Formats {

namespace {

void noteZeros(std::span<const TextField> fields, std::size_t file, const std::string& path,
               std::vector<std::string>& notes) {
  std::vector<std::string_view> missing;
  for (const TextField& field : fields) {
    if (!field.columns[file]) missing.push_back(field.name);
  }
  if (missing.empty()) return;
  notes.push_back(fmt::format("{}: has no {} {}: zeros are supplied", path,
                              missing.size() == 1 ? "field" : "fields", fmt::join(missing, ", ")));
}

}  // namespace

std::vector<TextField> joinTextFields(std::span<const FileRoles> files) {
  std::vector<TextField> fields;
  std::unordered_map<std::string, std::size_t> places;
  for (std::size_t file = 0; file < files.size(); ++file) {
    for (std::size_t column = 0; column < files[file].size(); ++column) {
      const ColumnRole& role = files[file][column];
      if (role.kind != ColumnRole::Kind::Field) continue;
      const auto [place, isNew] = places.try_emplace(role.field, fields.size());
      if (isNew) {
        TextField& field = fields.emplace_back();
        field.name = role.field;
        field.preferredTypes = role.types;
        field.columns.resize(files.size());
      }
      fields[place->second].columns[file] = column;
    }
  }
  return fields;
}

bool settleTypes(std::span<TextField> fields) {
  bool isOther = false;
  for (TextField& field : fields) {
    const ElementType type = chooseType(field.facts, field.preferredTypes);
    isOther = isOther || type != field.type;
    field.type = type;
  }
  return isOther;
}

void planColumns(TextFile& file, std::size_t fileNumber, const FileRoles& roles,
                 std::span<const TextField> fields) {
  file.columns.assign(roles.size(), {});
  file.fieldCount = 0;
  for (std::size_t i = 0; i < roles.size(); ++i) {
    file.columns[i].kind = roles[i].kind;
    file.columns[i].axis = roles[i].axis;
  }
  for (const TextField& field : fields) {
    const auto column = field.columns[fileNumber];
    if (!column) continue;
    file.columns[*column].field = file.fieldCount++;
    file.columns[*column].type = field.type;
  }
}

void addFacts(std::span<TextField> fields, std::size_t fileNumber,
              std::span<const ColumnFacts> columns) {
  for (TextField& field : fields) {
    if (const auto column = field.columns[fileNumber]) field.facts.add(columns[*column]);
  }
}

std::vector<std::string> fieldNotes(std::span<const TextField> fields,
                                    std::span<const std::string> paths,
                                    std::span<const FileRoles> files) {
  std::vector<std::string> notes;
  for (std::size_t file = 0; file < files.size(); ++file) {
    if (!files[file].empty()) noteZeros(fields, file, paths[file], notes);
  }
  for (const TextField& field : fields) {
    const auto& wanted = field.preferredTypes;
    if (wanted.empty() || std::find(wanted.begin(), wanted.end(), field.type) != wanted.end()) {
      continue;
    }
    notes.push_back(fmt::format("field {}: its numbers do not fit {}: kept as {}", field.name,
                                elementTypeName(wanted.back()), elementTypeName(field.type)));
  }
  return notes;
}

}  // namespace Formats
