// SPDX-License-Identifier: Apache-2.0

#include "formats/export/Scaling.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "datamodel/container/CoordinateGrid.hpp"

namespace Formats {

using Fiber::AxisGrid;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

using Point = Eagle::PhysicalSpace::point;
using PositionArray = Fiber::MemArray<1, Point>;

constexpr std::size_t kSampleOfFragment = 2000;
constexpr std::size_t kSampleOfGrid = 2'000'000;

CoordinateGrid gridOf(const std::array<double, 3>& scale, const std::array<double, 3>& offset) {
  CoordinateGrid grid;
  for (std::size_t axis = 0; axis < 3; ++axis) grid[axis] = {scale[axis], offset[axis]};
  return grid;
}

/// What the reader of the grid left as a hint.
std::optional<CoordinateGrid> hintOf(const ExportSource& source) {
  return Fiber::gridIn(source.positions->properties());
}

bool filesAgree(const ExportSource& source) {
  return std::all_of(source.files.begin(), source.files.end(), [&](const SourceFile& file) {
    const LasHeader& first = source.files.front().header;
    return file.header.scale == first.scale && file.header.offset == first.offset;
  });
}

/// Points of all fragments, evenly taken. Shape: [points][3].
Outcome<std::vector<double>> sampleOf(const ExportSource& source) {
  std::vector<double> sample;
  const std::size_t perFragment = std::clamp<std::size_t>(
      kSampleOfGrid / std::max<std::size_t>(1, source.fragments.size()), 1, kSampleOfFragment);
  for (const ExportFragment& fragment : source.fragments) {
    const auto column = columnOf(*source.positions, "Positions", fragment);
    if (!column) return column.failure();
    const auto points = MemCore::handleCast<PositionArray>(*column);
    if (!points) return Failure{"Positions: no points in space"};
    const std::size_t step = std::max<std::size_t>(1, points->count() / perFragment);
    for (std::size_t i = 0; i < points->count(); i += step) {
      const Point& p = (*points)[i];
      sample.insert(sample.end(), {p.x, p.y, p.z});
    }
  }
  return sample;
}

/// The nearest integer; absent when 32 bits do not hold it.
std::optional<std::int32_t> nearest(double value, const AxisGrid& axis) {
  const double raw = std::round((value - axis.offset) / axis.scale);
  if (!(raw >= std::numeric_limits<std::int32_t>::min()) ||
      !(raw <= std::numeric_limits<std::int32_t>::max())) {
    return std::nullopt;
  }
  return static_cast<std::int32_t>(raw);
}

/// Whether an integer stands for the coordinate, see Scaling.hpp.
bool standsFor(std::int32_t raw, double value, const AxisGrid& axis) {
  constexpr double kLastBits = 4.0 * std::numeric_limits<double>::epsilon();
  const double scaled = raw * axis.scale;
  const double back = scaled + axis.offset;
  if (back == value) return true;
  const double tolerance = kLastBits * std::max(std::abs(value), std::abs(axis.offset));
  return std::abs(back - value) <= tolerance && tolerance < std::abs(axis.scale) * 1e-3;
}

Failure cannotHold(double value, std::size_t axis, const AxisGrid& grid, const char* why) {
  return Failure{fmt::format("positions: coordinate {}, found {} = {}, scale {}, offset {}", why,
                             "xyz"[axis], value, grid.scale, grid.offset)};
}

/// Point by point, to round or to find what cannot be held.
Outcome<RawPositions> encodeOneByOne(std::span<const double> xyz, const CoordinateGrid& grid,
                                     bool isLossy) {
  RawPositions raw;
  for (auto& column : raw.columns) column.resize(xyz.size() / 3);
  for (std::size_t i = 0; i < xyz.size(); ++i) {
    const AxisGrid& axis = grid[i % 3];
    const auto found = nearest(xyz[i], axis);
    if (!found) return cannotHold(xyz[i], i % 3, axis, "beyond 32 bits");
    if (!isLossy && !standsFor(*found, xyz[i], axis)) {
      return cannotHold(xyz[i], i % 3, axis, "not exact (a lossy export rounds it)");
    }
    raw.isRounded = raw.isRounded || (isLossy && !standsFor(*found, xyz[i], axis));
    raw.columns[i % 3][i / 3] = *found;
  }
  return raw;
}

/// A power of ten, correctly rounded up to 10^22.
double powerOfTen(int exponent) {
  double power = 1.0;
  for (int i = 0; i < std::abs(exponent); ++i) power *= 10.0;
  return exponent < 0 ? 1.0 / power : power;
}

/// The coarsest powers of ten that hold all points of a sample, from the floor of their box on.
std::optional<CoordinateGrid> decimalGrid(std::span<const double> sample) {
  constexpr int kMostDecimals = 9;
  CoordinateGrid grid;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    grid[axis].offset = std::numeric_limits<double>::max();
    for (std::size_t i = axis; i < sample.size(); i += 3) {
      grid[axis].offset = std::min(grid[axis].offset, std::floor(sample[i]));
    }
    const auto holdsAll = [&] {
      for (std::size_t i = axis; i < sample.size(); i += 3) {
        const auto raw = nearest(sample[i], grid[axis]);
        if (!raw || !standsFor(*raw, sample[i], grid[axis])) return false;
      }
      return true;
    };
    int decimals = 0;
    do {
      grid[axis].scale = powerOfTen(-decimals);
    } while (!holdsAll() && ++decimals <= kMostDecimals);
    if (decimals > kMostDecimals) return std::nullopt;
  }
  return grid;
}

/// The finest power of ten by which the extent of an axis fits into 31 bits.
AxisGrid roundGrid(double low, double high) {
  constexpr double kSteps = 2147483647.0;
  constexpr int kFinest = -9;
  const double offset = std::floor(low);
  int exponent = kFinest;
  while ((high - offset) / powerOfTen(exponent) > kSteps) ++exponent;
  return {powerOfTen(exponent), offset};
}

CoordinateGrid roundGrid(std::span<const double> sample, const ExportSource& source) {
  std::array<double, 3> low{};
  std::array<double, 3> high{};
  low.fill(std::numeric_limits<double>::max());
  high.fill(std::numeric_limits<double>::lowest());
  const auto include = [&](std::size_t axis, double value) {
    if (!std::isfinite(value)) return;
    low[axis] = std::min(low[axis], value);
    high[axis] = std::max(high[axis], value);
  };
  for (std::size_t i = 0; i < sample.size(); ++i) include(i % 3, sample[i]);
  for (const ExportFragment& fragment : source.fragments) {
    if (!fragment.box) continue;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      include(axis, fragment.box->min()[axis]);
      include(axis, fragment.box->max()[axis]);
    }
  }
  return {roundGrid(low[0], high[0]), roundGrid(low[1], high[1]), roundGrid(low[2], high[2])};
}

/// Any will do for a grid without points.
CoordinateGrid gridWithoutPoints(const ExportSource& source) {
  const LasHeader usual;
  const LasHeader& header = source.files.empty() ? usual : source.files.front().header;
  return hintOf(source).value_or(gridOf(header.scale, header.offset));
}

Outcome<CoordinateGrid> searchGrid(const ExportSource& source, bool isLossy) {
  if (source.fragments.empty()) return gridWithoutPoints(source);
  const auto sample = sampleOf(source);
  if (!sample) return sample.failure();
  if (!std::all_of(sample->begin(), sample->end(), [](double v) { return std::isfinite(v); })) {
    return Failure{"positions: cannot be stored, found one that is not finite"};
  }
  for (const SourceFile& file : source.files) {
    const auto candidate = gridOf(file.header.scale, file.header.offset);
    if (encodePositions(*sample, candidate, false)) return candidate;
  }
  if (const auto found = Fiber::Container::findGrid(*sample, hintOf(source))) return *found;
  if (const auto found = decimalGrid(*sample)) return *found;
  if (isLossy) {
    const CoordinateGrid round = roundGrid(*sample, source);
    if (!std::isfinite(round[0].scale + round[1].scale + round[2].scale)) {
      return Failure{"positions: too far apart for 32 bits"};
    }
    return round;
  }
  return Failure{
      "positions: no scale and offset hold them exactly in 32 bits (a lossy export rounds them)"};
}

}  // namespace

Outcome<CoordinateGrid> settleScaling(const ExportSource& source, const LasExportOptions& options) {
  std::optional<CoordinateGrid> grid;
  if (!source.files.empty() && filesAgree(source)) {
    grid = gridOf(source.files.front().header.scale, source.files.front().header.offset);
  }
  const bool isGiven = options.scale && options.offset;
  if (!grid && !isGiven) {
    auto searched = searchGrid(source, options.isLossy || options.scale || options.offset);
    if (!searched) return searched;
    grid = *searched;
  }
  CoordinateGrid settled = grid.value_or(CoordinateGrid{});
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (options.scale) settled[axis].scale = (*options.scale)[axis];
    if (options.offset) settled[axis].offset = (*options.offset)[axis];
  }
  return settled;
}

Outcome<RawPositions> encodePositions(std::span<const double> xyz, const CoordinateGrid& grid,
                                      bool isLossy) {
  RawPositions raw;
  for (auto& column : raw.columns) column.resize(xyz.size() / 3);
  if (Fiber::Container::encodeOnGrid(xyz, grid, {raw.columns[0], raw.columns[1], raw.columns[2]})) {
    return raw;
  }
  return encodeOneByOne(xyz, grid, isLossy);
}

}  // namespace Formats
