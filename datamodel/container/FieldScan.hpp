// SPDX-License-Identifier: Apache-2.0
//
// What a field's dataset says of the field: element type, extents, attributes. Requires Hdf5Lock
// to be held.

#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/Hdf5Handle.hpp"

namespace Fiber::Container {

/// Reads the field stored as the dataset `name` of a group. Errors: without the name in front.
MemCore::Outcome<StoredField> scanField(hid_t group, const std::string& name,
                                        std::uint64_t fileBytes);

/// The attributes of an object that belong to the data model: those of the object itself, and the
/// numbered sets of creators, in ascending order of number.
struct AttributeTable {
  MemCore::Attributes attributes;
  std::map<std::uint32_t, MemCore::Attributes> sets;
};

/// Reads all attributes but those named by a word of the format.
MemCore::Outcome<AttributeTable> readAttributeTable(hid_t object,
                                                    std::span<const std::string_view> words,
                                                    std::uint64_t fileBytes);

/// The number kept beside an object's properties; 0 when it has none.
MemCore::Outcome<std::uint64_t> readPropertyBits(hid_t object);

}  // namespace Fiber::Container
