// SPDX-License-Identifier: Apache-2.0
//
// Clouds that exist only on paper: fragments with known boxes and counts and no points, for
// measuring what planning and linking cost at sizes that no disk holds.

#pragma once

#include <cstdint>
#include <optional>

#include "datamodel/fiber/Bundle.hpp"
#include "planning/FragmentMapping.hpp"

namespace Benchmarks {

/// The number of rows and columns that hold `count` squares.
std::uint64_t edgeOf(std::uint64_t count);

/// Box number `place` of `count` that cover the unit square side by side, 1 high, in rows of
/// edgeOf(count); the last one takes what is left of its row.
Eagle::BoundingBox rasterBox(std::uint64_t place, std::uint64_t count);

/// A grid named "points" with fragments of a million points each, side by side over the unit
/// square.
MemCore::StrongPtr<Fiber::Grid> promisedCloud(Fiber::Bundle& bundle, std::uint64_t fragments);

/// A tiling of the unit square and the output grid it is laid over.
struct TilingScene {
  LidarLib::TilingLayout layout;
  std::optional<Fiber::FragmentedUniformGrid3D> view;
};

/// Requires: `tiles` is the square of a whole number.
TilingScene unitTiling(std::uint64_t tiles);

}  // namespace Benchmarks
