// SPDX-License-Identifier: Apache-2.0
//
// SourceOrder: the flag --keep-order: every point carries the number of its file and its number in
// that file (see formats/cloud/SourceOrder.hpp), through every filter.

#pragma once

#include "host/GridSelection.hpp"
#include "host/Options.hpp"

namespace Host {

/// The filters with the fields of the order among those to take; as they are when all are taken.
FilterOptions withSourceOrder(FilterOptions filters);

/// Whether all selected grids tell the order of their points, which a bundle cannot be given any
/// more. Errors: usage, naming the first grid that does not.
Check checkSourceOrder(const std::vector<SelectedGrid>& grids);

}  // namespace Host
