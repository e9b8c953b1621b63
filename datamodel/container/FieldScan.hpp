// SPDX-License-Identifier: Apache-2.0
//
// What a field's dataset says of the field: element type, extents, attributes.

#pragma once

#include <string>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/ObjectFile.hpp"

namespace Fiber::Container {

/// Reads the field stored as the dataset `name` of a group, which must have it. Errors: without the
/// name in front.
MemCore::Outcome<StoredField> scanField(const ObjectFile& file, const ObjectGroup& group,
                                        const std::string& name);

}  // namespace Fiber::Container
