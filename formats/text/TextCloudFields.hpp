// SPDX-License-Identifier: Apache-2.0
//
// TextCloudFields: the fields of a cloud of several text files. Every fragment of a grid must carry
// every field of the grid, so the fields are those of all files together, joined by name, and a
// file that lacks one supplies zeros. A field's type is one that fits its numbers in all files.

#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "formats/text/TextFragment.hpp"

namespace Formats {

/// One field of the cloud.
struct TextField {
  std::string name;
  std::span<const ElementType> preferredTypes;
  /// Per file: which of the file's columns it is; absent where zeros are supplied.
  std::vector<std::optional<std::size_t>> columns;
  ColumnFacts facts;  ///< Of all numbers that were looked at.
  ElementType type = ElementType::Float64;
};

/// The columns of one file, by their roles; none for a file without points.
using FileRoles = std::vector<ColumnRole>;

/// The fields of all files in the order in which the files first show them, without facts.
std::vector<TextField> joinTextFields(std::span<const FileRoles> files);

/// Chooses each field's type from its facts. Returns whether any type is another one now.
bool settleTypes(std::span<TextField> fields);

/// Tells each column of a file what becomes of it.
void planColumns(TextFile& file, std::size_t fileNumber, const FileRoles& roles,
                 std::span<const TextField> fields);

/// Adds the facts of a file's columns to those of the fields.
void addFacts(std::span<TextField> fields, std::size_t fileNumber,
              std::span<const ColumnFacts> columns);

/// What is not as one would expect: one line for each file that supplies zeros, and one for each
/// field whose numbers do not fit the type that it has in LAS files.
std::vector<std::string> fieldNotes(std::span<const TextField> fields,
                                    std::span<const std::string> paths,
                                    std::span<const FileRoles> files);

}  // namespace Formats
