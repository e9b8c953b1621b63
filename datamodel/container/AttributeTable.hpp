// SPDX-License-Identifier: Apache-2.0
//
// The attribute tables of grids, fields and creators in the file. Values lie as attributes on the
// grid's group or the field's dataset; the few large ones as datasets in the group "attributes"
// beside. The attributes of creators stand with their field, in numbered sets: "<name>#<set>".

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "datamodel/container/ObjectFile.hpp"
#include "datamodel/container/OutputFile.hpp"
#include "datamodel/memcore/Attributes.hpp"

namespace Fiber::Container {

/// Values by stored name.
using StoredAttributes = std::map<std::string, MemCore::StrongPtr<MemCore::ChunkBase>>;

/// Where the attributes of one object are to be stored.
struct AttributeTarget {
  ObjectValues& values;    ///< of the object itself
  ObjectGroup& group;      ///< holds the group of large ones
  std::string largeGroup;  ///< its name, or names with '/' between
};

/// Where they were found.
struct AttributeSource {
  const ObjectFile& file;
  const ObjectValues& values;
  const ObjectGroup& group;
  std::string largeGroup;
  std::span<const std::string_view> words;  ///< the format's own attributes of such an object
};

/// Adds a table; `set` is the number of a creator's set, 0 for the object's own attributes.
void addAttributes(StoredAttributes& stored, const MemCore::Attributes& attributes,
                   std::span<const std::string_view> words, std::uint32_t set);

/// Writes all of them. Errors: "attribute <name>: ...".
MemCore::Outcome<void> writeAttributes(OutputFile& output, const AttributeTarget& target,
                                       const StoredAttributes& stored);

/// What is read back: the object's own attributes, and the sets by number.
struct AttributeTable {
  MemCore::Attributes attributes;
  std::map<std::uint32_t, MemCore::Attributes> sets;
};

/// Reads everything but the format's own attributes.
MemCore::Outcome<AttributeTable> readAttributes(const AttributeSource& source);

/// The number kept beside an object's attributes; not stored when it is 0.
void writePropertyBits(ObjectValues& values, std::uint64_t bits);
MemCore::Outcome<std::uint64_t> readPropertyBits(const ObjectValues& values);

}  // namespace Fiber::Container
