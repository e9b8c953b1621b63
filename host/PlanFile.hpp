// SPDX-License-Identifier: Apache-2.0
//
// PlanFile: the small file plan.json beside the tiles that says which plan they belong to. A tile
// file's existence is all that a run asks about, so tiles of another input, length or filter would
// be mixed with new ones; comparing plans prevents it.

#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/InputResolver.hpp"
#include "host/Options.hpp"
#include "host/SplitPlan.hpp"

namespace Host {

/// Everything that shapes a tile's content, as labelled texts in a fixed order. Two runs whose
/// records are equal write the same tiles.
struct PlanRecord {
  std::string output;  ///< absolute path of the linking bundle; not compared
  std::vector<std::pair<std::string, std::string>> values;
};

/// Describes a plan. Errors: an input file that cannot be looked up.
Result<PlanRecord> describePlan(const SplitOptions& options, const ResolvedInput& input,
                                const SplitPlan& plan, const std::string& outputFile);

/// The first difference for the reader of a message; empty when there is none.
std::string planDifference(const PlanRecord& existing, const PlanRecord& wanted);

/// Path of the plan file of a folder of tiles.
std::string planFilePath(const std::string& tileFolder);

/// Reads a plan file. Errors: there is none, or it is none.
MemCore::Outcome<PlanRecord> readPlanFile(const std::string& path);

/// Writes a plan file in one step. Errors: it cannot be written; nothing is left behind.
MemCore::Outcome<void> writePlanFile(const std::string& path, const PlanRecord& record);

}  // namespace Host
