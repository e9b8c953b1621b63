// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/CoordinateGrid.hpp"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <vector>

namespace Fiber::Container {
namespace {

/// Points handled between two looks at the mismatch flag: enough to vectorise, little enough that
/// points off the grid are noticed early.
constexpr std::size_t kBlock = 2048;

/// The nearest integer of a quotient, as its low 32 bits. Adding 1.5 * 2^52 rounds to an integer
/// and leaves it in the low bits of the double; this vectorises everywhere and is defined for
/// every input. Beyond 32 bits (or for NaN) some other integer comes out, which the proof refuses.
inline std::int32_t nearestInteger(double quotient) {
  constexpr double kShift = 6755399441055744.0;
  return static_cast<std::int32_t>(
      static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(quotient + kShift)));
}

inline double fromGrid(std::int32_t value, double scale, double offset) {
  return static_cast<double>(value) * scale + offset;
}

/// Encodes one value into `out`; the result is zero when it decodes to the identical double.
inline std::uint64_t encodeValue(double value, double inverse, const AxisGrid& grid,
                                 std::int32_t& out) {
  const std::int32_t integer = nearestInteger((value - grid.offset) * inverse);
  out = integer;
  return std::bit_cast<std::uint64_t>(fromGrid(integer, grid.scale, grid.offset)) ^
         std::bit_cast<std::uint64_t>(value);
}

/// Encodes `count` points and hands the integers of each to `store`; the result is zero for every
/// axis that is proven.
template <class Store>
std::array<std::uint64_t, 3> encodeBlock(const double* __restrict xyz, std::size_t count,
                                         const CoordinateGrid& grid, Store store) {
  const AxisGrid gx = grid[0];
  const AxisGrid gy = grid[1];
  const AxisGrid gz = grid[2];
  const double ix = 1.0 / gx.scale;
  const double iy = 1.0 / gy.scale;
  const double iz = 1.0 / gz.scale;
  std::uint64_t mx = 0;
  std::uint64_t my = 0;
  std::uint64_t mz = 0;
  for (std::size_t i = 0; i < count; ++i) {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t z = 0;
    mx |= encodeValue(xyz[3 * i], ix, gx, x);
    my |= encodeValue(xyz[3 * i + 1], iy, gy, y);
    mz |= encodeValue(xyz[3 * i + 2], iz, gz, z);
    store(i, x, y, z);
  }
  return {mx, my, mz};
}

bool storeBlock(const double* xyz, std::size_t count, const CoordinateGrid& grid,
                std::int32_t* __restrict toX, std::int32_t* __restrict toY,
                std::int32_t* __restrict toZ) {
  const auto mismatch =
      encodeBlock(xyz, count, grid,
                  [toX, toY, toZ](std::size_t i, std::int32_t x, std::int32_t y, std::int32_t z) {
                    toX[i] = x;
                    toY[i] = y;
                    toZ[i] = z;
                  });
  return (mismatch[0] | mismatch[1] | mismatch[2]) == 0;
}

/// Which axes hold a point that is not exact on the grid.
std::array<bool, 3> offGrid(std::span<const double> xyz, const CoordinateGrid& grid) {
  const std::size_t count = xyz.size() / 3;
  std::array<std::uint64_t, 3> mismatch{};
  for (std::size_t start = 0; start < count; start += kBlock) {
    const double* block = xyz.data() + 3 * start;
    const auto found = encodeBlock(block, std::min(kBlock, count - start), grid,
                                   [](std::size_t, std::int32_t, std::int32_t, std::int32_t) {});
    for (std::size_t axis = 0; axis < 3; ++axis) mismatch[axis] |= found[axis];
  }
  return {mismatch[0] != 0, mismatch[1] != 0, mismatch[2] != 0};
}

/// The coordinates of one axis within interleaved points.
class AxisValues {
 public:
  AxisValues(std::span<const double> xyz, std::size_t axis) : xyz_(xyz), axis_(axis) {}
  std::size_t size() const { return xyz_.size() / 3; }
  double operator[](std::size_t i) const { return xyz_[3 * i + axis_]; }

 private:
  std::span<const double> xyz_;
  std::size_t axis_;
};

/// Offsets that surveys use: none at all, and the smallest value or the middle rounded to a power
/// of ten. Values that are decimal numbers in themselves fit any of those near enough to them.
std::vector<double> offsetCandidates(const AxisValues& values) {
  double lowest = values[0];
  double highest = values[0];
  for (std::size_t i = 0; i < values.size(); ++i) {
    lowest = std::min(lowest, values[i]);
    highest = std::max(highest, values[i]);
  }
  std::vector<double> offsets = {0.0};
  const auto add = [&](double offset) {
    if (std::isfinite(offset) &&
        std::find(offsets.begin(), offsets.end(), offset) == offsets.end()) {
      offsets.push_back(offset);
    }
  };
  const double middle = lowest + (highest - lowest) / 2;
  for (const double unit : {1.0, 10.0, 100.0, 1e3, 1e4, 1e5, 1e6}) {
    add(std::floor(lowest / unit) * unit);
    add(std::round(middle / unit) * unit);
    add(std::floor(middle / unit) * unit);
  }
  return offsets;
}

/// The grids that may suit one axis: those that hold a sample of its values, from coarse to fine
/// (the coarsest that fits deflates best).
class AxisSearch {
 public:
  AxisSearch(std::span<const double> xyz, std::size_t axis) : values_(xyz, axis) {}

  std::optional<AxisGrid> next() {
    constexpr std::array<double, 10> kScales = {1.0,  1e-1, 1e-2, 1e-3, 1e-4,
                                                1e-5, 1e-6, 1e-7, 1e-8, 1e-9};
    if (offsets_.empty()) offsets_ = offsetCandidates(values_);
    while (next_ < kScales.size() * offsets_.size()) {
      const AxisGrid grid{kScales[next_ / offsets_.size()], offsets_[next_ % offsets_.size()]};
      ++next_;
      if (holdsSample(grid)) return grid;
    }
    return std::nullopt;
  }

 private:
  bool holdsSample(const AxisGrid& grid) const {
    constexpr std::size_t kSample = 512;
    const std::size_t stride = std::max<std::size_t>(1, values_.size() / kSample);
    const double inverse = 1.0 / grid.scale;
    std::int32_t ignored = 0;
    for (std::size_t i = 0; i < values_.size(); i += stride) {
      if (encodeValue(values_[i], inverse, grid, ignored) != 0) return false;
    }
    return true;
  }

  AxisValues values_;
  std::vector<double> offsets_;
  std::size_t next_ = 0;  ///< combination of scale and offset to try
};

}  // namespace

bool encodeOnGrid(std::span<const double> xyz, const CoordinateGrid& grid,
                  const std::array<std::span<std::int32_t>, 3>& columns) {
  const std::size_t count = xyz.size() / 3;
  assert(xyz.size() % 3 == 0);
  assert(columns[0].size() == count && columns[1].size() == count && columns[2].size() == count);
  for (std::size_t start = 0; start < count; start += kBlock) {
    const std::size_t block = std::min(kBlock, count - start);
    const bool isExact = storeBlock(xyz.data() + 3 * start, block, grid, columns[0].data() + start,
                                    columns[1].data() + start, columns[2].data() + start);
    if (!isExact) return false;
  }
  return true;
}

std::optional<CoordinateGrid> findGrid(std::span<const double> xyz,
                                       const std::optional<CoordinateGrid>& hint) {
  assert(xyz.size() % 3 == 0);
  if (xyz.empty()) return hint;
  std::array<AxisSearch, 3> searches = {AxisSearch(xyz, 0), AxisSearch(xyz, 1), AxisSearch(xyz, 2)};
  CoordinateGrid grid = hint.value_or(CoordinateGrid{});
  std::array<bool, 3> refused = {true, true, true};
  if (hint) refused = offGrid(xyz, grid);
  // Each round moves the axes that still fail on to their next grid, and judges all in one pass.
  while (refused[0] || refused[1] || refused[2]) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (!refused[axis]) continue;
      const auto candidate = searches[axis].next();
      if (!candidate) return std::nullopt;
      grid[axis] = *candidate;
    }
    refused = offGrid(xyz, grid);
  }
  return grid;
}

std::optional<GridPoints> encodeExactly(std::span<const double> xyz,
                                        const std::optional<CoordinateGrid>& hint) {
  GridPoints points;
  for (auto& column : points.columns) column.resize(xyz.size() / 3);
  const auto encodeOn = [&](const CoordinateGrid& grid) {
    points.grid = grid;
    return encodeOnGrid(xyz, grid, {points.columns[0], points.columns[1], points.columns[2]});
  };
  if (hint && encodeOn(*hint)) return points;
  const auto found = findGrid(xyz, hint);
  if (!found || !encodeOn(*found)) return std::nullopt;
  return points;
}

}  // namespace Fiber::Container
