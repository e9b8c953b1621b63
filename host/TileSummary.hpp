// SPDX-License-Identifier: Apache-2.0
//
// TileSummary: what became of the tiles and points of a split, put together from what is known: the
// plan, the files before and after, the messages of the run and the facts of the linked bundle.

#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"
#include "host/RunListener.hpp"
#include "host/SplitPlan.hpp"

namespace Host {

/// Texts of a run's message list, by what they are about.
struct RunMessages {
  std::uint64_t interrupted = 0;          ///< tiles that were left for another run
  std::vector<std::string> tileFailures;  ///< one per tile that could not be written
  std::vector<std::string> failures;      ///< about a grid or the output file
};

/// Sorts a message list. A text that begins with `tilePrefix` is about a tile.
RunMessages sortMessages(const std::list<std::string>& messages, const std::string& tilePrefix);

/// Counts of tiles over all grids.
struct TileSummary {
  std::uint64_t total = 0;
  std::uint64_t withData = 0;  ///< tiles that some input fragment touches
  std::uint64_t written = 0;
  std::uint64_t kept = 0;     ///< there from an earlier run
  std::uint64_t dropped = 0;  ///< too few points
  std::uint64_t failed = 0;
  std::uint64_t pending = 0;  ///< not reached because the run was cancelled
};

/// What the counts are made from.
struct TileEvidence {
  std::uint64_t withData = 0;
  std::uint64_t filesBefore = 0;
  std::uint64_t filesAfter = 0;
};

TileSummary summariseTiles(const SplitPlan& plan, const TileEvidence& evidence,
                           const RunMessages& messages, const std::vector<DroppedTiles>& dropped);

/// Points of one grid that went in and came out.
struct PointBalance {
  std::string grid;
  double time = 0.0;
  std::uint64_t input = 0;
  std::uint64_t outside = 0;  ///< outside a given box
  std::uint64_t dropped = 0;  ///< in tiles with too few points
  std::uint64_t output = 0;

  /// Points that should have come out of a split without overlap.
  std::uint64_t expected() const { return input - outside - dropped; }
};

/// Balances of all grids. `output` is the linked bundle; empty stands for one without points.
std::vector<PointBalance> balancePoints(const SplitPlan& plan,
                                        const std::vector<DroppedTiles>& dropped,
                                        const Fiber::BundlePtr& output,
                                        const std::string& outputGrid);

}  // namespace Host
