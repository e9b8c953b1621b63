// SPDX-License-Identifier: Apache-2.0
//
// LasHeader: the public header block of a LAS or LAZ file, versions 1.0 to 1.4 (a 1.5 header is
// read as a 1.4 one; what it adds stays in `trailingBytes`). Parsing keeps every value that a
// faithful way back needs; serialising writes the block of the version that the header names.
// Source: ASPRS LAS Specification 1.4 - R15, section 2.4, and the earlier versions 1.0 to 1.3.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"

namespace Formats {

/// Bits of LasHeader::globalEncoding.
inline constexpr std::uint16_t kGpsTimeIsStandard = 1U << 0;
inline constexpr std::uint16_t kWaveformsInside = 1U << 1;
inline constexpr std::uint16_t kWaveformsOutside = 1U << 2;
inline constexpr std::uint16_t kSyntheticReturnNumbers = 1U << 3;
inline constexpr std::uint16_t kWktCoordinateSystem = 1U << 4;

/// Everything a public header block says. Axis arrays are ordered x, y, z.
struct LasHeader {
  std::uint16_t fileSourceId = 0;
  std::uint16_t globalEncoding = 0;
  std::array<std::byte, 16> projectGuid{};  ///< As stored on disk.
  std::uint8_t versionMajor = 1;
  std::uint8_t versionMinor = 4;
  std::string systemIdentifier;    ///< At most 32 bytes; trailing NULs removed, all else kept.
  std::string generatingSoftware;  ///< The same.
  std::uint16_t creationDayOfYear = 0;
  std::uint16_t creationYear = 0;
  std::uint16_t headerBytes = 0;  ///< Parsed only; serialising computes it.
  std::uint32_t pointDataOffset =
      0;  ///< Byte where the points (LAZ: the chunk table offset) begin.
  std::uint32_t variableRecordCount = 0;
  std::uint8_t pointFormat = 0;   ///< 0 to 10, without the compression bits.
  bool isCompressed = false;      ///< The compression bits of the point format byte.
  std::uint16_t recordBytes = 0;  ///< Length of one (uncompressed) point record.

  /// Units: file units; coordinate = raw * scale + offset.
  std::array<double, 3> scale{0.001, 0.001, 0.001};
  std::array<double, 3> offset{};
  std::array<double, 3> minimum{};  ///< As the file claims; not checked against the points.
  std::array<double, 3> maximum{};

  std::uint64_t pointCount = 0;  ///< The one that counts, see parseLasHeader.
  std::array<std::uint64_t, 15> pointsByReturn{};
  std::uint32_t legacyPointCount = 0;  ///< As stored; 0 is usual in 1.4.
  std::array<std::uint32_t, 5> legacyPointsByReturn{};

  std::uint64_t waveformDataOffset = 0;  ///< 1.3 on; byte of the packet record's header, 0 = none.
  std::uint64_t firstEvlrOffset = 0;     ///< 1.4 on; 0 = none.
  std::uint32_t evlrCount = 0;           ///< 1.4 on.

  /// What stands between the version's standard header and `headerBytes`, verbatim.
  std::vector<std::byte> trailingBytes;
};

/// The largest standard header (1.4), and the smallest that can be told apart as LAS (1.0).
inline constexpr std::size_t kLas14HeaderBytes = 375;
inline constexpr std::size_t kLas10HeaderBytes = 227;

/// Length of the standard header of a version 1.`versionMinor` (0 to 5).
std::size_t standardHeaderBytes(std::uint8_t versionMinor);

/// Reads a header from the first bytes of a file. `bytes` should hold at least the first 64 KiB of
/// the file or all of it; `objectName` (the file's path) begins every failure text. Point count:
/// before 1.4 the 32-bit one. From 1.4 on the 64-bit one, unless that is 0 and the 32-bit one is
/// not, which then counts; where both are set and differ the 64-bit one counts. Errors: wrong
/// signature, unknown version or point format, header too short or cut off, scales that are zero or
/// not finite, offsets that are not finite.
MemCore::Outcome<LasHeader> parseLasHeader(std::span<const std::byte> bytes,
                                           const std::string& objectName);

/// The header block as it goes to disk, including `trailingBytes`; `headerBytes` is computed, the
/// legacy counts are written as they stand. Requires: versionMajor 1, versionMinor 0 to 4.
std::vector<std::byte> serialiseLasHeader(const LasHeader& header);

}  // namespace Formats
