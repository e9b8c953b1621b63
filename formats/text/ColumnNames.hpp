// SPDX-License-Identifier: Apache-2.0
//
// ColumnNames: what the columns of a text file are called by people and programs, as the axes and
// fields of a cloud. Case, blanks, underscores and a unit in brackets make no difference.
// Threads: pure functions of their arguments.

#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/ExtraBytes.hpp"

namespace Formats {

/// The name that leaves a column out.
inline constexpr std::string_view kSkippedColumn = "-";

/// What a column holds.
struct ColumnRole {
  enum class Kind { Skipped, Axis, Field };
  Kind kind = Kind::Skipped;
  std::size_t axis = 0;  ///< Of an axis: 0 to 2.
  std::string field;     ///< Of a field: its name in the cloud.
  /// Of a field: the types that LAS files store it as, the first that fits is taken.
  std::span<const ElementType> types;
};

/// The roles of columns by their names. x, y and z go before their other names (easting, longitude;
/// northing, latitude; depth, height, elevation, altitude); a column that is not needed for an axis
/// becomes a field. Fields that LAS knows get the name that they have there, others keep their own;
/// a name that is taken gets "_2", "_3", ...
/// Errors: no column, or more than one, for an axis.
MemCore::Outcome<std::vector<ColumnRole>> rolesOf(std::span<const std::string> names);

/// The names of files that have none: x, y, z, Column4, Column5, ...
std::vector<std::string> defaultColumnNames(std::size_t count);

}  // namespace Formats
