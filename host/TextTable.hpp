// SPDX-License-Identifier: Apache-2.0
//
// TextTable: rows of texts as aligned columns, for reports that people read.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Host {

class TextTable {
 public:
  /// Columns whose numbers (from 0) are in `rightAligned` end flush; the others begin flush.
  explicit TextTable(std::vector<std::size_t> rightAligned = {})
      : rightAligned_(std::move(rightAligned)) {}

  /// Adds a row; rows may differ in length.
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  bool empty() const { return rows_.empty(); }

  /// The rows, each with a line break, begun with `indent` blanks; no blanks at the ends of lines.
  std::string text(std::size_t indent = 0) const;

 private:
  std::vector<std::size_t> widths() const;
  bool isRightAligned(std::size_t column) const;

  std::vector<std::size_t> rightAligned_;
  std::vector<std::vector<std::string>> rows_;
};

/// Printed width of a UTF-8 text: its code points.
std::size_t textWidth(const std::string& text);

}  // namespace Host
