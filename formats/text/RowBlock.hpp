// SPDX-License-Identifier: Apache-2.0
//
// RowBlock: some hundred rows of numbers on their way from lines of text into columns: small enough
// for the second-level cache, large enough that columns are filled in runs.

#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "datamodel/eagle/PhysicalSpace.hpp"
#include "formats/text/ColumnFacts.hpp"
#include "formats/text/ColumnNames.hpp"

namespace Formats {

/// What becomes of one column of a file.
struct PlannedColumn {
  ColumnRole::Kind kind = ColumnRole::Kind::Skipped;
  std::size_t axis = 0;                     ///< Of an axis.
  std::size_t field = 0;                    ///< Of a field: its place among the file's fields.
  ElementType type = ElementType::Float64;  ///< Of a field.
};

/// Rows as they are parsed. Positions as they are, other values as 64 bits: a double's, or those of
/// an integer in two's complement.
class RowBlock {
 public:
  static constexpr std::size_t kMostRows = 512;

  explicit RowBlock(std::size_t fieldCount)
      : positions(kMostRows), slots_(fieldCount * kMostRows) {}

  std::uint64_t* slots(std::size_t field) { return slots_.data() + field * kMostRows; }
  const std::uint64_t* slots(std::size_t field) const { return slots_.data() + field * kMostRows; }

  /// Puts a number into the row that is being filled.
  void put(const PlannedColumn& column, const NumberToken& number) {
    if (column.kind == ColumnRole::Kind::Axis) {
      positions[rowCount][column.axis] = number.value;
    } else {
      slots(column.field)[rowCount] = column.type == ElementType::Float64
                                          ? std::bit_cast<std::uint64_t>(number.value)
                                          : wholeBits(number);
    }
  }

  std::size_t rowCount = 0;  ///< Whole rows.
  std::vector<Eagle::PhysicalSpace::point> positions;

 private:
  std::vector<std::uint64_t> slots_;
};

}  // namespace Formats
