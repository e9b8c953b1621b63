// SPDX-License-Identifier: Apache-2.0
//
// Point totals: where tiles do not overlap, no point may be lost or doubled.

#pragma once

#include <cstdint>

namespace LidarLib {

/// Warns on the console when the totals of a run without overlap differ. A NaN overlap counts as
/// none.
void comparePointCounts(const std::uint64_t& outputPoints, const std::uint64_t& inputPoints,
                        const double& normalizedOverlap);

}  // namespace LidarLib
