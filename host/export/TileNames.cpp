// SPDX-License-Identifier: Apache-2.0

#include "host/export/TileNames.hpp"

#include <fmt/format.h>

#include <cmath>

#include "datamodel/memcore/Text.hpp"
#include "host/NameRules.hpp"

namespace Host {

namespace {

constexpr const char* kPlaceholders = "{grid} {time} {i} {j} {k} {n} {xmin} {ymin} {zmin}";

/// A number below `count`, as wide as the largest of them.
std::string padded(std::uint64_t number, std::uint64_t count) {
  const std::size_t width = std::to_string(count == 0 ? 0 : count - 1).size();
  return fmt::format("{:0{}}", number, width);
}

/// The value of a placeholder; absent when it is unknown or the fragment has none.
std::optional<std::string> valueOf(const std::string& placeholder, const TileNameFacts& facts) {
  if (placeholder == "grid") return facts.grid;
  if (placeholder == "time") return MemCore::formatFixed(facts.time);
  if (placeholder == "n") return padded(facts.number, facts.count);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (placeholder == std::string(1, "ijk"[axis]) && facts.index) {
      const auto index = (*facts.index)[axis];
      return padded(index, facts.counts ? (*facts.counts)[axis] : index + 1);
    }
    if (placeholder == std::string(1, "xyz"[axis]) + "min" && facts.corner) {
      return fmt::format("{:.0f}", std::floor((*facts.corner)[axis]) + 0.0);
    }
  }
  return std::nullopt;
}

}  // namespace

std::string usualTileName(bool hasIndex) { return hasIndex ? "{grid}_{i}_{j}_{k}" : "{grid}_{n}"; }

Result<std::string> tileName(const std::string& nameTemplate, const TileNameFacts& facts) {
  std::string name;
  for (std::size_t at = 0; at < nameTemplate.size();) {
    const std::size_t end = nameTemplate.find('}', at);
    if (nameTemplate[at] != '{' || end == std::string::npos) {
      name += nameTemplate[at++];
      continue;
    }
    const std::string placeholder = nameTemplate.substr(at + 1, end - at - 1);
    const auto value = valueOf(placeholder, facts);
    if (!value) {
      return usageStop(fmt::format("--name: nothing is known for {{{}}}, expected some of {}",
                                   placeholder, kPlaceholders));
    }
    name += *value;
    at = end + 1;
  }
  const auto acceptable = checkGridName(name);
  if (!acceptable.ok()) return usageStop("--name: " + acceptable.error());
  return name;
}

}  // namespace Host
