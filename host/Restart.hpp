// SPDX-License-Identifier: Apache-2.0
//
// Restart: looks at what stands where a split wants to write, and decides: a fresh start, going on
// with the tiles of the same plan, or a refusal that leaves everything as it is.

#pragma once

#include "host/InputResolver.hpp"
#include "host/PlanFile.hpp"
#include "host/TileFolder.hpp"

namespace Host {

enum class StartKind {
  Fresh,    ///< nothing of an earlier run is there
  Resumed,  ///< tiles of the same plan are there and are kept
};

/// Errors: usage, when the input would be overwritten or deleted: it is the output itself, lies in
/// the folder of tiles, or is the bundle that links the tiles there.
Check checkInputIsSafe(const OutputPlace& place, const ResolvedInput& input);

/// Decides without touching anything. Errors: failed, for tiles of another plan or of an unknown
/// one, and for an output file that no plan accounts for.
Result<StartKind> judgeExisting(const OutputPlace& place, const PlanRecord& wanted);

/// Deletes the tiles, the plan and the output. Errors: something cannot be deleted.
Check deleteExisting(const OutputPlace& place);

}  // namespace Host
