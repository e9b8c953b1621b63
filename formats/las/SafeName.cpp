// SPDX-License-Identifier: Apache-2.0

#include "formats/las/SafeName.hpp"

#include <algorithm>

namespace Formats {

namespace {

/// Length of the valid UTF-8 sequence at the start of `text`; 0 if it is none.
std::size_t utf8Length(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length > text.size()) return 0;
  for (std::size_t at = 1; at < length; ++at) {
    if ((static_cast<unsigned char>(text[at]) & 0xC0U) != 0x80U) return 0;
  }
  return length;
}

}  // namespace

std::string safeName(std::string_view stored) {
  std::string name;
  while (!stored.empty()) {
    const std::size_t length = utf8Length(stored);
    const auto lead = static_cast<unsigned char>(stored.front());
    const bool isPlain = length > 0 && lead >= 0x20 && lead != 0x7F && lead != '/' && lead != '\\';
    name += isPlain ? stored.substr(0, length) : "_";
    stored.remove_prefix(std::max<std::size_t>(length, 1));
  }
  if (!name.empty() && name.front() == '.') name.front() = '_';
  return name.empty() ? "Unnamed" : name;
}

}  // namespace Formats
