// SPDX-License-Identifier: Apache-2.0
//
// NumberText: numbers as text that readNumber reads back, independent of the process's locale.
// Every function writes at `to`, where kMostNumberChars must fit, and returns what is behind the
// text. Threads: pure functions of their arguments.

#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>

namespace Formats {

inline constexpr std::size_t kMostNumberChars = 48;

/// With exactly `decimals` (at most kMostDecimals) digits behind the point, if the text reads back
/// as the identical number or `isRounded` allows the nearest one; else the shortest text that reads
/// back identically. Numbers beyond 2^53 steps of the last decimal are never rounded.
char* writeNumber(char* to, double value, std::uint8_t decimals, bool isRounded);

/// The shortest text that reads back as the identical number of that type.
template <class T>
char* writeShortest(char* to, T value) {
  return std::to_chars(to, to + kMostNumberChars, value).ptr;
}

}  // namespace Formats
