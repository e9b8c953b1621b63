// SPDX-License-Identifier: Apache-2.0
//
// ColumnFacts: what the numbers of a column have in common, gathered while they are read: whether
// all are whole, how large they become, how many decimals they have. The type of a field follows
// from the facts of its columns in all files.

#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>

#include "formats/las/ExtraBytes.hpp"
#include "formats/text/NumberToken.hpp"

namespace Formats {

/// As wholeMagnitude, for numbers whose digits alone do not tell.
std::optional<std::uint64_t> wholeMagnitudeOfValue(double value);

/// The distance from 0 of a whole number; absent for others, and for -0, which no integer is.
inline std::optional<std::uint64_t> wholeMagnitude(const NumberToken& number) {
  if (!number.hasDigits || number.decimals != 0) return wholeMagnitudeOfValue(number.value);
  if (number.isNegative && number.digits == 0) return std::nullopt;
  return number.digits;
}

/// A number as a 64-bit integer in two's complement; 0 when it is not whole.
inline std::uint64_t wholeBits(const NumberToken& number) {
  const std::uint64_t magnitude = wholeMagnitude(number).value_or(0);
  return number.isNegative ? std::uint64_t{0} - magnitude : magnitude;
}

/// The facts of no numbers at all, until some are added. Threads: one at a time per object.
struct ColumnFacts {
  bool isWhole = true;        ///< All are whole numbers of 64 bits; "2.000" is one, "-0" is not.
  std::uint8_t decimals = 0;  ///< The most of any number; kUnknownDecimals if any has unknown ones.
  std::uint64_t highest = 0;  ///< Of the whole numbers: the largest, at least 0.
  std::uint64_t deepest = 0;  ///< Of the whole numbers: the smallest one's distance below 0.

  void add(const NumberToken& number) {
    decimals = std::max(decimals, number.decimals);
    if (isWhole) addWhole(number);
  }
  /// Joins the facts of other numbers.
  void add(const ColumnFacts& others);

  /// Whether a type holds every number exactly as it stands in the text (doubles: as near as they
  /// come).
  bool fit(ElementType type) const;

 private:
  void addWhole(const NumberToken& number) {
    const auto magnitude = wholeMagnitude(number);
    isWhole = magnitude.has_value();
    if (!magnitude) return;
    std::uint64_t& reach = number.isNegative ? deepest : highest;
    reach = std::max(reach, *magnitude);
  }
};

/// The first of the preferred types that the numbers fit. None fits, or nothing is preferred:
/// Int32, Int64 or UInt64 for numbers that are all spelled without decimals, otherwise Float64.
ElementType chooseType(const ColumnFacts& facts, std::span<const ElementType> preferred);

}  // namespace Formats
