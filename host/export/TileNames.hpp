// SPDX-License-Identifier: Apache-2.0
//
// TileNames: the names of exported tile files, from a template such as "{grid}_{i}_{j}_{k}".

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "host/Result.hpp"

namespace Host {

/// What a name can be made of.
struct TileNameFacts {
  std::string grid;
  double time = 0.0;
  std::uint64_t number = 0;                            ///< {n}, of the fragment, from 0
  std::uint64_t count = 0;                             ///< of fragments
  std::optional<std::array<std::uint64_t, 3>> index;   ///< {i} {j} {k}; absent: no tile
  std::optional<std::array<std::uint64_t, 3>> counts;  ///< tiles per axis
  std::optional<std::array<double, 3>> corner;         ///< {xmin} {ymin} {zmin}
};

/// The template that is used when none is given: by tile index, or by number for other fragments.
std::string usualTileName(bool hasIndex);

/// The name for a tile, without ending. Numbers are padded with zeros to the width of the largest
/// of their axis; corners are rounded down. Errors (usage): an unknown placeholder or one that the
/// fragment has no value for, a name that is empty or leads elsewhere.
Result<std::string> tileName(const std::string& nameTemplate, const TileNameFacts& facts);

}  // namespace Host
