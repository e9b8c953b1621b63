// SPDX-License-Identifier: Apache-2.0
//
// TextReport: results in words, aligned, for people. Paths below the working directory are told
// relative to it by the caller (see Output).

#pragma once

#include <string>
#include <vector>

#include "host/Reports.hpp"

namespace Host {

/// What a split of these grids means: box, tiles, lengths.
std::string planText(const SplitPlan& plan, const TilingOptions& tiling);

/// What came of a split, and what to try next.
std::string splitText(const SplitReport& report);

/// What files hold. Not more than a screenful of fragments per grid, unless all are wanted.
std::string showText(const ShowReport& report, bool allFragments);

std::string linkText(const LinkReport& report);
std::string verifyText(const std::vector<VerifyReport>& reports);
std::string importText(const ImportReport& report);
std::string synthText(const SynthReport& report);

}  // namespace Host
