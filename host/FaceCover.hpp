// SPDX-License-Identifier: Apache-2.0
//
// FaceCover: raises tile lengths where rounding leaves the last face of a cloud outside all tiles:
// extent / length can round down to a whole number of tiles whose end stays one unit in the last
// place short of the cloud's maximum, and the points on that face would be lost.

#pragma once

#include <functional>

#include "host/SplitPlan.hpp"

namespace Host {

/// Plans the grids anew with the operation's present lengths.
using PlanAgain = std::function<std::vector<GridForecast>()>;

/// Raises the operation's lengths by the smallest steps that cover every cloud, plans again and
/// says so in the plan's notes (in its details for lengths that were not given). Where estimates
/// differ from grid to grid no one length can be given; what then stays short becomes a warning.
void coverLastFaces(SplitPlan& plan, LidarLib::RefragmentAndSplit& operation,
                    const PlanAgain& planAgain);

}  // namespace Host
