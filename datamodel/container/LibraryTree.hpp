// SPDX-License-Identifier: Apache-2.0
//
// The objects of a file as the HDF5 library gives them. Requires Hdf5Lock to be held.

#pragma once

#include <cstdint>

#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/container/objects/ObjectTree.hpp"

namespace Fiber::Container {

/// Everything below a file's root that hard links lead to. `fileBytes` bounds what is believed.
/// Errors: "<name>: ..." when an object cannot be read, or a group is reached twice.
MemCore::Outcome<ObjectGroup> readLibraryTree(hid_t file, std::uint64_t fileBytes);

}  // namespace Fiber::Container
