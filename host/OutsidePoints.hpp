// SPDX-License-Identifier: Apache-2.0
//
// OutsidePoints: counts the points of a cloud that lie outside a box, which a tiling of that box
// leaves out on purpose. Only fragments whose boxes cross a face are read.

#pragma once

#include <cstdint>

#include "datamodel/fiber/Field.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Host {

/// Points outside the closed box; a point with a coordinate that is NaN is outside. Fragments are
/// shared out among the threads. Errors: a fragment that cannot be read.
MemCore::Outcome<std::uint64_t> countPointsOutside(const Fiber::Field& positions,
                                                   const Eagle::BoundingBox& box);

/// Points of all fragments.
std::uint64_t countPoints(const Fiber::Field& positions);

}  // namespace Host
