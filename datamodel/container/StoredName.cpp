// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/StoredName.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace Fiber::Container {
namespace {

bool mustEscape(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return c == '%' || c == '/' || c == '#' || byte < 0x20 || byte == 0x7F;
}

std::string escaped(char c) { return fmt::format("%{:02X}", static_cast<unsigned char>(c)); }

std::optional<char> hexByte(std::string_view digits) {
  unsigned value = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return static_cast<char>(value);
}

}  // namespace

std::string storedName(std::string_view name, std::span<const std::string_view> reserved) {
  if (name.empty()) return "%";
  const bool escapeFirst =
      name == "." || std::find(reserved.begin(), reserved.end(), name) != reserved.end();
  if (!escapeFirst && std::none_of(name.begin(), name.end(), mustEscape)) return std::string(name);
  std::string stored;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (mustEscape(name[i]) || (i == 0 && escapeFirst)) {
      stored += escaped(name[i]);
    } else {
      stored += name[i];
    }
  }
  return stored;
}

std::string originalName(std::string_view stored) {
  if (stored == "%") return std::string();
  if (stored.find('%') == std::string_view::npos) return std::string(stored);
  std::string name;
  for (std::size_t i = 0; i < stored.size(); ++i) {
    constexpr std::size_t kDigits = 2;
    const auto byte = stored[i] == '%' && i + kDigits < stored.size()
                          ? hexByte(stored.substr(i + 1, kDigits))
                          : std::nullopt;
    name += byte.value_or(stored[i]);
    if (byte) i += kDigits;
  }
  return name;
}

std::string timeText(double time) {
  std::array<char, 32> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), time).ptr;
  return std::string(text.data(), end);
}

}  // namespace Fiber::Container
