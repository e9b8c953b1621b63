// SPDX-License-Identifier: Apache-2.0
//
// TileBound: an upper bound of the points that any one tile can receive, from the sizes and boxes
// of the fragments. The operation counts a tile's points in 32 bits; what could reach that limit is
// refused before a run.

#pragma once

#include <cstdint>

#include "planning/TilingLayout.hpp"

namespace Host {

/// Points of all fragments that touch the fullest tile. Requires: a layout without a message.
std::uint64_t fullestTileBound(const LidarLib::TilingLayout& layout);

}  // namespace Host
