// SPDX-License-Identifier: Apache-2.0
//
// The density estimate: from the sizes and boxes of the input fragments to a tile length that holds
// about five million points. Points themselves are never visited.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "datamodel/fiber/Field.hpp"

namespace LidarLib {

/// Points per square unit over a cloud's horizontal extent, in 200 x 200 cells of 8 bits.
class DensityGrid {
 public:
  static constexpr std::size_t kCellsPerAxis = 200;

  /// All cells 0. The cells cover the x and y extent of `box`.
  explicit DensityGrid(const Eagle::BoundingBox& box);

  /// Adds a fragment's mean density to the cells that its box spans.
  /// Range: half-open per axis. Deliberate: a fragment that begins and ends in the same column or
  /// row adds nothing, the fraction of a cell's sum is cut off, and a cell wraps beyond 255.
  void addFragment(const Eagle::BoundingBox& box, double pointCount);

  /// Value of one cell. Requires: both indices below kCellsPerAxis.
  std::uint8_t cell(std::size_t ix, std::size_t iy) const { return cells_[index(ix, iy)]; }

  /// Mean of the cells that are not 0; 0 when all are.
  double density() const;

 private:
  static std::size_t index(std::size_t ix, std::size_t iy) { return iy * kCellsPerAxis + ix; }

  double originX_;
  double originY_;
  double cellsPerUnitX_;  ///< infinite for a cloud without extent along x
  double cellsPerUnitY_;
  Fiber::MemArray<3, unsigned char> cells_;
};

/// The density of a field's fragments over the field's own box; 0 when nothing can be said.
double estimateDensity(const MemCore::StrongPtr<Fiber::Field>& positions);

/// A tile length as it is used and as it is reported.
struct LengthEstimate {
  double length = 0.0;           ///< whole number from 1 to 10000
  double unroundedLength = 0.0;  ///< Deliberate: the console's report shows this one
};

/// The length of a square tile that holds five million points of a density above 0, half of that
/// for clouds with full waveforms. Says the result on the console, and warns when it is clamped.
LengthEstimate lengthForDensity(double density, bool hasWaveforms);

}  // namespace LidarLib
