// SPDX-License-Identifier: Apache-2.0

#include "planning/TilingLayout.hpp"

#include "datamodel/memcore/Text.hpp"
#include "planning/DensityEstimate.hpp"
#include "planning/Narrowing.hpp"

namespace LidarLib {

using Eagle::BoundingBox;
using Eagle::PhysicalSpace;
using MemCore::formatFixed;
using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

using Lengths = Eagle::FixedArray<double, 3>;
using Counts = Eagle::FixedArray<std::uint64_t, 3>;

constexpr double kMaxTiles = 50'000'000.0;

std::string joined(const std::string& x, const std::string& y, const std::string& z) {
  return x + " x " + y + " x " + z;
}

template <class Vector>
std::string vectorText(const Vector& v) {
  return joined(formatFixed(v[0]), formatFixed(v[1]), formatFixed(v[2]));
}

/// Replaces the horizontal lengths by an estimate, if the density allows one.
void estimateLengths(TilingLayout& layout, Lengths& fragmentLength, bool hasWaveforms) {
  const double density = estimateDensity(layout.positions);
  if (!(density > 0.0)) return;
  const double length = lengthForDensity(density, hasWaveforms).length;
  fragmentLength[0] = length;
  fragmentLength[1] = length;
  layout.isEstimated = true;
  layout.estimatedDensity = density;
  layout.info += "Based on estimated point density[points/m2]: " + formatFixed(density) +
                 " the new fragment length is: " + vectorText(fragmentLength) + "\n";
}

std::uint64_t tilesAlong(double extent, double length) {
  if (length == 0.0) return 1;
  const std::uint64_t count = ceilToTileCount(extent / length);
  return count == 0 ? 1 : count;
}

void countTiles(TilingLayout& layout, const Lengths& fragmentLength, const Lengths& diagonal) {
  layout.nx = tilesAlong(diagonal[0], fragmentLength[0]);
  layout.ny = tilesAlong(diagonal[1], fragmentLength[1]);
  layout.nz = tilesAlong(diagonal[2], fragmentLength[2]);
}

void reportGeometry(TilingLayout& layout, const Lengths& diagonal) {
  layout.info += "Input Global Bounding Box: Min: " + vectorText(layout.globalBox->min()) +
                 " Max: " + vectorText(layout.globalBox->max()) + "\n";
  layout.info += "Input Diagonal of Global Box: " + vectorText(diagonal) + "\n";
  layout.info +=
      "Number of Out-Fragments: " +
      joined(std::to_string(layout.nx), std::to_string(layout.ny), std::to_string(layout.nz)) +
      "\n";
}

/// Why the tiles cannot be made; empty when they can. The 64-bit product may wrap: a product that
/// wraps to 0 counts as none, any other is judged by its true value (exact in double up to 2^53).
std::string tileCountFailure(const TilingLayout& layout) {
  if (layout.nx * layout.ny * layout.nz == 0) return "Number of fragments is zero!";
  const double total = static_cast<double>(layout.nx) * static_cast<double>(layout.ny) *
                       static_cast<double>(layout.nz);
  return total > kMaxTiles ? "Number of fragments is over 50 Million!" : "";
}

/// A length of exactly 0 spans its whole axis. Deliberate: only z is guarded against what is then
/// still not above 0.
void applyDefaultLengths(Lengths& fragmentLength, const Lengths& diagonal) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (fragmentLength[axis] == 0.0) fragmentLength[axis] = diagonal[axis];
  }
  if (fragmentLength[2] <= 0.0) fragmentLength[2] = 1.0;
}

void settleTiledBox(TilingLayout& layout, const Lengths& fragmentLength) {
  const PhysicalSpace::point& corner = layout.globalBox->min();
  layout.fragmentLength = fragmentLength;
  layout.origin = {{corner.x, corner.y, corner.z}};
  const PhysicalSpace::point farCorner = {
      corner.x + static_cast<double>(layout.nx) * fragmentLength[0],
      corner.y + static_cast<double>(layout.ny) * fragmentLength[1],
      corner.z + static_cast<double>(layout.nz) * fragmentLength[2]};
  layout.tiledBox = makeStrong<BoundingBox>(corner, farCorner);
}

}  // namespace

TilingLayout estimateTiling(const StrongPtr<BoundingBox>& globalBox, Lengths& fragmentLength,
                            double normalizedOverlap, const StrongPtr<Fiber::Field>& positions,
                            bool hasWaveforms) {
  TilingLayout layout;
  layout.globalBox = globalBox;
  layout.normalizedOverlap = normalizedOverlap;
  layout.positions = positions;

  if (fragmentLength[0] <= 0.0 || fragmentLength[1] <= 0.0) {
    if (!positions) {
      layout.message = "Have no input positions!";
      return layout;
    }
    estimateLengths(layout, fragmentLength, hasWaveforms);
  } else {
    layout.info += "Fragment Length: " + vectorText(fragmentLength) + "\n";
  }

  const Lengths diagonal = globalBox->diagonal();
  countTiles(layout, fragmentLength, diagonal);
  reportGeometry(layout, diagonal);
  layout.message = tileCountFailure(layout);
  if (!layout.message.empty()) return layout;

  applyDefaultLengths(fragmentLength, diagonal);
  settleTiledBox(layout, fragmentLength);
  return layout;
}

AxisInterval tileInterval(const TilingLayout& layout, std::size_t axis, std::uint64_t q,
                          double normalizedOverlap) {
  const double length = layout.fragmentLength[axis];
  const double corner = layout.globalBox->min()[axis];
  AxisInterval interval{static_cast<double>(q) * length + corner,
                        static_cast<double>(q + 1) * length + corner};
  if (normalizedOverlap > 0.0) {
    const double margin = normalizedOverlap * length;
    interval.min -= margin;
    interval.max += margin;
  }
  return interval;
}

StrongPtr<BoundingBox> tileBox(const Fiber::MultiIndex<3>& index, const TilingLayout& layout,
                               double normalizedOverlap) {
  PhysicalSpace::point min;
  PhysicalSpace::point max;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const AxisInterval interval = tileInterval(layout, axis, index[axis], normalizedOverlap);
    min[axis] = interval.min;
    max[axis] = interval.max;
  }
  return makeStrong<BoundingBox>(min, max);
}

TileEntry tileEntry(const Fiber::FragmentedUniformGrid3D& view, const Fiber::MultiIndex<3>& index,
                    const TilingLayout& layout, double normalizedOverlap) {
  return {view.fragmentAt(index), tileBox(index, layout, normalizedOverlap)};
}

}  // namespace LidarLib
