// SPDX-License-Identifier: Apache-2.0
//
// MarginChoice: which points of overlapping tiles go into files, by the rule that the user gave for
// their margins.

#pragma once

#include "datamodel/fiber/Grid.hpp"
#include "formats/export/FragmentColumns.hpp"
#include "host/Options.hpp"
#include "host/Result.hpp"

namespace Host {

/// Chooses points of a grid's tiles; all points where tiles do not overlap. Errors: as
/// TileOwnership::of, unless margins are kept as they are.
Result<Formats::PointChooser> chooserFor(const Fiber::Grid& grid, OverlapRule rule);

}  // namespace Host
