// SPDX-License-Identifier: Apache-2.0

#include "formats/las/VariableRecord.hpp"

#include <algorithm>

namespace Formats {

std::string_view textBeforeNul(std::string_view text) { return text.substr(0, text.find('\0')); }

bool hasId(const VariableRecord& record, std::string_view userId, std::uint16_t recordId) {
  return record.recordId == recordId && textBeforeNul(record.userId) == userId;
}

const VariableRecord* findRecord(const std::vector<VariableRecord>& records,
                                 std::string_view userId, std::uint16_t recordId) {
  const auto found =
      std::find_if(records.begin(), records.end(),
                   [&](const VariableRecord& record) { return hasId(record, userId, recordId); });
  return found == records.end() ? nullptr : &*found;
}

}  // namespace Formats
