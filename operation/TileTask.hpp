// SPDX-License-Identifier: Apache-2.0
//
// TileTask: one tile of a split run as an independent, idempotent task over a shared plan. Any
// thread may build any tile at any time; a tile whose file exists is done.

#pragma once

#include <atomic>
#include <cstdint>

#include "operation/GridPlan.hpp"
#include "operation/TileFiles.hpp"

namespace LidarLib {

/// What all tiles of one grid share. Everything but the progress counter is only read while tiles
/// are built.
struct SplitContext {
  RefragmentAndSplit& operation;
  MemCore::StrongPtr<Fiber::Grid> inputGrid;
  double time = 0.0;
  const GridPlan& plan;
  TileFileScheme files;
  /// Read, then stored as that value plus one. Deliberate: no atomic increment and no lock; only
  /// the display depends on it, so repeated or skipped numbers are acceptable.
  std::atomic<int> progressCounter = 0;
};

/// Builds tile t and writes its file, unless it has no data or is there already. Errors: appended
/// to the operation's messages; nothing half-written stays behind. Never throws.
/// Threads: any number at once on one context.
void splitTile(SplitContext& context, std::uint64_t t);

}  // namespace LidarLib
