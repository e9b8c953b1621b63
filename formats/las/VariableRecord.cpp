// SPDX-License-Identifier: Apache-2.0

#include "formats/las/VariableRecord.hpp"

#include <algorithm>

#include "formats/las/ByteStream.hpp"

namespace Formats {

namespace {

constexpr std::size_t kUserIdBytes = 16;
constexpr std::size_t kDescriptionBytes = 32;

template <class Size>
std::vector<std::byte> serialiseHeader(const VariableRecord& record, Size payloadBytes) {
  ByteWriter writer;
  writer.put(record.reserved);
  writer.putText(record.userId, kUserIdBytes);
  writer.put(record.recordId);
  writer.put(payloadBytes);
  writer.putText(record.description, kDescriptionBytes);
  return writer.finish();
}

}  // namespace

std::string_view textBeforeNul(std::string_view text) { return text.substr(0, text.find('\0')); }

bool hasId(const VariableRecord& record, std::string_view userId, std::uint16_t recordId) {
  return record.recordId == recordId && textBeforeNul(record.userId) == userId;
}

bool isWaveformDescriptor(const VariableRecord& record) {
  return textBeforeNul(record.userId) == kLasSpecUserId &&
         record.recordId >= kFirstWaveformDescriptorId &&
         record.recordId <= kLastWaveformDescriptorId;
}

const VariableRecord* findRecord(const std::vector<VariableRecord>& records,
                                 std::string_view userId, std::uint16_t recordId) {
  const auto found =
      std::find_if(records.begin(), records.end(),
                   [&](const VariableRecord& record) { return hasId(record, userId, recordId); });
  return found == records.end() ? nullptr : &*found;
}

std::vector<std::byte> serialiseRecordHeader(const VariableRecord& record) {
  return serialiseHeader(record, static_cast<std::uint16_t>(record.payload.size()));
}

std::vector<std::byte> serialiseExtendedHeader(const VariableRecord& record,
                                               std::uint64_t payloadBytes) {
  return serialiseHeader(record, payloadBytes);
}

}  // namespace Formats
