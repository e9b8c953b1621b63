// SPDX-License-Identifier: Apache-2.0
//
// TextRows: points as rows of text. A block of points is formatted by one call that shares nothing
// with others, so that blocks can be made by all threads and be put together in order by a
// TextWriter. Independent of the process's locale.
//
// Rounding: none, unless asked for. Numbers whose decimals are known (see decimalsOf) are written
// with as many, if that text reads back as the identical number; all others as the shortest text
// that does. Values of 32 bits read back identically as such.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/fiber/MemBase.hpp"
#include "datamodel/memcore/Attributes.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/text/LineParts.hpp"
#include "formats/text/NumberToken.hpp"

namespace Formats {

/// Digits behind the decimal point of x, y and z, or of a field in the first place; each at most
/// kMostDecimals, or kUnknownDecimals.
using Decimals = std::array<std::uint8_t, 3>;
inline constexpr Decimals kNoDecimals{kUnknownDecimals, kUnknownDecimals, kUnknownDecimals};

/// What the property map of a field says about decimals: "Decimals" as TextCloudReader leaves them,
/// else those of "GridScale" and "GridOffset".
Decimals decimalsOf(const MemCore::Attributes& properties);

/// One field of some points: positions (written as three columns), or numbers of any type.
struct TextColumn {
  std::string name;
  MemCore::StrongPtr<Fiber::MemBase> values;
  Decimals decimals = kNoDecimals;
};

struct RowStyle {
  Delimiter delimiter = Delimiter::Blanks;
  /// Numbers with known decimals are cut to them, to the nearest, though others read back then.
  bool isRounded = false;
};

/// The line that names the columns, with its end: x, y and z for positions, else the field's name,
/// in which whatever would part it is replaced by '_'.
std::string headerLine(std::span<const TextColumn> columns, const RowStyle& style);

/// Rows of all points, or of those that `rows` lists, each with its end (LF).
/// Errors: columns of different lengths or with elements that are no numbers, a row that is not
/// there. Threads: any. May throw std::bad_alloc.
MemCore::Outcome<std::string> formatRows(
    std::span<const TextColumn> columns, const RowStyle& style,
    const std::optional<std::span<const std::uint32_t>>& rows = std::nullopt);

}  // namespace Formats
