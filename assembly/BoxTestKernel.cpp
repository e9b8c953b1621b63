// SPDX-License-Identifier: Apache-2.0
//
// This file is compiled once per instruction set: foreach_target.h includes it again and again,
// each time with another HWY_NAMESPACE. What is outside those namespaces stands under HWY_ONCE.

#include "assembly/BoxTestKernel.hpp"

#include <algorithm>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "assembly/BoxTestKernel.cpp"
#include <hwy/foreach_target.h>  // must precede highway.h

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace LidarLib {
namespace HWY_NAMESPACE {  // NOLINT(google-build-namespaces)

namespace hn = hwy::HWY_NAMESPACE;

using Doubles = hn::CappedTag<double, kCollectSlack>;
using DoubleVector = hn::Vec<Doubles>;
using DoubleMask = hn::Mask<Doubles>;
using Indices = hn::Rebind<std::uint32_t, Doubles>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Vectors of scalable size cannot be members of a class: they travel as plain arguments.

/// Which lanes belong to the tile along one axis.
HWY_INLINE DoubleMask belongs(DoubleVector value, DoubleVector min, DoubleVector max,
                              DoubleVector face) {
  return hn::AndNot(hn::Gt(value, max), hn::Or(hn::Gt(value, min), hn::Eq(value, face)));
}

std::size_t collectInsideKernel(std::span<const Eagle::PhysicalSpace::point> points,
                                const TileBounds& bounds, std::uint32_t firstIndex,
                                std::uint32_t* indices) {
  const Doubles d;
  const Indices d32;
  const std::size_t lanes = hn::Lanes(d);
  const DoubleVector minX = hn::Set(d, bounds.min.x);
  const DoubleVector minY = hn::Set(d, bounds.min.y);
  const DoubleVector minZ = hn::Set(d, bounds.min.z);
  const DoubleVector maxX = hn::Set(d, bounds.max.x);
  const DoubleVector maxY = hn::Set(d, bounds.max.y);
  const DoubleVector maxZ = hn::Set(d, bounds.max.z);
  const DoubleVector faceX = hn::Set(d, bounds.face.x);
  const DoubleVector faceY = hn::Set(d, bounds.face.y);
  const DoubleVector faceZ = hn::Set(d, bounds.face.z);
  const double* coordinates = reinterpret_cast<const double*>(points.data());
  const auto step = hn::Set(d32, static_cast<std::uint32_t>(lanes));
  auto index = hn::Iota(d32, firstIndex);
  alignas(8) std::uint8_t bits[8] = {};
  std::size_t selected = 0;
  std::size_t i = 0;
  for (; i + lanes <= points.size(); i += lanes) {
    DoubleVector x, y, z;
    hn::LoadInterleaved3(d, coordinates + 3 * i, x, y, z);
    const DoubleMask inside =
        hn::And(belongs(x, minX, maxX, faceX),
                hn::And(belongs(y, minY, maxY, faceY), belongs(z, minZ, maxZ, faceZ)));
    hn::StoreMaskBits(d, inside, bits);
    // Compressed in the register: compressing stores to memory are microcoded on some processors.
    hn::StoreU(hn::CompressBits(index, bits), d32, indices + selected);
    selected += hn::CountTrue(d, inside);
    index = hn::Add(index, step);
  }
  for (; i < points.size(); ++i) {
    indices[selected] = firstIndex + static_cast<std::uint32_t>(i);
    if (bounds.contains(points[i])) ++selected;
  }
  return selected;
}

// NaN loses every comparison: it never becomes the smallest or largest value.
HWY_INLINE DoubleVector smaller(DoubleVector low, DoubleVector value) {
  return hn::IfThenElse(hn::Lt(value, low), value, low);
}
HWY_INLINE DoubleVector larger(DoubleVector high, DoubleVector value) {
  return hn::IfThenElse(hn::Gt(value, high), value, high);
}

void growBy(PointBox& box, double low, double high, std::size_t axis) {
  box.min[axis] = low < box.min[axis] ? low : box.min[axis];
  box.max[axis] = high > box.max[axis] ? high : box.max[axis];
}

PointBox boxOfPointsKernel(std::span<const Eagle::PhysicalSpace::point> points) {
  // Three vectors hold as many whole points as a vector has lanes, x, y, z in turn: lane l of
  // vector v is always axis (v * lanes + l) mod 3, so the axes part only at the end.
  const Doubles d;
  const std::size_t lanes = hn::Lanes(d);
  const double* next = reinterpret_cast<const double*>(points.data());
  DoubleVector lowA = hn::Set(d, kInfinity);
  DoubleVector lowB = lowA;
  DoubleVector lowC = lowA;
  DoubleVector highA = hn::Set(d, -kInfinity);
  DoubleVector highB = highA;
  DoubleVector highC = highA;
  DoubleMask isNumber = hn::Eq(lowA, lowA);
  std::size_t i = 0;
  for (; i + lanes <= points.size(); i += lanes, next += 3 * lanes) {
    const DoubleVector a = hn::LoadU(d, next);
    const DoubleVector b = hn::LoadU(d, next + lanes);
    const DoubleVector c = hn::LoadU(d, next + 2 * lanes);
    lowA = smaller(lowA, a);
    lowB = smaller(lowB, b);
    lowC = smaller(lowC, c);
    highA = larger(highA, a);
    highB = larger(highB, b);
    highC = larger(highC, c);
    isNumber = hn::And(isNumber, hn::And(hn::Eq(a, a), hn::And(hn::Eq(b, b), hn::Eq(c, c))));
  }
  double low[3 * kCollectSlack];
  double high[3 * kCollectSlack];
  hn::StoreU(lowA, d, low);
  hn::StoreU(lowB, d, low + lanes);
  hn::StoreU(lowC, d, low + 2 * lanes);
  hn::StoreU(highA, d, high);
  hn::StoreU(highB, d, high + lanes);
  hn::StoreU(highC, d, high + 2 * lanes);
  PointBox box{{kInfinity, kInfinity, kInfinity}, {-kInfinity, -kInfinity, -kInfinity}};
  for (std::size_t l = 0; l < 3 * lanes; ++l) {
    growBy(box, low[l], high[l], l % 3);
  }
  box.hasNaN = !hn::AllTrue(d, isNumber);
  for (const Eagle::PhysicalSpace::point& p : points.subspan(i)) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      growBy(box, p[axis], p[axis], axis);
      box.hasNaN = box.hasNaN || p[axis] != p[axis];
    }
  }
  return box;
}

}  // namespace HWY_NAMESPACE
}  // namespace LidarLib
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace LidarLib {

HWY_EXPORT(collectInsideKernel);
HWY_EXPORT(boxOfPointsKernel);

TileBounds::TileBounds(const Eagle::BoundingBox& box, const Fiber::MultiIndex<3>& index)
    : min(box.min()), max(box.max()) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    face[axis] = index[axis] == 0 ? min[axis] : std::numeric_limits<double>::quiet_NaN();
  }
}

PointBox boxOfPoints(std::span<const Eagle::PhysicalSpace::point> points) {
  return HWY_DYNAMIC_DISPATCH(boxOfPointsKernel)(points);
}

std::size_t collectInside(std::span<const Eagle::PhysicalSpace::point> points,
                          const TileBounds& bounds, std::uint32_t firstIndex,
                          std::uint32_t* indices) {
  return HWY_DYNAMIC_DISPATCH(collectInsideKernel)(points, bounds, firstIndex, indices);
}

}  // namespace LidarLib

#endif  // HWY_ONCE
