// SPDX-License-Identifier: Apache-2.0
//
// BundleFacts: what can be told about a bundle's content without reading its points: grids, fields
// with type and range, fragments with size and box.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"

namespace Host {

struct FieldFacts {
  std::string name;
  std::string type;      ///< name of the element type; empty when no fragment tells
  std::size_t rank = 0;  ///< of a fragment's array; 0 when no fragment tells
  std::optional<Fiber::ValueRange> range;  ///< absent when not known of every fragment
};

struct FragmentFacts {
  std::string name;
  std::optional<Fiber::MultiIndex<3>> index;  ///< of a tile
  std::uint64_t pointCount = 0;
  MemCore::StrongPtr<Eagle::BoundingBox> box;  ///< empty when not known
  std::string file;  ///< another file that has the data, from the bundle's folder; empty: none
};

/// The attributes that a split leaves on a grid; absent where there are none.
struct TilingFacts {
  std::optional<std::array<double, 3>> fragmentLength;
  std::optional<std::array<std::uint64_t, 3>> dimensions;
  std::optional<double> overlap;
};

struct GridFacts {
  std::string name;
  double time = 0.0;
  std::uint64_t pointCount = 0;
  MemCore::StrongPtr<Eagle::BoundingBox> box;
  TilingFacts tiling;
  std::vector<FieldFacts> fields;
  std::vector<FragmentFacts> fragments;
};

/// How far to go for an answer.
struct FactOptions {
  bool computeRanges = false;  ///< read the data of fields and boxes that are not known
  std::string file;            ///< absolute path of the bundle, which linked files are told from
};

/// Facts of all grids in ascending order of time and name.
std::vector<GridFacts> gatherFacts(const Fiber::Bundle& bundle, const FactOptions& options);

}  // namespace Host
