// SPDX-License-Identifier: Apache-2.0
//
// NumberToken: one number of a line of text, with what its spelling says: whether it is a whole
// number, and how many decimals it has. Independent of the process's locale.
//
// Rounding: to the nearest double, ties to even, as IEEE 754 asks for. Up to 2^53 the digits are an
// exact double, and so is a power of ten up to 10^22: one division of both is the nearest double.
// Everything else is fast_float's.

#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace Formats {

/// The property of a field that says with how many decimals numbers are to be written.
inline constexpr const char* kDecimalsProperty = "Decimals";

/// Said of numbers whose spelling has no plain count of decimals (an exponent).
inline constexpr std::uint8_t kUnknownDecimals = 255;
/// More decimals than this are not counted, but unknown.
inline constexpr std::uint8_t kMostDecimals = 22;

/// 10^0 to 10^22, every one an exact double.
inline constexpr std::array<double, kMostDecimals + 1> kPowersOfTen{
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

struct NumberToken {
  double value = 0.0;
  /// All digits as one whole number, without sign and decimal point. Meaningful while hasDigits.
  std::uint64_t digits = 0;
  bool hasDigits = false;  ///< False: an exponent, NaN, an infinity, or digits beyond 64 bits.
  bool isNegative = false;
  std::uint8_t decimals = 0;  ///< Digits behind the decimal point, or kUnknownDecimals.
};

/// Reads numbers that the quick way does not. As readNumber.
const char* readAnyNumber(const char* first, const char* last, NumberToken& number);

/// Reads the number at the start of [first, last): a sign, digits, a decimal point, an exponent, or
/// "nan" or "inf" in any case. Returns what is behind it; null when there is no number, or one that
/// no double comes near (1e999).
inline const char* readNumber(const char* first, const char* last, NumberToken& number) {
  constexpr std::int64_t kMostDigits = 18;  // fit into 64 bits whatever they are
  constexpr std::uint64_t kExactBelow = std::uint64_t{1} << 53U;
  const char* at = first;
  number.isNegative = at != last && *at == '-';
  if (at != last && (*at == '-' || *at == '+')) ++at;
  std::uint64_t digits = 0;
  const auto takeDigits = [&] {
    const char* const begin = at;
    for (; at != last; ++at) {
      const auto digit = static_cast<unsigned>(static_cast<unsigned char>(*at)) - '0';
      if (digit > 9) break;
      digits = digits * 10 + digit;
    }
    return at - begin;
  };
  const std::int64_t before = takeDigits();
  std::int64_t decimals = 0;
  if (at != last && *at == '.') {
    ++at;
    decimals = takeDigits();
  }
  const std::int64_t count = before + decimals;
  const bool hasExponent = at != last && (*at == 'e' || *at == 'E');
  if (count == 0 || count > kMostDigits || digits > kExactBelow || hasExponent) {
    NumberToken any;  // of its own, so that `number` can live in registers
    const char* const end = readAnyNumber(first, last, any);
    number = any;
    return end;
  }
  double value = static_cast<double>(digits);
  if (decimals != 0) value /= kPowersOfTen[static_cast<std::size_t>(decimals)];
  number.value = number.isNegative ? -value : value;
  number.digits = digits;
  number.hasDigits = true;
  number.decimals = static_cast<std::uint8_t>(decimals);
  return at;
}

/// Whether a text is one number and nothing else, which is then in `number`.
inline bool readWhole(std::string_view text, NumberToken& number) {
  const char* const last = text.data() + text.size();
  return !text.empty() && readNumber(text.data(), last, number) == last;
}

}  // namespace Formats
