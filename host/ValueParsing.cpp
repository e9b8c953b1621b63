// SPDX-License-Identifier: Apache-2.0

#include "host/ValueParsing.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>
#include <vector>

#include "formats/text/ColumnNames.hpp"

namespace Host {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

Failure unexpected(const std::string& found, const std::string& expected) {
  return {fmt::format("found \"{}\", expected {}", found, expected)};
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// A finite number that fills the text; std::from_chars knows no locale, but no leading plus.
std::optional<double> wholeNumber(std::string_view text) {
  text = trimmed(text);
  if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

/// The comma-separated numbers of a text; empty when one of them is none.
std::vector<double> numberList(std::string_view text) {
  std::vector<double> numbers;
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t comma = std::min(text.find(',', from), text.size());
    const auto number = wholeNumber(text.substr(from, comma - from));
    if (!number) return {};
    numbers.push_back(*number);
    from = comma + 1;
  }
  return numbers;
}

/// The factor of a unit letter, empty for an unknown one.
std::optional<std::uint64_t> unitFactor(char letter, std::uint64_t base) {
  constexpr std::string_view kLetters = "KMGT";
  const char upper =
      letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
  const std::size_t power = kLetters.find(upper);
  if (power == std::string_view::npos) return std::nullopt;
  std::uint64_t factor = base;
  for (std::size_t i = 0; i < power; ++i) factor *= base;
  return factor;
}

/// Takes a unit letter off the end of the text and returns its factor, 1 without one.
std::uint64_t takeUnit(std::string_view& text, std::uint64_t base) {
  if (text.size() < 2) return 1;
  const auto factor = unitFactor(text.back(), base);
  if (factor) text = trimmed(text.substr(0, text.size() - 1));
  return factor.value_or(1);
}

std::string rangeText(std::uint64_t least, std::uint64_t most) {
  return fmt::format("a whole number from {} to {}", least, most);
}

}  // namespace

Outcome<double> parseNumber(const std::string& text) {
  const auto value = wholeNumber(text);
  if (!value) return unexpected(text, "a finite number");
  return *value;
}

Outcome<std::uint64_t> parseCount(const std::string& text, std::uint64_t least,
                                  std::uint64_t most) {
  std::string digits;
  std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
               [](char c) { return c != '_' && c != '\''; });
  std::string_view rest = trimmed(digits);
  const std::uint64_t factor = takeUnit(rest, 1000);
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
  const bool isWhole = error == std::errc() && end == rest.data() + rest.size();
  if (!isWhole || value > most / factor || value * factor < least) {
    return unexpected(text, rangeText(least, most));
  }
  return value * factor;
}

Outcome<std::uint64_t> parseByteSize(const std::string& text) {
  constexpr const char* kExpected = "a size such as 512M or 8G";
  constexpr double kMost = 9.0e18;
  std::string_view rest = trimmed(text);
  if (rest.ends_with("iB")) {
    rest.remove_suffix(2);
  } else if (rest.ends_with('B') || rest.ends_with('b')) {
    rest.remove_suffix(1);
  }
  const auto factor = static_cast<double>(takeUnit(rest, 1024));
  const auto value = wholeNumber(rest);
  if (!value || !(*value * factor >= 1.0) || *value * factor > kMost) {
    return unexpected(text, kExpected);
  }
  return static_cast<std::uint64_t>(*value * factor);
}

Outcome<Eagle::PhysicalSpace::point> parsePoint(const std::string& text) {
  const std::vector<double> numbers = numberList(text);
  if (numbers.size() != 3) return unexpected(text, "three finite numbers X,Y,Z");
  return Eagle::PhysicalSpace::point{numbers[0], numbers[1], numbers[2]};
}

Outcome<Eagle::FixedArray<double, 3>> parseFragmentLength(const std::string& text) {
  const std::vector<double> numbers = numberList(text);
  if (numbers.empty() || numbers.size() > 3) {
    return unexpected(text, "one to three finite lengths X[,Y[,Z]]");
  }
  if (std::any_of(numbers.begin(), numbers.end(), [](double n) { return n < 0.0; })) {
    return unexpected(text, "no negative length");
  }
  Eagle::FixedArray<double, 3> length;
  length[0] = numbers[0];
  length[1] = numbers.size() > 1 ? numbers[1] : numbers[0];
  length[2] = numbers.size() > 2 ? numbers[2] : 0.0;
  if ((length[0] > 0.0) != (length[1] > 0.0)) {
    return unexpected(text, "X and Y both above 0, or both 0 for an estimate");
  }
  return length;
}

Outcome<Eagle::PhysicalSpace::point> parseScale(const std::string& text) {
  const std::vector<double> numbers = numberList(text);
  const bool isPositive =
      std::all_of(numbers.begin(), numbers.end(), [](double n) { return n > 0.0; });
  if ((numbers.size() != 1 && numbers.size() != 3) || !isPositive) {
    return unexpected(text, "one or three finite numbers above 0");
  }
  return Eagle::PhysicalSpace::point{numbers.front(), numbers[numbers.size() / 2], numbers.back()};
}

Outcome<std::vector<std::string>> parseColumnNames(const std::string& text) {
  std::vector<std::string> names;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    names.emplace_back(trimmed(std::string_view(text).substr(begin, end - begin)));
    if (names.back().empty()) return unexpected(text, "a name for every column, - to leave it out");
    begin = end + 1;
  }
  const auto roles = Formats::rolesOf(names);
  if (!roles) return roles.failure();
  return names;
}

Outcome<double> parseOverlap(const std::string& text) {
  const auto value = wholeNumber(text);
  if (!value || *value < 0.0) return unexpected(text, "a finite number of at least 0");
  return *value;
}

}  // namespace Host
