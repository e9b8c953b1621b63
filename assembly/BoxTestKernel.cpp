// SPDX-License-Identifier: Apache-2.0
//
// This file is compiled once per instruction set: foreach_target.h includes it again and again,
// each time with another HWY_NAMESPACE. What is outside those namespaces stands under HWY_ONCE.

#include "assembly/BoxTestKernel.hpp"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "assembly/BoxTestKernel.cpp"
#include <hwy/foreach_target.h>  // must precede highway.h

#include <hwy/cache_control.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace LidarLib {
namespace HWY_NAMESPACE {  // NOLINT(google-build-namespaces)

namespace hn = hwy::HWY_NAMESPACE;

/// Points tested at once: a multiple of every vector's lanes, and their coordinates fit a word.
constexpr std::size_t kGroupPoints = 16;
constexpr std::size_t kGroupCoordinates = 3 * kGroupPoints;
constexpr std::size_t kWordBits = 64;

using Doubles = hn::CappedTag<double, kGroupPoints>;
using DoubleVector = hn::Vec<Doubles>;
using DoubleMask = hn::Mask<Doubles>;
using Indices = hn::CappedTag<std::uint32_t, kExpandSlack>;
using MaskBytes = std::array<std::uint8_t, 8>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Vectors of scalable size cannot be members of a class: they travel as plain arguments.

/// Which lanes belong to the tile along their axes; bit l of the result tells of lane l.
HWY_INLINE std::uint64_t belongs(const double* coordinates, DoubleVector low, DoubleVector max) {
  const Doubles d;
  const DoubleVector value = hn::LoadU(d, coordinates);
  const DoubleMask inside = hn::AndNot(hn::Gt(value, max), hn::Ge(value, low));
  MaskBytes bytes = {};
  hn::StoreMaskBits(d, inside, bytes.data());
  return bytes[0] | std::uint64_t{bytes[1]} << 8;
}

/// Asks for the coordinates of a group that comes later, maybe in the next run: what lies in
/// another page the processor does not fetch by itself. Where nothing comes later it is a wasted
/// hint.
HWY_INLINE void prefetch(const double* group) {
  constexpr std::uintptr_t kAheadBytes = 6144;
  constexpr std::size_t kLineBytes = 64;
  const std::uintptr_t later = reinterpret_cast<std::uintptr_t>(group) + kAheadBytes;
  for (std::size_t at = 0; at < kGroupCoordinates * sizeof(double); at += kLineBytes) {
    hwy::Prefetch(reinterpret_cast<const char*>(later + at));
  }
}

/// Bits 0, 3, 6 ... 45 as bits 0 to 15.
HWY_INLINE std::uint64_t everyThirdBit(std::uint64_t bits) {
  bits &= 0x0000249249249249;
  bits = (bits | bits >> 2) & 0x00000C30C30C30C3;
  bits = (bits | bits >> 4) & 0x000000F00F00F00F;
  bits = (bits | bits >> 8) & 0x00000000FF0000FF;
  return (bits | bits >> 16) & 0xFFFF;
}

std::size_t markInsideKernel(std::span<const Eagle::PhysicalSpace::point> points,
                             const TileBounds& bounds, std::uint64_t* marks) {
  // Three vectors hold as many whole points as a vector has lanes, x, y, z in turn. Each is
  // compared with bounds in the same order, so that no coordinate has to change its place.
  const Doubles d;
  const std::size_t lanes = hn::Lanes(d);
  double low[kGroupCoordinates];
  double max[kGroupCoordinates];
  for (std::size_t c = 0; c < kGroupCoordinates; ++c) {
    low[c] = bounds.low[c % 3];
    max[c] = bounds.max[c % 3];
  }
  const DoubleVector lowA = hn::LoadU(d, low);
  const DoubleVector lowB = hn::LoadU(d, low + lanes);
  const DoubleVector lowC = hn::LoadU(d, low + 2 * lanes);
  const DoubleVector maxA = hn::LoadU(d, max);
  const DoubleVector maxB = hn::LoadU(d, max + lanes);
  const DoubleVector maxC = hn::LoadU(d, max + 2 * lanes);
  std::size_t marked = 0;
  for (std::size_t first = 0; first < points.size(); first += kWordBits) {
    const std::size_t end = std::min(points.size(), first + kWordBits);
    std::uint64_t word = 0;
    std::size_t i = first;
    for (; i + kGroupPoints <= end; i += kGroupPoints) {
      const double* group = reinterpret_cast<const double*>(points.data() + i);
      prefetch(group);
      std::uint64_t belonging = 0;
      for (std::size_t at = 0; at < kGroupCoordinates; at += 3 * lanes) {
        belonging |= belongs(group + at, lowA, maxA) << at;
        belonging |= belongs(group + at + lanes, lowB, maxB) << (at + lanes);
        belonging |= belongs(group + at + 2 * lanes, lowC, maxC) << (at + 2 * lanes);
      }
      word |= everyThirdBit(belonging & belonging >> 1 & belonging >> 2) << (i - first);
    }
    for (; i < end; ++i) word |= std::uint64_t{bounds.contains(points[i])} << (i - first);
    marks[first / kWordBits] = word;
    marked += hwy::PopCount(word);
  }
  return marked;
}

std::size_t expandMarksKernel(std::span<const std::uint64_t> marks, std::uint32_t firstIndex,
                              std::uint32_t* indices) {
  const Indices d;
  const std::size_t lanes = hn::Lanes(d);
  const std::uint64_t laneBits = (std::uint64_t{1} << lanes) - 1;
  const auto step = hn::Set(d, static_cast<std::uint32_t>(lanes));
  const auto countingUp = hn::Iota(d, 0);
  std::size_t written = 0;
  for (const std::uint64_t& word : marks) {
    const auto before =
        static_cast<std::uint32_t>(static_cast<std::size_t>(&word - marks.data()) * kWordBits);
    auto index = hn::Add(countingUp, hn::Set(d, firstIndex + before));
    for (std::uint64_t rest = word; rest != 0; rest >>= lanes) {
      const std::uint64_t taken = rest & laneBits;
      alignas(8) const MaskBytes bits = {static_cast<std::uint8_t>(taken & 0xFF),
                                         static_cast<std::uint8_t>(taken >> 8)};
      // Compressed in the register: compressing stores to memory are microcoded on some processors.
      hn::StoreU(hn::CompressBits(index, bits.data()), d, indices + written);
      written += hwy::PopCount(taken);
      index = hn::Add(index, step);
    }
  }
  return written;
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
  double low[3 * kGroupPoints];
  double high[3 * kGroupPoints];
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

HWY_EXPORT(markInsideKernel);
HWY_EXPORT(expandMarksKernel);
HWY_EXPORT(boxOfPointsKernel);

namespace {

/// The lowest number above another one; NaN when there is none.
double nextAbove(double value) {
  constexpr double kHighest = std::numeric_limits<double>::infinity();
  return value == kHighest ? std::numeric_limits<double>::quiet_NaN()
                           : std::nextafter(value, kHighest);
}

}  // namespace

TileBounds::TileBounds(const Eagle::BoundingBox& box, const Fiber::MultiIndex<3>& index)
    : low(box.min()), max(box.max()) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (index[axis] != 0) low[axis] = nextAbove(low[axis]);
  }
}

PointBox boxOfPoints(std::span<const Eagle::PhysicalSpace::point> points) {
  return HWY_DYNAMIC_DISPATCH(boxOfPointsKernel)(points);
}

std::size_t markInside(std::span<const Eagle::PhysicalSpace::point> points,
                       const TileBounds& bounds, std::span<std::uint64_t> marks) {
  assert(marks.size() >= markWords(points.size()));
  return HWY_DYNAMIC_DISPATCH(markInsideKernel)(points, bounds, marks.data());
}

std::size_t expandMarks(std::span<const std::uint64_t> marks, std::uint32_t firstIndex,
                        std::uint32_t* indices) {
  return HWY_DYNAMIC_DISPATCH(expandMarksKernel)(marks, firstIndex, indices);
}

}  // namespace LidarLib

#endif  // HWY_ONCE
