// SPDX-License-Identifier: Apache-2.0

#include "formats/text/NumberText.hpp"

#include <algorithm>
#include <cmath>

#include "formats/text/NumberToken.hpp"

namespace Formats {

namespace {

/// Writes digits with a point before the last `decimals` of them.
char* writeSteps(char* to, std::uint64_t steps, std::uint8_t decimals) {
  char digits[kMostNumberChars];
  const auto count = static_cast<std::size_t>(writeShortest(digits, steps) - digits);
  if (decimals == 0) return std::copy_n(digits, count, to);
  const std::size_t before = count > decimals ? count - decimals : 0;
  to = before == 0 ? std::fill_n(to, 1, '0') : std::copy_n(digits, before, to);
  *to++ = '.';
  to = std::fill_n(to, decimals - (count - before), '0');
  return std::copy_n(digits + before, count - before, to);
}

}  // namespace

char* writeNumber(char* to, double value, std::uint8_t decimals, bool isRounded) {
  constexpr double kExactBelow = 9007199254740992.0;
  if (decimals > kMostDecimals) return writeShortest(to, value);
  const double size = std::abs(value);
  const double steps = std::nearbyint(size * kPowersOfTen[decimals]);
  // Whole steps and powers of ten are exact, so their quotient is the number nearest to the text,
  // which is what every correct reader makes of it.
  const bool isExact = steps < kExactBelow && steps / kPowersOfTen[decimals] == size;
  if (!isExact && !(isRounded && steps < kExactBelow)) return writeShortest(to, value);
  if (std::signbit(value) && (isExact || steps != 0.0)) *to++ = '-';
  return writeSteps(to, static_cast<std::uint64_t>(steps), decimals);
}

}  // namespace Formats
