// SPDX-License-Identifier: Apache-2.0
//
// What a field's dataset says of the field: element type, extents, attributes. Requires Hdf5Lock
// to be held.

#pragma once

#include <cstdint>
#include <string>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/Hdf5Handle.hpp"

namespace Fiber::Container {

/// Reads the field stored as the dataset `name` of a group. Errors: without the name in front.
MemCore::Outcome<StoredField> scanField(hid_t group, const std::string& name,
                                        std::uint64_t fileBytes);

}  // namespace Fiber::Container
