// SPDX-License-Identifier: Apache-2.0

#include "host/NameRules.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace Host {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

// File names end at 255 bytes; index, time and ending of a tile's name need the rest.
constexpr std::size_t kLongestName = 100;

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

/// The name with control characters made visible, for messages.
std::string printable(const std::string& name) {
  std::string text;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    text += isControl(byte) ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
  }
  return text;
}

Failure badName(const std::string& name, const char* problem) {
  return {fmt::format("grid name \"{}\": {}", printable(name), problem)};
}

}  // namespace

Outcome<void> checkGridName(const std::string& name) {
  if (name.empty()) return badName(name, "is empty");
  if (name.size() > kLongestName) return badName(name, "is longer than 100 bytes");
  if (name.front() == '.') return badName(name, "begins with a dot");
  if (name.find_first_of("/\\") != std::string::npos) return badName(name, "holds a / or \\");
  if (std::any_of(name.begin(), name.end(),
                  [](char c) { return isControl(static_cast<unsigned char>(c)); })) {
    return badName(name, "holds a control character");
  }
  return {};
}

Outcome<void> checkOutputGridName(const std::string& name) {
  if (name == "myGrid") return badName(name, "is reserved, choose another with --output-grid");
  return checkGridName(name);
}

}  // namespace Host
