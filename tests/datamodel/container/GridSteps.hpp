// SPDX-License-Identifier: Apache-2.0
//
// Short steps of tests about coordinates on a grid: such points, the hint of their grid, and how a
// file stores them.

#pragma once

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/fiber/GridPoints.hpp"
#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/datamodel/container/ModelCompare.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace Fiber::Container {

inline constexpr const char* kPositionsPath =
    "/0/points/skeleton_3_0/StandardCartesianChart3D/Positions";

/// Random points of a grid that is the same for all axes.
std::vector<LidarLib::TestSupport::Point> gridPoints(std::size_t count, double scale, double offset,
                                                     std::uint64_t seed);

/// Says in the properties of the positions which grid they are on.
void setHint(LidarLib::TestSupport::CloudBuilder& cloud, const CoordinateGrid& grid);

/// The class of the stored positions' numbers.
H5T_class_t storedClass(const std::string& file);

/// Fails the test unless the file holds what the bundle does.
void expectRoundTrip(const BundlePtr& bundle, const std::string& file);

}  // namespace Fiber::Container
