// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/AttributeTable.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/StoredName.hpp"
#include "datamodel/container/StoredValue.hpp"

namespace Fiber::Container {

using MemCore::Attributes;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Values up to this size are attributes: object headers stay small.
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

Outcome<void> readLarge(const AttributeSource& source, AttributeTable& table) {
  const ObjectGroup* group = source.group.find(source.largeGroup);
  if (group == nullptr) return {};
  for (const auto& [stored, dataset] : group->datasets) {
    const auto within = [&stored = stored](const std::string& text) {
      return Failure{fmt::format("attribute {}: {}", stored, text)};
    };
    const auto value = source.file.checkedValue(dataset);
    if (!value.ok()) return within(value.error());
    const auto chunk = chunkOf(*value);
    if (!chunk.ok()) return within(chunk.error());
    if (auto done = sortIn(table, stored, *chunk); !done.ok()) return done;
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

Outcome<void> writeAttributes(OutputFile& output, const AttributeTarget& target,
                              const StoredAttributes& stored) {
  for (const auto& [name, chunk] : stored) {
    auto value = valueOf(*chunk);
    if (!value.ok()) return Failure{fmt::format("attribute {}: {}", name, value.error())};
    if (chunk->byteCount() <= kLargestAttribute) {
      target.values[name] = std::move(value).value();
      continue;
    }
    ObjectGroup& large = target.group.make(target.largeGroup);
    if (auto done = output.addDataset(large, name, std::move(value).value()); !done.ok()) {
      return done;
    }
  }
  return {};
}

Outcome<AttributeTable> readAttributes(const AttributeSource& source) {
  AttributeTable table;
  for (const auto& [stored, value] : source.values) {
    const auto& words = source.words;
    if (std::find(words.begin(), words.end(), stored) != words.end()) continue;
    const auto chunk = chunkOf(value);
    if (!chunk.ok()) return Failure{fmt::format("attribute {}: {}", stored, chunk.error())};
    if (auto done = sortIn(table, stored, *chunk); !done.ok()) return done.failure();
  }
  if (auto done = readLarge(source, table); !done.ok()) return done.failure();
  return table;
}

void writePropertyBits(ObjectValues& values, std::uint64_t bits) {
  if (bits != 0) setNumber(values, kPropertyBitsAttribute, bits);
}

Outcome<std::uint64_t> readPropertyBits(const ObjectValues& values) {
  if (!hasValue(values, kPropertyBitsAttribute)) return std::uint64_t{0};
  return numberIn<std::uint64_t>(values, kPropertyBitsAttribute);
}

}  // namespace Fiber::Container
