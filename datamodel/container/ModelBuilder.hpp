// SPDX-License-Identifier: Apache-2.0
//
// From the description of a bundle file to a bundle: slices, grids, fields and fragments, with a
// creator for each piece of data that will read it from the file when it is asked for.

#pragma once

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace Fiber::Container {

/// Adds everything described to a bundle. The creators of the fields are made from the description
/// when they are asked for. Errors: "<path>: ..." when the bundle holds a grid of that name and
/// time already; the bundle then has some of the grids.
MemCore::Outcome<void> buildModel(const std::shared_ptr<const StoredBundle>& stored,
                                  Bundle& bundle);

}  // namespace Fiber::Container
