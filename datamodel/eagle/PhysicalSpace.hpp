// SPDX-License-Identifier: Apache-2.0
//
// Points and small vectors of three-dimensional space, in the units of the positions (metres).

#pragma once

#include <array>
#include <compare>
#include <cstddef>

namespace Eagle {

/// N components of type T; a plain aggregate.
template <class T, std::size_t N>
struct FixedArray {
  std::array<T, N> components{};

  T& operator[](std::size_t axis) { return components[axis]; }
  const T& operator[](std::size_t axis) const { return components[axis]; }
  friend bool operator==(const FixedArray&, const FixedArray&) = default;
};

struct PhysicalSpace {
  /// A location: x, y, z. Laid out as three consecutive doubles.
  struct point {  // NOLINT(readability-identifier-naming): the data model's own spelling
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;

    double& operator[](std::size_t axis) { return axis == 0 ? x : axis == 1 ? y : z; }
    const double& operator[](std::size_t axis) const { return axis == 0 ? x : axis == 1 ? y : z; }
    friend bool operator==(const point&, const point&) = default;
  };
  static_assert(sizeof(point) == 3 * sizeof(double));
};

}  // namespace Eagle
