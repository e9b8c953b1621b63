// SPDX-License-Identifier: Apache-2.0

#include "formats/text/ColumnFacts.hpp"

#include <array>
#include <cmath>
#include <limits>

#include "formats/cloud/ColumnTypes.hpp"

namespace Formats {

std::optional<std::uint64_t> wholeMagnitudeOfValue(double value) {
  constexpr double kExactBelow = 9007199254740992.0;
  const double size = std::abs(value);
  if (!(size < kExactBelow) || std::floor(size) != size) return std::nullopt;
  if (std::signbit(value) && size == 0.0) return std::nullopt;
  return static_cast<std::uint64_t>(size);
}

void ColumnFacts::add(const ColumnFacts& others) {
  isWhole = isWhole && others.isWhole;
  decimals = std::max(decimals, others.decimals);
  highest = std::max(highest, others.highest);
  deepest = std::max(deepest, others.deepest);
}

bool ColumnFacts::fit(ElementType type) const {
  return withElementType(type, [this](auto identity) {
    using T = typename decltype(identity)::type;
    if constexpr (std::is_floating_point_v<T>) {
      return sizeof(T) == sizeof(double);
    } else {
      constexpr auto kHighest = static_cast<std::uint64_t>(std::numeric_limits<T>::max());
      constexpr std::uint64_t kDeepest = std::is_signed_v<T> ? kHighest + 1 : 0;
      return isWhole && highest <= kHighest && deepest <= kDeepest;
    }
  });
}

ElementType chooseType(const ColumnFacts& facts, std::span<const ElementType> preferred) {
  for (const ElementType type : preferred) {
    if (facts.fit(type)) return type;
  }
  constexpr std::array kIntegers{ElementType::Int32, ElementType::Int64, ElementType::UInt64};
  for (const ElementType type : kIntegers) {
    if (facts.decimals == 0 && facts.fit(type)) return type;
  }
  return ElementType::Float64;
}

}  // namespace Formats
