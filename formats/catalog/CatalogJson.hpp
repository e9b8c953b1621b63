// SPDX-License-Identifier: Apache-2.0
//
// CatalogJson: the parts of GeoJSON that both files of a catalog use.

#pragma once

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "formats/catalog/CatalogDescription.hpp"
#include "formats/catalog/FootprintProjector.hpp"

namespace Formats {

using CatalogJson = nlohmann::ordered_json;

/// Does the tile's box say where its points are?
inline bool hasBox(const CatalogTile& tile) {
  if (tile.pointCount == 0) return false;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (!std::isfinite(tile.minimum[axis]) || !std::isfinite(tile.maximum[axis])) return false;
  }
  return true;
}

/// A polygon whose ring ends where it begins; null without a footprint.
inline CatalogJson polygonJson(const std::optional<Footprint>& footprint) {
  if (!footprint) return nullptr;
  CatalogJson ring = CatalogJson::array();
  for (const auto& corner : footprint->corners) ring.push_back(corner);
  ring.push_back(footprint->corners.front());
  CatalogJson polygon;
  polygon["type"] = "Polygon";
  polygon["coordinates"] = CatalogJson::array({ring});
  return polygon;
}

/// On one line. Bytes that are no UTF-8 are replaced: JSON cannot say them.
inline std::string lineOf(const CatalogJson& json) {
  return json.dump(-1, ' ', false, CatalogJson::error_handler_t::replace);
}

}  // namespace Formats
