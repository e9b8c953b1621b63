// SPDX-License-Identifier: Apache-2.0
//
// ColumnFit: turns the values of a column into those of a field of a point record, and notices
// every value that the field cannot hold. Threads: pure functions of their arguments.

#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "formats/las/PointLayout.hpp"

namespace Formats {

/// Where the values come from and how they are to be seen.
/// Shape: `values` holds [points][components] elements of `type`, native byte order.
struct ColumnView {
  std::span<const std::byte> values;
  ElementType type = ElementType::UInt8;
  std::size_t components = 1;
  std::size_t component = 0;  ///< the one to take
  double factor = 1.0;        ///< value in the record = value * factor
};

/// The result: elements of the record's field, and the first value that did not fit, as text.
struct FittedColumn {
  std::vector<std::byte> elements;
  std::optional<std::string> misfit;
};

/// Whether the values can be copied as they stand: one component of the same type, and no value too
/// wide for a field of some bits. fitColumn need not be called then.
bool fitsAsItStands(const ColumnView& column, const PointField& field);

/// Converts all values. Rounding: what does not fit is a misfit, and becomes the nearest value that
/// the field can hold (halves away from zero, NaN becomes 0). Whole numbers that are counted in
/// other steps (`factor`) fit when they can be told from the rounded result.
FittedColumn fitColumn(const ColumnView& column, const PointField& field);

}  // namespace Formats
