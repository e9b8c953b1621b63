// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/AttributeTable.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/Hdf5Attributes.hpp"
#include "datamodel/container/Hdf5Types.hpp"
#include "datamodel/container/Hdf5Walk.hpp"
#include "datamodel/container/StoredName.hpp"
#include "datamodel/container/ValueDatasets.hpp"

namespace Fiber::Container {

using MemCore::Attributes;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Values up to this size are attributes. The library's checksummed blocks take twice as much.
constexpr std::size_t kLargestAttribute = 2048;

/// Number of the attribute set that a stored name belongs to: what stands behind '#'; 0 without.
/// Empty: no number stands there.
std::optional<std::uint32_t> setNumber(std::string_view storedName) {
  const std::size_t mark = storedName.find('#');
  if (mark == std::string_view::npos) return 0;
  const std::string_view digits = storedName.substr(mark + 1);
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size() || number == 0) {
    return std::nullopt;
  }
  return number;
}

Outcome<void> sortIn(AttributeTable& table, const std::string& stored,
                     const MemCore::StrongPtr<MemCore::ChunkBase>& value) {
  const auto number = setNumber(stored);
  if (!number) return Failure{fmt::format("attribute {}: malformed name", stored)};
  const std::string name = originalName(std::string_view(stored).substr(0, stored.find('#')));
  (*number == 0 ? table.attributes : table.sets[*number]).setAttribute(name, value);
  return {};
}

/// Opens a group by a path of names, making those that are missing.
Outcome<GroupHandle> makeGroupPath(hid_t parent, const std::string& path) {
  auto group = findGroupPath(parent, ".");
  std::size_t start = 0;
  while (group.ok() && start < path.size()) {
    const std::size_t slash = std::min(path.find('/', start), path.size());
    const std::string name = path.substr(start, slash - start);
    start = slash + 1;
    if (H5Lexists(group->get(), name.c_str(), H5P_DEFAULT) > 0) {
      group = openGroup(group->get(), name);
    } else {
      group = ownHdf5<GroupHandle>(H5Gcreate2(group->get(), name.c_str(), linkCreation().get(),
                                              groupCreation().get(), H5P_DEFAULT),
                                   fmt::format("{}: cannot be made", path));
    }
  }
  return group;
}

Outcome<void> readLarge(const AttributePlace& place, std::uint64_t fileBytes,
                        AttributeTable& table) {
  const auto group = findGroupPath(place.group, place.largeGroup);
  if (!group.ok()) return group.failure();
  if (!group->ok()) return {};
  const auto names = childNames(group->get());
  if (!names.ok()) return names.failure();
  for (const std::string& stored : *names) {
    const auto value = readValueDataset(group->get(), stored, fileBytes);
    if (!value.ok()) return Failure{fmt::format("attribute {}", value.error())};
    if (auto done = sortIn(table, stored, *value); !done.ok()) return done;
  }
  return {};
}

}  // namespace

void addAttributes(StoredAttributes& stored, const Attributes& attributes,
                   std::span<const std::string_view> words, std::uint32_t set) {
  const std::string suffix = set == 0 ? std::string() : fmt::format("#{}", set);
  for (const auto& [name, value] : attributes.all()) {
    stored[storedName(name, words) + suffix] = value;
  }
}

Outcome<void> writeAttributes(const AttributePlace& place, const StoredAttributes& stored) {
  GroupHandle large;
  for (const auto& [name, value] : stored) {
    if (value->byteCount() <= kLargestAttribute) {
      if (auto done = writeAttribute(place.object, name, *value); !done.ok()) return done;
      continue;
    }
    if (!large.ok()) {
      auto made = makeGroupPath(place.group, place.largeGroup);
      if (!made.ok()) return made.failure();
      large = std::move(made).value();
    }
    const auto done = writeValueDataset(large.get(), name, *value);
    if (!done.ok()) return Failure{fmt::format("attribute {}", done.error())};
  }
  return large.close("attributes: cannot be closed");
}

Outcome<AttributeTable> readAttributes(const AttributePlace& place, std::uint64_t fileBytes) {
  const auto names = attributeNames(place.object);
  if (!names.ok()) return names.failure();
  AttributeTable table;
  for (const std::string& stored : *names) {
    const auto& words = place.words;
    if (std::find(words.begin(), words.end(), stored) != words.end()) continue;
    const auto value = readAttribute(place.object, stored, fileBytes);
    if (!value.ok()) return value.failure();
    if (auto done = sortIn(table, stored, *value); !done.ok()) return done.failure();
  }
  if (auto done = readLarge(place, fileBytes, table); !done.ok()) return done.failure();
  return table;
}

Outcome<void> writePropertyBits(hid_t object, std::uint64_t bits) {
  return bits == 0 ? Outcome<void>() : writeNumber(object, kPropertyBitsAttribute, bits);
}

Outcome<std::uint64_t> readPropertyBits(hid_t object) {
  if (!hasAttribute(object, kPropertyBitsAttribute)) return std::uint64_t{0};
  return readNumber<std::uint64_t>(object, kPropertyBitsAttribute);
}

}  // namespace Fiber::Container
