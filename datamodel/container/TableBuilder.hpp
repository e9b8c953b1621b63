// SPDX-License-Identifier: Apache-2.0
//
// The fragment table of a planned representation, made when all its data have passed through: by
// then every creator knows box and range, and the encoder knows grids and checksums.

#pragma once

#include <string>

#include "datamodel/container/BundlePlan.hpp"
#include "datamodel/container/FragmentTableStorage.hpp"
#include "datamodel/container/RepresentationEncoder.hpp"

namespace Fiber::Container {

/// Settles what the table looks like, and sorts the attributes of the creators into the sets of
/// each planned field that its columns refer to; its rows are made when they are written. Links are
/// relative to the folder of `file`. Requires: plan and encoder outlive the table.
TableToWrite planTable(PlannedRepresentation& plan, const RepresentationEncoder& encoder,
                       const std::string& file);

/// The one grid of all coordinates in this file's dataset; empty when there are none, or several.
std::optional<CoordinateGrid> sharedGrid(const PlannedRepresentation& plan,
                                         const RepresentationEncoder& encoder);

}  // namespace Fiber::Container
