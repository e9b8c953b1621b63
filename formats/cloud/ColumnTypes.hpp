// SPDX-License-Identifier: Apache-2.0
//
// ColumnTypes: the element types of point records as element types of the data model: making
// columns, finding the type that two files can share, and converting values to it.
// Threads: pure functions of their arguments.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <type_traits>

#include "datamodel/fiber/MemBase.hpp"
#include "formats/las/ExtraBytes.hpp"

namespace Formats {

/// Calls `body` with std::type_identity<T> of the C++ type of an element type.
template <class Body>
auto withElementType(ElementType type, Body body) {
  switch (type) {
    case ElementType::UInt8:
      return body(std::type_identity<std::uint8_t>());
    case ElementType::Int8:
      return body(std::type_identity<std::int8_t>());
    case ElementType::UInt16:
      return body(std::type_identity<std::uint16_t>());
    case ElementType::Int16:
      return body(std::type_identity<std::int16_t>());
    case ElementType::UInt32:
      return body(std::type_identity<std::uint32_t>());
    case ElementType::Int32:
      return body(std::type_identity<std::int32_t>());
    case ElementType::UInt64:
      return body(std::type_identity<std::uint64_t>());
    case ElementType::Int64:
      return body(std::type_identity<std::int64_t>());
    case ElementType::Float32:
      return body(std::type_identity<float>());
    case ElementType::Float64:
      break;
  }
  return body(std::type_identity<double>());
}

/// The data model's type of the same numbers; never empty.
MemCore::StrongPtr<Fiber::FiberTypeBase> fiberTypeOf(ElementType type);

/// A rank-1 array for `count` elements of unspecified value, for callers that write every one.
/// May throw std::bad_alloc.
MemCore::StrongPtr<Fiber::MemBase> makeColumn(ElementType type, std::size_t count);

/// The narrowest type that holds every value of both types exactly; absent when there is none.
std::optional<ElementType> commonType(ElementType a, ElementType b);

/// What becomes of a stored value: stored * scale + offset, as the target type.
struct ValueConversion {
  ElementType from = ElementType::UInt8;
  ElementType to = ElementType::UInt8;
  double scale = 1.0;
  double offset = 0.0;

  /// Nothing but another type, if that.
  bool keepsValues() const { return scale == 1.0 && offset == 0.0; }
  bool isIdentity() const { return from == to && keepsValues(); }
};

/// Converts elements. Requires: both spans hold whole elements of their types, equally many; a
/// conversion that keeps values goes to a type that holds them (see commonType).
/// Rounding: scaled values go to the nearest integer, halves away from zero, into integer types.
void convertElements(const ValueConversion& conversion, std::span<const std::byte> from,
                     std::span<std::byte> to);

}  // namespace Formats
