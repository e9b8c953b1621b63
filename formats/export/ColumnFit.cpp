// SPDX-License-Identifier: Apache-2.0

#include "formats/export/ColumnFit.hpp"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <utility>

#include "formats/cloud/ColumnTypes.hpp"
#include "formats/las/ByteStream.hpp"

namespace Formats {

namespace {

/// The smallest and largest value that a field holds.
template <class To>
struct Bounds {
  To low = std::numeric_limits<To>::lowest();
  To high = std::numeric_limits<To>::max();
};

template <class To>
Bounds<To> boundsOf(const PointField& field) {
  if constexpr (std::is_unsigned_v<To>) {
    if (field.bitCount != 0) return {0, static_cast<To>((1U << field.bitCount) - 1)};
  }
  return {};
}

/// An integer as another integer. False: it did not fit and became the nearest one that does.
template <class From, class To>
bool fitInteger(From value, const Bounds<To>& bounds, To& fitted) {
  const bool isLow = std::cmp_less(value, bounds.low);
  const bool isHigh = std::cmp_greater(value, bounds.high);
  fitted = isLow ? bounds.low : isHigh ? bounds.high : static_cast<To>(value);
  return !isLow && !isHigh;
}

/// A double as the nearest integer. False: that lies beyond the bounds, or there is none.
template <class To>
bool roundToInteger(double value, const Bounds<To>& bounds, To& fitted) {
  const double whole = std::round(value);
  // The upper bound of 64 bits is no double; the next one above it is.
  const double above = std::ldexp(1.0, std::numeric_limits<To>::digits);
  if (std::isnan(value)) {
    fitted = 0;
    return false;
  }
  if (whole < static_cast<double>(bounds.low)) {
    fitted = bounds.low;
    return false;
  }
  if (whole >= above || whole > static_cast<double>(bounds.high)) {
    fitted = bounds.high;
    return false;
  }
  fitted = static_cast<To>(whole);
  return true;
}

/// A number as a float or double. Integers may not be representable; NaN stays NaN.
template <class From, class To>
bool fitFloating(From value, To& fitted) {
  fitted = static_cast<To>(value);
  if constexpr (std::is_floating_point_v<From>) {
    return std::isnan(value) || static_cast<From>(fitted) == value;
  } else {
    const double above = std::ldexp(1.0, std::numeric_limits<From>::digits);
    const auto back = static_cast<double>(fitted);
    return back < above && static_cast<From>(back) == value;
  }
}

template <class From, class To>
bool fitValue(From value, double factor, const Bounds<To>& bounds, To& fitted) {
  if constexpr (std::is_integral_v<To>) {
    if constexpr (std::is_integral_v<From>) {
      if (factor == 1.0) return fitInteger(value, bounds, fitted);
    }
    const bool isInside = roundToInteger(static_cast<double>(value) * factor, bounds, fitted);
    const auto back = static_cast<double>(fitted) / factor;
    // A count in other steps fits when its own steps can be told from the result.
    const bool isSame = std::is_integral_v<From> ? std::round(back) == static_cast<double>(value)
                                                 : back == static_cast<double>(value);
    return isInside && isSame;
  } else {
    if (factor == 1.0) return fitFloating(value, fitted);
    return fitFloating(static_cast<double>(value) * factor, fitted);
  }
}

template <class From, class To>
FittedColumn fitAll(const ColumnView& column, const PointField& field) {
  const std::size_t count = column.values.size() / (sizeof(From) * column.components);
  const Bounds<To> bounds = boundsOf<To>(field);
  FittedColumn result;
  result.elements.resize(count * sizeof(To));
  std::size_t firstMisfit = count;
  const auto valueAt = [&](std::size_t i) {
    return loadValue<From>(column.values.data() +
                           (i * column.components + column.component) * sizeof(From));
  };
  for (std::size_t i = 0; i < count; ++i) {
    To fitted{};
    if (!fitValue(valueAt(i), column.factor, bounds, fitted) && firstMisfit == count) {
      firstMisfit = i;
    }
    storeValue(result.elements.data() + i * sizeof(To), fitted);
  }
  if (firstMisfit < count) result.misfit = fmt::format("{}", valueAt(firstMisfit));
  return result;
}

}  // namespace

bool fitsAsItStands(const ColumnView& column, const PointField& field) {
  if (column.components != 1 || column.type != field.type || column.factor != 1.0) return false;
  if (field.bitCount == 0) return true;
  unsigned used = 0;
  for (const std::byte value : column.values) used |= std::to_integer<unsigned>(value);
  return used >> field.bitCount == 0;
}

FittedColumn fitColumn(const ColumnView& column, const PointField& field) {
  return withElementType(column.type, [&]<class From>(std::type_identity<From>) {
    return withElementType(field.type, [&]<class To>(std::type_identity<To>) {
      return fitAll<From, To>(column, field);
    });
  });
}

}  // namespace Formats
