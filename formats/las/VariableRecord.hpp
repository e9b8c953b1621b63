// SPDX-License-Identifier: Apache-2.0
//
// VariableRecord: a variable length record (VLR, in front of the points) or an extended one (EVLR,
// behind them) of a LAS file. Payloads are kept verbatim, so that what a file says about itself
// (coordinate system, extra bytes, waveform descriptors, vendor data) can be written back
// unchanged.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Formats {

/// Header sizes on disk, in bytes.
inline constexpr std::size_t kVlrHeaderBytes = 54;
inline constexpr std::size_t kEvlrHeaderBytes = 60;

/// User id and record ids of the records that the LAS standard itself defines.
inline constexpr std::string_view kLasSpecUserId = "LASF_Spec";
inline constexpr std::string_view kLasProjectionUserId = "LASF_Projection";
inline constexpr std::uint16_t kExtraBytesRecordId = 4;
inline constexpr std::uint16_t kFirstWaveformDescriptorId = 100;
inline constexpr std::uint16_t kLastWaveformDescriptorId = 354;
inline constexpr std::uint16_t kWaveformPacketsRecordId = 65535;

/// User id and record id of the record that describes LASzip compression.
inline constexpr std::string_view kLaszipUserId = "laszip encoded";
inline constexpr std::uint16_t kLaszipRecordId = 22204;

/// One VLR or EVLR.
/// Invariant: isLoaded implies payload.size() == payloadBytes; otherwise payload is empty.
struct VariableRecord {
  std::uint16_t reserved = 0;
  std::string userId;  ///< At most 16 bytes; trailing NULs removed, all else kept.
  std::uint16_t recordId = 0;
  std::string description;  ///< At most 32 bytes; trailing NULs removed, all else kept.
  std::vector<std::byte> payload;
  std::uint64_t payloadBytes = 0;   ///< Size on disk; writers use payload.size() instead.
  std::uint64_t payloadOffset = 0;  ///< Where in the file the payload was found; 0 = nowhere yet.
  bool isLoaded = true;  ///< False for waveform packets and what exceeds the memory allowance.
};

/// The text in front of the first NUL: what a person should see of a fixed-size text of a file.
std::string_view textBeforeNul(std::string_view text);

/// Does the record carry this user id (compared in front of the first NUL) and record id?
bool hasId(const VariableRecord& record, std::string_view userId, std::uint16_t recordId);

/// Does the record describe waveform packets?
bool isWaveformDescriptor(const VariableRecord& record);

/// The first record with these ids, or null.
const VariableRecord* findRecord(const std::vector<VariableRecord>& records,
                                 std::string_view userId, std::uint16_t recordId);

/// The header of a VLR as it goes to disk; of an EVLR by serialiseExtendedHeader, which is told the
/// size of a payload that need not be in memory.
std::vector<std::byte> serialiseRecordHeader(const VariableRecord& record);
std::vector<std::byte> serialiseExtendedHeader(const VariableRecord& record,
                                               std::uint64_t payloadBytes);

}  // namespace Formats
