// SPDX-License-Identifier: Apache-2.0
//
// RawBox: the smallest and largest raw coordinates of point records, record by record.

#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "formats/las/ByteStream.hpp"

namespace Formats {

class RawBox {
 public:
  /// Requires: a whole record of any point format.
  void add(const std::byte* record) {
    const Numbers raw = loadValue<Numbers>(record);
    for (std::size_t at = 0; at < raw.size(); ++at) {
      low_[at] = std::min(low_[at], raw[at]);
      high_[at] = std::max(high_[at], raw[at]);
    }
  }

  /// Units: raw, as in the records. Without records the minimum lies above the maximum.
  std::array<std::int32_t, 3> minimum() const { return {low_[0], low_[1], low_[2]}; }
  std::array<std::int32_t, 3> maximum() const { return {high_[0], high_[1], high_[2]}; }

 private:
  /// Four numbers make a vector; the fourth is of the fields that follow in every record.
  using Numbers = std::array<std::int32_t, 4>;

  Numbers low_{INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX};
  Numbers high_{INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN};
};

}  // namespace Formats
