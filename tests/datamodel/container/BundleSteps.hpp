// SPDX-License-Identifier: Apache-2.0
//
// Short steps of container tests: storage options, saving, and the fields of a loaded bundle.

#pragma once

#include <string>

#include "datamodel/container/RepresentationEncoder.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace Fiber::Container {

/// Options for a save that does not wait for the disk.
MemCore::StrongPtr<StorageTransformations> stored(StorageKind kind, bool linkFragments = true);

/// Saves; a failure fails the test.
void saveTo(const std::string& file, const BundlePtr& bundle, StorageKind kind = StorageKind::Grid,
            bool linkFragments = true);

/// Saves in batches of these sizes, as often as the writer asks for it; how often that was.
int writeInBatches(const BundlePtr& bundle, const std::string& file, StorageKind kind,
                   const BatchSizes& sizes);

/// A field of the only grid's vertices in the standard chart; empty when there is none.
MemCore::StrongPtr<Field> fieldOf(const Bundle& bundle, const std::string& name);

/// The creator of a field's k-th fragment.
CreatorHandle creatorOf(const Bundle& bundle, const std::string& field, std::size_t k = 0);

}  // namespace Fiber::Container
