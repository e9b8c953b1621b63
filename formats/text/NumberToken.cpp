// SPDX-License-Identifier: Apache-2.0

#include "formats/text/NumberToken.hpp"

#include <fast_float/fast_float.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace Formats {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// What the spelling of a finite number says beyond its value.
void readSpelling(const char* first, const char* last, NumberToken& number) {
  const char* const point = std::find(first, last, '.');
  const bool isPlain = std::all_of(first, last, [](char c) { return isDigit(c) || c == '.'; });
  const auto decimals = point == last ? 0 : last - point - 1;
  number.decimals =
      isPlain && decimals <= kMostDecimals ? static_cast<std::uint8_t>(decimals) : kUnknownDecimals;
  if (!isPlain || point != last) return;
  number.hasDigits = std::from_chars(first, last, number.digits).ec == std::errc();
}

}  // namespace

const char* readAnyNumber(const char* first, const char* last, NumberToken& number) {
  const bool hasSign = first != last && (*first == '-' || *first == '+');
  const char* const unsignedFirst = first + (hasSign ? 1 : 0);
  // A second sign would be taken for the number's own.
  if (unsignedFirst == last || *unsignedFirst == '-' || *unsignedFirst == '+') return nullptr;
  number = NumberToken();
  number.isNegative = hasSign && *first == '-';
  const auto [end, error] = fast_float::from_chars(unsignedFirst, last, number.value);
  if (error != std::errc()) return nullptr;
  const bool isWord = !isDigit(*unsignedFirst) && *unsignedFirst != '.';
  if (!isWord && std::isinf(number.value)) return nullptr;
  if (!isWord) readSpelling(unsignedFirst, end, number);
  if (number.isNegative) number.value = -number.value;
  return end;
}

}  // namespace Formats
