// SPDX-License-Identifier: Apache-2.0
//
// ExtraBytes: the descriptors of the "Extra Bytes" record (LASF_Spec, 4), which name and type the
// bytes that a point record carries beyond its point format. Source: ASPRS LAS Specification 1.4 -
// R15, tables 24 and 25; types 11 to 30 as in 1.4 - R13.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace Formats {

/// Type of one stored element.
enum class ElementType : std::uint8_t {
  UInt8,
  Int8,
  UInt16,
  Int16,
  UInt32,
  Int32,
  UInt64,
  Int64,
  Float32,
  Float64
};

/// Size of one element in bytes.
std::size_t elementBytes(ElementType type);

/// The short name of a type: "uint8", "int8", ..., "float32", "float64".
const char* elementTypeName(ElementType type);

inline constexpr std::size_t kExtraBytesDescriptorBytes = 192;
inline constexpr std::uint8_t kMaxExtraBytesType = 30;

/// A value in the wide type that a descriptor stores it in: unsigned, signed or floating
/// attributes.
using ExtraBytesValue = std::variant<std::uint64_t, std::int64_t, double>;

/// One attribute of the extra bytes. Arrays carry up to three values of everything.
struct ExtraBytesDescriptor {
  std::string name;           ///< As stored, in front of the first NUL; may be empty.
  std::string description;    ///< The same.
  std::uint8_t dataType = 0;  ///< 0 undocumented, 1 to 10 single, 11 to 20 pairs, 21 to 30 triples.
  std::uint8_t options = 0;   ///< Verbatim; for type 0 the number of bytes.
  ElementType type = ElementType::UInt8;
  std::uint16_t componentCount = 1;  ///< For type 0 the number of bytes.

  /// Set where the options say that the value is meaningful. Value = stored * scale + offset.
  std::optional<std::array<double, 3>> scale;
  std::optional<std::array<double, 3>> offset;
  std::optional<std::array<ExtraBytesValue, 3>> noData;
  std::optional<std::array<ExtraBytesValue, 3>> minimum;
  std::optional<std::array<ExtraBytesValue, 3>> maximum;
};

/// Bytes that the attribute takes in a point record.
std::size_t extraBytesWidth(const ExtraBytesDescriptor& descriptor);

/// Reads the descriptors of one record's payload; a cut-off last one is ignored. A data type above
/// kMaxExtraBytesType, whose width nobody knows, gets componentCount 0.
std::vector<ExtraBytesDescriptor> parseExtraBytes(std::span<const std::byte> payload);

/// The payload that describes these attributes, for a record (LASF_Spec, 4).
std::vector<std::byte> serialiseExtraBytes(std::span<const ExtraBytesDescriptor> descriptors);

/// A descriptor of a plain attribute of one element, for writers.
ExtraBytesDescriptor describeExtraBytes(std::string name, ElementType type,
                                        std::string description = {});

}  // namespace Formats
