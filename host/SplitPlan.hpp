// SPDX-License-Identifier: Apache-2.0
//
// SplitPlan: what a split of the selected grids would produce. It asks the operation's own planning
// and adds what that deliberately leaves to its host: a length for a wished number of points per
// tile, a length that loses no point to rounding, points outside a given box, and judgement of the
// density estimate. Nothing is written.

#pragma once

#include <string>
#include <vector>

#include "host/GridSelection.hpp"
#include "host/Options.hpp"
#include "operation/RefragmentAndSplit.hpp"
#include "planning/TilingLayout.hpp"

namespace Host {

/// What is to be expected of one grid.
struct GridForecast {
  SelectedGrid source;
  std::uint64_t pointCount = 0;
  std::uint64_t outsidePoints = 0;  ///< in no tile, because of --start or --end
  LidarLib::TilingLayout layout;
  std::string failure;  ///< why the grid cannot be split; empty when it can

  /// Points per square unit of the cloud's box; 0 for a box without area.
  double boxDensity() const;
  std::uint64_t tileCount() const { return layout.nx * layout.ny * layout.nz; }
};

struct SplitPlan {
  std::vector<GridForecast> grids;
  std::vector<std::string> details;   ///< what was settled on the user's behalf
  std::vector<std::string> notes;     ///< what differs from what the user asked for
  std::vector<std::string> warnings;  ///< what the user should reconsider

  /// The first reason why a grid cannot be split; empty when all can.
  std::string failure() const;
};

/// Gives the user's parameters and filters to the operation.
void applyOptions(const TilingOptions& tiling, const FilterOptions& filters,
                  LidarLib::RefragmentAndSplit& operation);

/// Plans all grids and sets the operation's fragment length where it has to be another one than
/// the user's. The console's messages on the way are left out: a run repeats them.
/// Requires: applyOptions was called.
SplitPlan makePlan(const std::vector<SelectedGrid>& grids, const TilingOptions& tiling,
                   LidarLib::RefragmentAndSplit& operation);

/// Why so many tiles cannot be planned in so many bytes of memory; empty when they can.
std::string memoryShortage(std::uint64_t tileCount, std::uint64_t memoryBytes);

}  // namespace Host
