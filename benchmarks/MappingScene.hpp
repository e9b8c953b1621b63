// SPDX-License-Identifier: Apache-2.0
//
// The mapping of fragments onto tiles as something to measure.

#pragma once

#include <cstdint>

#include "benchmarks/Comparison.hpp"

namespace Benchmarks {

struct MappingSizes {
  std::uint64_t tiles = 0;  ///< the square of a whole number
  std::uint64_t fragments = 0;
};

/// Maps fragments that lie side by side onto a tiling of the same area, in a child; making both is
/// not timed. Delivers the number of tiles; fails when no fragment touches one of them.
Measure mapping(const MappingSizes& sizes);

/// Makes both and maps nothing: what they themselves occupy.
Measure mappingSceneAlone(const MappingSizes& sizes);

}  // namespace Benchmarks
