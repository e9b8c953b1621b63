// SPDX-License-Identifier: Apache-2.0

#include "formats/las/LasHeader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "formats/las/ByteStream.hpp"
#include "formats/las/PointLayout.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::size_t kIdentifierBytes = 32;
constexpr std::string_view kSignature = "LASF";
constexpr std::uint8_t kCompressedBit = 0x80;
constexpr std::uint8_t kNewestMinor = 5;

/// Byte of the version numbers, which decide how the rest is read.
constexpr std::size_t kVersionAt = 24;

/// The part that all versions share, up to the bounds.
void readCommonPart(ByteReader& reader, LasHeader& header) {
  reader.takeBytes(kSignature.size());
  header.fileSourceId = reader.take<std::uint16_t>();
  header.globalEncoding = reader.take<std::uint16_t>();
  header.projectGuid = reader.take<std::array<std::byte, 16>>();
  header.versionMajor = reader.take<std::uint8_t>();
  header.versionMinor = reader.take<std::uint8_t>();
  header.systemIdentifier = reader.takeText(kIdentifierBytes);
  header.generatingSoftware = reader.takeText(kIdentifierBytes);
  header.creationDayOfYear = reader.take<std::uint16_t>();
  header.creationYear = reader.take<std::uint16_t>();
  header.headerBytes = reader.take<std::uint16_t>();
  header.pointDataOffset = reader.take<std::uint32_t>();
  header.variableRecordCount = reader.take<std::uint32_t>();
  const auto format = reader.take<std::uint8_t>();
  header.isCompressed = (format & kCompressedBit) != 0;
  header.pointFormat = static_cast<std::uint8_t>(format & ~kCompressedBit);
  header.recordBytes = reader.take<std::uint16_t>();
  header.legacyPointCount = reader.take<std::uint32_t>();
  header.legacyPointsByReturn = reader.take<std::array<std::uint32_t, 5>>();
  header.scale = reader.take<std::array<double, 3>>();
  header.offset = reader.take<std::array<double, 3>>();
  for (std::size_t axis = 0; axis < 3; ++axis) {
    header.maximum[axis] = reader.take<double>();
    header.minimum[axis] = reader.take<double>();
  }
}

/// What 1.3 and 1.4 add, and the counts that count.
void readNewerPart(ByteReader& reader, LasHeader& header) {
  if (header.versionMinor >= 3) header.waveformDataOffset = reader.take<std::uint64_t>();
  if (header.versionMinor >= 4) {
    header.firstEvlrOffset = reader.take<std::uint64_t>();
    header.evlrCount = reader.take<std::uint32_t>();
    header.pointCount = reader.take<std::uint64_t>();
    header.pointsByReturn = reader.take<std::array<std::uint64_t, 15>>();
  }
  if (header.pointCount == 0) {
    header.pointCount = header.legacyPointCount;
    header.pointsByReturn.fill(0);
    std::copy(header.legacyPointsByReturn.begin(), header.legacyPointsByReturn.end(),
              header.pointsByReturn.begin());
  }
}

std::string hexOf(std::span<const std::byte> bytes) {
  std::string text;
  for (const std::byte byte : bytes) {
    text += fmt::format("{}{:02x}", text.empty() ? "" : " ", static_cast<unsigned>(byte));
  }
  return text;
}

Outcome<void> checkSignature(std::span<const std::byte> bytes, const std::string& objectName) {
  if (bytes.empty()) {
    return Failure{fmt::format("{}: not a LAS file, found an empty file", objectName)};
  }
  const std::size_t length = std::min(bytes.size(), kSignature.size());
  if (std::memcmp(bytes.data(), kSignature.data(), length) != 0) {
    return Failure{fmt::format("{}: not a LAS file, found first bytes {}, expected {}", objectName,
                               hexOf(bytes.first(length)),
                               hexOf(std::as_bytes(std::span(kSignature))))};
  }
  if (bytes.size() < kLas10HeaderBytes) {
    return Failure{fmt::format("{}: LAS header cut off, found {} bytes, expected at least {}",
                               objectName, bytes.size(), kLas10HeaderBytes)};
  }
  return {};
}

Outcome<void> checkVersion(std::span<const std::byte> bytes, const std::string& objectName) {
  const auto major = static_cast<unsigned>(bytes[kVersionAt]);
  const auto minor = static_cast<unsigned>(bytes[kVersionAt + 1]);
  if (major != 1 || minor > kNewestMinor) {
    return Failure{fmt::format("{}: LAS version not known, found {}.{}, expected 1.0 to 1.{}",
                               objectName, major, minor, kNewestMinor)};
  }
  return {};
}

Outcome<void> checkSizes(const LasHeader& header, std::size_t available,
                         const std::string& objectName) {
  const std::size_t needed = standardHeaderBytes(header.versionMinor);
  if (header.headerBytes < needed) {
    return Failure{fmt::format("{}: LAS 1.{} header too short, found {} bytes, expected {}",
                               objectName, header.versionMinor, header.headerBytes, needed)};
  }
  if (header.headerBytes > available) {
    return Failure{fmt::format("{}: LAS header cut off, found {} bytes, expected {}", objectName,
                               available, header.headerBytes)};
  }
  if (header.pointFormat > kMaxPointFormat) {
    return Failure{fmt::format("{}: point format not known, found {}, expected 0 to {}", objectName,
                               header.pointFormat, kMaxPointFormat)};
  }
  const std::uint16_t recordBytes = standardRecordBytes(header.pointFormat);
  if (header.recordBytes < recordBytes) {
    return Failure{
        fmt::format("{}: point records too short for format {}, found {} bytes, "
                    "expected at least {}",
                    objectName, header.pointFormat, header.recordBytes, recordBytes)};
  }
  return {};
}

Outcome<void> checkScaling(const LasHeader& header, const std::string& objectName) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (!std::isfinite(header.scale[axis]) || header.scale[axis] == 0) {
      return Failure{
          fmt::format("{}: {} scale cannot be used, found {}, expected a finite number "
                      "other than 0",
                      objectName, "xyz"[axis], header.scale[axis])};
    }
    if (!std::isfinite(header.offset[axis])) {
      return Failure{fmt::format("{}: {} offset cannot be used, found {}, expected a finite number",
                                 objectName, "xyz"[axis], header.offset[axis])};
    }
  }
  return {};
}

void writeCommonPart(ByteWriter& writer, const LasHeader& header, std::size_t headerBytes) {
  writer.putText(kSignature, kSignature.size());
  writer.put(header.fileSourceId);
  writer.put(header.globalEncoding);
  writer.put(header.projectGuid);
  writer.put(header.versionMajor);
  writer.put(header.versionMinor);
  writer.putText(header.systemIdentifier, kIdentifierBytes);
  writer.putText(header.generatingSoftware, kIdentifierBytes);
  writer.put(header.creationDayOfYear);
  writer.put(header.creationYear);
  writer.put(static_cast<std::uint16_t>(headerBytes));
  writer.put(header.pointDataOffset);
  writer.put(header.variableRecordCount);
  writer.put(
      static_cast<std::uint8_t>(header.pointFormat | (header.isCompressed ? kCompressedBit : 0)));
  writer.put(header.recordBytes);
  writer.put(header.legacyPointCount);
  writer.put(header.legacyPointsByReturn);
  writer.put(header.scale);
  writer.put(header.offset);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    writer.put(header.maximum[axis]);
    writer.put(header.minimum[axis]);
  }
}

}  // namespace

std::size_t standardHeaderBytes(std::uint8_t versionMinor) {
  if (versionMinor <= 2) return kLas10HeaderBytes;
  return versionMinor == 3 ? kLas10HeaderBytes + sizeof(std::uint64_t) : kLas14HeaderBytes;
}

Outcome<LasHeader> parseLasHeader(std::span<const std::byte> bytes, const std::string& objectName) {
  if (const auto known = checkSignature(bytes, objectName); !known) return known.failure();
  if (const auto known = checkVersion(bytes, objectName); !known) return known.failure();
  LasHeader header;
  ByteReader reader(bytes);
  readCommonPart(reader, header);
  if (const auto fits = checkSizes(header, bytes.size(), objectName); !fits) return fits.failure();
  if (const auto usable = checkScaling(header, objectName); !usable) return usable.failure();
  readNewerPart(reader, header);
  const auto trailing = bytes.first(header.headerBytes).subspan(reader.position());
  header.trailingBytes.assign(trailing.begin(), trailing.end());
  return header;
}

std::vector<std::byte> serialiseLasHeader(const LasHeader& header) {
  ByteWriter writer;
  const std::size_t standardBytes = standardHeaderBytes(header.versionMinor);
  writeCommonPart(writer, header, standardBytes + header.trailingBytes.size());
  if (header.versionMinor >= 3) writer.put(header.waveformDataOffset);
  if (header.versionMinor >= 4) {
    writer.put(header.firstEvlrOffset);
    writer.put(header.evlrCount);
    writer.put(header.pointCount);
    writer.put(header.pointsByReturn);
  }
  writer.putBytes(header.trailingBytes);
  return writer.finish();
}

}  // namespace Formats
