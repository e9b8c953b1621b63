// SPDX-License-Identifier: Apache-2.0
//
// This file is compiled once per instruction set: foreach_target.h includes it again and again,
// each time with another HWY_NAMESPACE. What is outside those namespaces stands under HWY_ONCE.

#include "datamodel/fiber/NumberRange.hpp"

#include <algorithm>
#include <limits>
#include <type_traits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "datamodel/fiber/NumberRange.cpp"
#include <hwy/foreach_target.h>  // must precede highway.h

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace Fiber {
namespace HWY_NAMESPACE {  // NOLINT(google-build-namespaces)

namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t kMostLanes = 64;

/// What no number is above, and what none is below.
template <class T>
constexpr T kLowest = std::is_floating_point_v<T> ? -std::numeric_limits<T>::infinity()
                                                  : std::numeric_limits<T>::lowest();
template <class T>
constexpr T kHighest = std::is_floating_point_v<T> ? std::numeric_limits<T>::infinity()
                                                   : std::numeric_limits<T>::max();

// NaN loses every comparison: it never becomes the smallest or largest number.
template <class V>
HWY_INLINE V smaller(V value, V low) {
  if constexpr (std::is_floating_point_v<hn::TFromV<V>>) {
    return hn::IfThenElse(hn::Lt(value, low), value, low);
  } else {
    return hn::Min(value, low);
  }
}
template <class V>
HWY_INLINE V larger(V value, V high) {
  if constexpr (std::is_floating_point_v<hn::TFromV<V>>) {
    return hn::IfThenElse(hn::Gt(value, high), value, high);
  } else {
    return hn::Max(value, high);
  }
}

/// Smallest and largest of all numbers but NaN, out of order; kHighest and kLowest without any.
template <class T>
std::pair<T, T> boundsOf(std::span<const T> values) {
  const hn::CappedTag<T, kMostLanes> d;
  const std::size_t lanes = hn::Lanes(d);
  // Two of each, so that one comparison need not wait for the other.
  auto lowA = hn::Set(d, kHighest<T>);
  auto lowB = lowA;
  auto highA = hn::Set(d, kLowest<T>);
  auto highB = highA;
  std::size_t i = 0;
  for (; i + 2 * lanes <= values.size(); i += 2 * lanes) {
    const auto a = hn::LoadU(d, values.data() + i);
    const auto b = hn::LoadU(d, values.data() + i + lanes);
    lowA = smaller(a, lowA);
    lowB = smaller(b, lowB);
    highA = larger(a, highA);
    highB = larger(b, highB);
  }
  T lows[kMostLanes];
  T highs[kMostLanes];
  hn::StoreU(smaller(lowA, lowB), d, lows);
  hn::StoreU(larger(highA, highB), d, highs);
  T low = lows[0];
  T high = highs[0];
  for (std::size_t l = 1; l < lanes; ++l) {
    low = lows[l] < low ? lows[l] : low;
    high = highs[l] > high ? highs[l] : high;
  }
  for (; i < values.size(); ++i) {
    low = values[i] < low ? values[i] : low;
    high = values[i] > high ? values[i] : high;
  }
  return {low, high};
}

template <class T>
std::optional<ValueRange> rangeOf(std::span<const std::byte> numbers) {
  const std::span<const T> values(reinterpret_cast<const T*>(numbers.data()),
                                  numbers.size() / sizeof(T));
  auto [low, high] = boundsOf(values);
  // Without a number, or with NaN alone.
  if (!(low <= high)) return std::nullopt;
  if constexpr (std::is_floating_point_v<T>) {
    // The lanes have lost which zero came first.
    if (low == T{0} || high == T{0}) {
      const T zero = *std::find(values.begin(), values.end(), T{0});
      low = low == T{0} ? zero : low;
      high = high == T{0} ? zero : high;
    }
  }
  return ValueRange{static_cast<double>(low), static_cast<double>(high)};
}

std::optional<ValueRange> rangeKernel(ScalarKind kind, std::span<const std::byte> numbers) {
  switch (kind) {
    case ScalarKind::Int8:
      return rangeOf<std::int8_t>(numbers);
    case ScalarKind::UInt8:
      return rangeOf<std::uint8_t>(numbers);
    case ScalarKind::Int16:
      return rangeOf<std::int16_t>(numbers);
    case ScalarKind::UInt16:
      return rangeOf<std::uint16_t>(numbers);
    case ScalarKind::Int32:
      return rangeOf<std::int32_t>(numbers);
    case ScalarKind::UInt32:
      return rangeOf<std::uint32_t>(numbers);
    case ScalarKind::Int64:
      return rangeOf<std::int64_t>(numbers);
    case ScalarKind::UInt64:
      return rangeOf<std::uint64_t>(numbers);
    case ScalarKind::Float32:
      return rangeOf<float>(numbers);
    case ScalarKind::Float64:
      return rangeOf<double>(numbers);
  }
  return std::nullopt;
}

}  // namespace HWY_NAMESPACE
}  // namespace Fiber
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace Fiber {

HWY_EXPORT(rangeKernel);

namespace {

template <class... Types>
bool isOneOf(const std::type_info& type) {
  return ((type == typeid(Types)) || ...);
}

}  // namespace

std::optional<ScalarKind> numberKindOf(const MemBase& data) {
  const auto type = data.type();
  // Others may register types of their own that are made of one number.
  const bool isNumber =
      type && isOneOf<double, float, std::int8_t, std::uint8_t, std::int16_t, std::uint16_t,
                      std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>(type->type());
  return isNumber ? std::optional(type->scalar()) : std::nullopt;
}

std::optional<ValueRange> rangeOfNumbers(ScalarKind kind, std::span<const std::byte> numbers) {
  return HWY_DYNAMIC_DISPATCH(rangeKernel)(kind, numbers);
}

std::optional<ValueRange> rangeOfBoth(const std::optional<ValueRange>& first,
                                      const std::optional<ValueRange>& second) {
  if (!first || !second) return first ? first : second;
  return ValueRange{std::min(first->min, second->min), std::max(first->max, second->max)};
}

unsigned int highestIndex(std::span<const unsigned int> indices) {
  const auto range = rangeOfNumbers(ScalarKind::UInt32, std::as_bytes(indices));
  return range ? static_cast<unsigned int>(range->max) : 0;
}

}  // namespace Fiber

#endif  // HWY_ONCE
