// SPDX-License-Identifier: Apache-2.0
//
// TilingLayout: the geometry of the output. Edge length and number of tiles per axis, the corner of
// the tiling and, as functions of the tile's index, the box and output fragment of each tile.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "datamodel/fiber/Grid.hpp"

namespace LidarLib {

/// Units: those of the positions. A non-empty `message` means that there is no layout.
struct TilingLayout {
  MemCore::StrongPtr<Eagle::BoundingBox> globalBox;
  Eagle::FixedArray<double, 3> fragmentLength;  ///< (0, 0, 0) until the layout succeeds
  std::uint64_t nx = 1;
  std::uint64_t ny = 1;
  std::uint64_t nz = 1;
  Eagle::FixedArray<double, 3> origin;              ///< corner of tile (0, 0, 0)
  std::string message;                              ///< the failure; empty on success
  MemCore::StrongPtr<Eagle::BoundingBox> tiledBox;  ///< origin to origin + n x length per axis
  double normalizedOverlap = 0.0;
  MemCore::StrongPtr<Fiber::Field> positions;
  std::string info;  ///< the report, line by line

  bool isEstimated = false;       ///< the horizontal length was estimated
  double estimatedDensity = 0.0;  ///< points per square unit; 0 when nothing was estimated
};

/// Settles the layout for one surveyed grid. `fragmentLength` is updated in place: the estimate
/// (when x or y is not above 0), then the defaults. Requires: a global box. Errors: the layout's
/// `message`.
TilingLayout estimateTiling(const MemCore::StrongPtr<Eagle::BoundingBox>& globalBox,
                            Eagle::FixedArray<double, 3>& fragmentLength, double normalizedOverlap,
                            const MemCore::StrongPtr<Fiber::Field>& positions, bool hasWaveforms);

/// Closed interval along one axis.
struct AxisInterval {
  double min = 0.0;
  double max = 0.0;
};

/// What the tiles of index `q` along an axis span there, the overlap included.
AxisInterval tileInterval(const TilingLayout& layout, std::size_t axis, std::uint64_t q,
                          double normalizedOverlap);

/// The box of tile (i, j, k), widened by the overlap on every side.
MemCore::StrongPtr<Eagle::BoundingBox> tileBox(const Fiber::MultiIndex<3>& index,
                                               const TilingLayout& layout,
                                               double normalizedOverlap);

/// A tile's output fragment (empty when the view has none) and its box.
using TileEntry = std::pair<Fiber::FragmentHandle, MemCore::StrongPtr<Eagle::BoundingBox>>;

TileEntry tileEntry(const Fiber::FragmentedUniformGrid3D& view, const Fiber::MultiIndex<3>& index,
                    const TilingLayout& layout, double normalizedOverlap);

}  // namespace LidarLib
