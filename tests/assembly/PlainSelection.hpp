// SPDX-License-Identifier: Apache-2.0
//
// Point selection as plain as it can be written: the judge of the fast one. Clouds for both.

#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "assembly/PointSelection.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace LidarLib::TestSupport {

using Index3 = Fiber::MultiIndex<3>;

/// Indices of the points inside, point by point, axis by axis.
std::vector<unsigned int> selectPlainly(const std::vector<Point>& points,
                                        const Eagle::BoundingBox& box, const Index3& index);

/// A position array in memory.
MemCore::StrongPtr<PositionArray> positionsOf(const std::vector<Point>& points);

/// Elements of an index list; fails the test when the list is absent.
std::vector<unsigned int> elementsOf(const MemCore::StrongPtr<Fiber::IndexList>& list);

/// A wandering line of points, as a scanner delivers them; every other cloud is salted with
/// coordinates that lie exactly on the faces of `box`, with duplicates, NaN, infinities, signed
/// zeros and denormals.
std::vector<Point> nastyCloud(std::mt19937_64& random, std::size_t count,
                              const Eagle::BoundingBox& box);

/// A box whose corners come from the same family of values, in any order.
Eagle::BoundingBox nastyBox(std::mt19937_64& random);

/// Indices 0 and not 0 on every axis.
Index3 someIndex(std::mt19937_64& random);

}  // namespace LidarLib::TestSupport
