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

/// Encodes `count` points; the result is zero when all of them are proven.
std::uint64_t encodeBlock(const double* __restrict xyz, std::size_t count,
                          const CoordinateGrid& grid, std::int32_t* __restrict x,
                          std::int32_t* __restrict y, std::int32_t* __restrict z) {
  const AxisGrid gx = grid[0];
  const AxisGrid gy = grid[1];
  const AxisGrid gz = grid[2];
  const double ix = 1.0 / gx.scale;
  const double iy = 1.0 / gy.scale;
  const double iz = 1.0 / gz.scale;
  std::uint64_t mismatch = 0;
  for (std::size_t i = 0; i < count; ++i) {
    mismatch |= encodeValue(xyz[3 * i], ix, gx, x[i]);
    mismatch |= encodeValue(xyz[3 * i + 1], iy, gy, y[i]);
    mismatch |= encodeValue(xyz[3 * i + 2], iz, gz, z[i]);
  }
  return mismatch;
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

/// Whether every stride-th value is exact on the grid.
bool isExact(const AxisValues& values, const AxisGrid& grid, std::size_t stride) {
  const double inverse = 1.0 / grid.scale;
  std::int32_t ignored = 0;
  for (std::size_t i = 0; i < values.size(); i += stride) {
    if (encodeValue(values[i], inverse, grid, ignored) != 0) return false;
  }
  return true;
}

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
    if (std::isfinite(offset) && std::find(offsets.begin(), offsets.end(), offset) == offsets.end())
      offsets.push_back(offset);
  };
  const double middle = lowest + (highest - lowest) / 2;
  for (const double unit : {1.0, 10.0, 100.0, 1e3, 1e4, 1e5, 1e6}) {
    add(std::floor(lowest / unit) * unit);
    add(std::round(middle / unit) * unit);
    add(std::floor(middle / unit) * unit);
  }
  return offsets;
}

/// Scales are tried from coarse to fine: the coarsest that fits deflates best.
std::optional<AxisGrid> findAxisGrid(const AxisValues& values) {
  constexpr std::array<double, 10> kScales = {1.0,  1e-1, 1e-2, 1e-3, 1e-4,
                                              1e-5, 1e-6, 1e-7, 1e-8, 1e-9};
  constexpr std::size_t kSample = 512;
  const std::size_t stride = std::max<std::size_t>(1, values.size() / kSample);
  const std::vector<double> offsets = offsetCandidates(values);
  for (const double scale : kScales) {
    for (const double offset : offsets) {
      const AxisGrid grid{scale, offset};
      if (isExact(values, grid, stride) && isExact(values, grid, 1)) return grid;
    }
  }
  return std::nullopt;
}

}  // namespace

bool encodeOnGrid(std::span<const double> xyz, const CoordinateGrid& grid,
                  const std::array<std::span<std::int32_t>, 3>& columns) {
  const std::size_t count = xyz.size() / 3;
  assert(xyz.size() % 3 == 0);
  assert(columns[0].size() == count && columns[1].size() == count && columns[2].size() == count);
  for (std::size_t start = 0; start < count; start += kBlock) {
    const std::size_t block = std::min(kBlock, count - start);
    if (encodeBlock(xyz.data() + 3 * start, block, grid, columns[0].data() + start,
                    columns[1].data() + start, columns[2].data() + start) != 0) {
      return false;
    }
  }
  return true;
}

void decodeFromGrid(std::span<const std::int32_t> column, const AxisGrid& grid, std::size_t axis,
                    std::span<double> xyz) {
  assert(axis < 3 && xyz.size() == 3 * column.size());
  const double scale = grid.scale;
  const double offset = grid.offset;
  const std::size_t count = column.size();
  const std::int32_t* __restrict in = column.data();
  double* __restrict out = xyz.data() + axis;
  for (std::size_t i = 0; i < count; ++i) out[3 * i] = fromGrid(in[i], scale, offset);
}

std::optional<CoordinateGrid> findGrid(std::span<const double> xyz,
                                       const std::optional<CoordinateGrid>& hint) {
  assert(xyz.size() % 3 == 0);
  if (xyz.empty()) return hint;
  CoordinateGrid grid;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const AxisValues values(xyz, axis);
    if (hint && isExact(values, (*hint)[axis], 1)) {
      grid[axis] = (*hint)[axis];
    } else if (const auto found = findAxisGrid(values)) {
      grid[axis] = *found;
    } else {
      return std::nullopt;
    }
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
