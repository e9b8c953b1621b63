// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/ColumnTypes.hpp"

#include <array>
#include <cmath>
#include <limits>

#include "formats/las/ByteStream.hpp"

namespace Formats {

using MemCore::StrongPtr;

namespace {

/// Which integers a type holds without a gap: bits of magnitude, and whether negative ones too.
struct IntegerReach {
  int bits = 0;
  bool isSigned = false;
  bool isFloating = false;
};

IntegerReach reachOf(ElementType type) {
  return withElementType(type, [](auto identity) {
    using T = typename decltype(identity)::type;
    return IntegerReach{std::numeric_limits<T>::digits, std::is_signed_v<T>,
                        std::is_floating_point_v<T>};
  });
}

bool holds(ElementType wide, ElementType narrow) {
  const IntegerReach outer = reachOf(wide);
  const IntegerReach inner = reachOf(narrow);
  if (inner.isFloating && !outer.isFloating) return false;
  return outer.bits >= inner.bits && (outer.isSigned || !inner.isSigned);
}

template <class From, class To>
To converted(From value, const ValueConversion& conversion) {
  if (conversion.keepsValues()) return static_cast<To>(value);
  const double scaled = static_cast<double>(value) * conversion.scale + conversion.offset;
  if constexpr (std::is_floating_point_v<To>) {
    return static_cast<To>(scaled);
  } else {
    // The lowest value and one past the highest, both exact doubles: the cast is always defined.
    constexpr auto kLow = static_cast<double>(std::numeric_limits<To>::min());
    constexpr std::uint64_t kHalf = std::uint64_t{1} << (std::numeric_limits<To>::digits - 1);
    constexpr double kEnd = 2.0 * static_cast<double>(kHalf);
    const double rounded = std::round(scaled);
    if (!(rounded >= kLow)) return std::numeric_limits<To>::min();
    return rounded < kEnd ? static_cast<To>(rounded) : std::numeric_limits<To>::max();
  }
}

template <class From, class To>
void convertAll(const ValueConversion& conversion, std::span<const std::byte> from,
                std::span<std::byte> to) {
  const std::size_t count = from.size() / sizeof(From);
  for (std::size_t i = 0; i < count; ++i) {
    const From value = loadValue<From>(from.data() + i * sizeof(From));
    storeValue(to.data() + i * sizeof(To), converted<From, To>(value, conversion));
  }
}

}  // namespace

StrongPtr<Fiber::FiberTypeBase> fiberTypeOf(ElementType type) {
  return withElementType(type, [](auto identity) {
    return Fiber::FiberTypeBase::find(typeid(typename decltype(identity)::type));
  });
}

StrongPtr<Fiber::MemBase> makeColumn(ElementType type, std::size_t count) {
  return withElementType(type, [count](auto identity) -> StrongPtr<Fiber::MemBase> {
    using T = typename decltype(identity)::type;
    return Fiber::makeArray(MemCore::Chunk<T>::uninitialised(count));
  });
}

std::optional<ElementType> commonType(ElementType a, ElementType b) {
  // Narrow types first, integers before floating point of the same width.
  constexpr std::array kCandidates{ElementType::UInt8,   ElementType::Int8,   ElementType::UInt16,
                                   ElementType::Int16,   ElementType::UInt32, ElementType::Int32,
                                   ElementType::Float32, ElementType::UInt64, ElementType::Int64,
                                   ElementType::Float64};
  for (const ElementType candidate : kCandidates) {
    if (holds(candidate, a) && holds(candidate, b)) return candidate;
  }
  return std::nullopt;
}

void convertElements(const ValueConversion& conversion, std::span<const std::byte> from,
                     std::span<std::byte> to) {
  withElementType(conversion.from, [&](auto fromIdentity) {
    withElementType(conversion.to, [&](auto toIdentity) {
      convertAll<typename decltype(fromIdentity)::type, typename decltype(toIdentity)::type>(
          conversion, from, to);
    });
  });
}

}  // namespace Formats
