// SPDX-License-Identifier: Apache-2.0
//
// PointLayout: where each field stands in a point record of a LAS file, as data. It covers the
// point formats 0 to 10 and the extra bytes behind them, so that readers and writers move columns
// without knowing any format (see RecordColumns.hpp). Source: ASPRS LAS Specification 1.4 - R15,
// section 2.6 and table 24 (extra bytes).

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/ExtraBytes.hpp"
#include "formats/las/VariableRecord.hpp"

namespace Formats {

inline constexpr std::uint8_t kMaxPointFormat = 10;

/// One field of a point record. Stored little-endian; bit fields live in one byte, type UInt8.
/// Extra bytes hold the raw stored value: scale and offset are told by `meaning`, never applied.
struct PointField {
  std::string name;  ///< Unique in its layout, never empty, free of '/'.
  ElementType type = ElementType::UInt8;
  std::uint16_t byteOffset = 0;
  std::uint8_t bitShift = 0;
  std::uint8_t bitCount = 0;  ///< 0 = the whole element.
  std::uint8_t componentCount = 1;

  /// Extra bytes: the descriptor (shared by the components of an array), and which component or, of
  /// an undocumented attribute, which byte this field is. Null for bytes without a descriptor.
  std::shared_ptr<const ExtraBytesDescriptor> meaning;
  std::uint16_t component = 0;
};

/// Record length of a point format without extra bytes; 0 for an unknown format.
std::uint16_t standardRecordBytes(std::uint8_t pointFormat);

/// Does the point format carry wave packet fields (4, 5, 9, 10)?
bool formatHasWaveforms(std::uint8_t pointFormat);

/// The fields of one file's point records.
class PointLayout {
 public:
  /// `records` may hold Extra Bytes records among others. Errors: unknown point format, or records
  /// shorter than the format needs. Descriptors that do not fit the record are dropped (see
  /// notes()); bytes that no descriptor covers become fields "ExtraBytes[0]", "ExtraBytes[1]", ...
  /// Names: one that is taken (by a field, or as Position, Positions, Waveforms, FWFLength,
  /// SourceFile, SourceIndex) gets "_2", "_3", ...; '/', '\\' and control characters become '_'; an
  /// empty one is "Unnamed".
  static MemCore::Outcome<PointLayout> make(std::uint8_t pointFormat, std::uint16_t recordBytes,
                                            const std::vector<VariableRecord>& records);

  std::uint8_t pointFormat() const { return pointFormat_; }
  std::uint16_t recordBytes() const { return recordBytes_; }

  /// X, Y or Z alone, as a raw Int32 field. Requires: axis is 0, 1 or 2.
  static const PointField& axis(std::size_t axis);
  /// X, Y, Z as one Int32 field "Position" of three components, raw (not scaled).
  const PointField& position() const { return position_; }

  /// All other fields in the order of their bytes and bits.
  const std::vector<PointField>& fields() const { return fields_; }

  /// The field of this name, or null. Lives as long as the layout.
  const PointField* find(std::string_view name) const;

  /// One line for each thing in the descriptors that could not be taken as it stands.
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  PointLayout() = default;

  std::uint8_t pointFormat_ = 0;
  std::uint16_t recordBytes_ = 0;
  PointField position_;
  std::vector<PointField> fields_;
  std::vector<std::string> notes_;
};

}  // namespace Formats
