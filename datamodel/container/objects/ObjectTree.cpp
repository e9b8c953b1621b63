// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/ObjectTree.hpp"

#include <algorithm>

namespace Fiber::Container {

namespace {

/// The names of a path, without those that lead nowhere.
std::vector<std::string> namesOf(const std::string& path) {
  std::vector<std::string> names;
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t slash = std::min(path.find('/', start), path.size());
    std::string name = path.substr(start, slash - start);
    start = slash + 1;
    if (!name.empty() && name != ".") names.push_back(std::move(name));
  }
  return names;
}

}  // namespace

ObjectType ObjectType::number(ScalarKind kind) {
  return {Kind::kNumber, kind, static_cast<std::uint32_t>(scalarBytes(kind)), {}};
}

ObjectType ObjectType::numbers(ScalarKind kind, std::size_t count) {
  return {Kind::kNumbers, kind, static_cast<std::uint32_t>(scalarBytes(kind) * count), {}};
}

ObjectType ObjectType::text(std::size_t bytes) {
  return {Kind::kText,
          ScalarKind::UInt8,
          static_cast<std::uint32_t>(std::max<std::size_t>(bytes, 1)),
          {}};
}

ObjectType ObjectType::byte() { return {Kind::kByte, ScalarKind::UInt8, 1, {}}; }

bool ObjectType::operator==(const ObjectType& other) const {
  return kind == other.kind && scalar == other.scalar && bytes == other.bytes &&
         members == other.members;
}

const ObjectGroup* ObjectGroup::find(const std::string& path) const {
  const ObjectGroup* group = this;
  for (const std::string& name : namesOf(path)) {
    const auto found = group->groups.find(name);
    if (found == group->groups.end()) return nullptr;
    group = &found->second;
  }
  return group;
}

ObjectGroup& ObjectGroup::make(const std::string& path) {
  ObjectGroup* group = this;
  for (const std::string& name : namesOf(path)) group = &group->groups[name];
  return *group;
}

}  // namespace Fiber::Container
