// SPDX-License-Identifier: Apache-2.0
//
// LengthChoice: tile lengths that the operation does not settle by itself: one for a wished number
// of points per tile, and the smallest correction where rounding leaves the last face of the cloud
// outside all tiles.

#pragma once

#include <cstdint>

#include "datamodel/eagle/BoundingBox.hpp"

namespace Host {

/// Edge length of a square tile that holds `pointsPerTile` of `pointCount` points spread evenly
/// over the box, rounded to three significant digits. A box without width or depth is cut along the
/// other; 0 when there is nothing to cut.
double lengthForPointsPerTile(const Eagle::BoundingBox& box, std::uint64_t pointCount,
                              std::uint64_t pointsPerTile);

/// One axis of a tiling.
struct TiledAxis {
  double min = 0.0;  ///< of the box to cover
  double max = 0.0;
  std::uint64_t count = 1;  ///< tiles
  double length = 0.0;
};

/// Whether min + count x length, as the tiles' boxes compute it, reaches max.
bool coversAxis(const TiledAxis& axis);

/// The smallest length, not below the given one, whose tiles cover the axis.
/// Requires: length above 0, finite bounds.
double coveringLength(const TiledAxis& axis);

}  // namespace Host
