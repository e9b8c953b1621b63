// SPDX-License-Identifier: Apache-2.0

#include "host/TextTable.hpp"

#include <algorithm>

namespace Host {

std::size_t textWidth(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;  // not the middle of a character
  }));
}

std::vector<std::size_t> TextTable::widths() const {
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], textWidth(row[i]));
  }
  return widths;
}

bool TextTable::isRightAligned(std::size_t column) const {
  return std::find(rightAligned_.begin(), rightAligned_.end(), column) != rightAligned_.end();
}

std::string TextTable::text(std::size_t indent) const {
  constexpr std::size_t kGap = 2;
  const std::vector<std::size_t> width = widths();
  std::string text;
  for (const auto& row : rows_) {
    std::string line(indent, ' ');
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(width[i] - textWidth(row[i]), ' ');
      if (i != 0) line += std::string(kGap, ' ');
      line += isRightAligned(i) ? padding + row[i] : row[i] + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace Host
