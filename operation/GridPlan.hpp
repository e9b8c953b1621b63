// SPDX-License-Identifier: Apache-2.0
//
// GridPlan: everything that is settled about one grid before any of its tiles is built. Every run
// plans the same way, in two steps: the tiling (geometry alone), then the output grid with the
// mapping of input fragments onto its tiles.

#pragma once

#include <optional>
#include <string>

#include "assembly/OutputGrid.hpp"
#include "operation/RefragmentAndSplit.hpp"
#include "planning/FragmentMapping.hpp"

namespace LidarLib {

/// What a failed plan means for the grids that follow.
enum class PlanOutcome {
  Ready,
  SkipGrid,   ///< go on with the next grid
  SkipSlice,  ///< leave out the remaining grids of the slice
};

struct GridPlan {
  GridSurvey survey;
  TilingLayout layout;
  OutputGrid output;
  std::optional<Fiber::FragmentedUniformGrid3D> view;
  FragmentMapping mapping;

  std::uint64_t tileCount() const { return layout.nx * layout.ny * layout.nz; }
  /// The index of tile t of every per-tile table, x fastest.
  Fiber::MultiIndex<3> tileIndex(std::uint64_t t) const {
    return {{t % layout.nx, t / layout.nx % layout.ny, t / layout.nx / layout.ny}};
  }
};

/// Surveys an input grid and settles its tiling. Errors: appended to the operation's messages. A
/// grid with a fragment that cannot be read is refused as a whole.
PlanOutcome planTiling(RefragmentAndSplit& operation, Fiber::Grid& inputGrid, GridPlan& plan);

/// Builds the output grid and maps the input fragments onto its tiles. Errors: appended to the
/// operation's messages.
PlanOutcome planOutput(RefragmentAndSplit& operation, const Fiber::Grid& inputGrid,
                       const MemCore::StrongPtr<Fiber::Grid>& outputGrid, GridPlan& plan);

/// Replaces the output grid name "myGrid" by that of the first selected grid. Deliberate: later
/// grids then write under that first name too.
void settleOutputGridName(RefragmentAndSplit& operation, const std::string& inputGridName);

}  // namespace LidarLib
