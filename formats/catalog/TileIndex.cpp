// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/TileIndex.hpp"

#include "formats/catalog/CatalogJson.hpp"

namespace Formats {

std::string tileFeature(const CatalogTile& tile, const std::optional<Footprint>& footprint) {
  CatalogJson properties;
  properties["file"] = tile.file;
  properties["points"] = tile.pointCount;
  constexpr std::array kLowest{"xmin", "ymin", "zmin"};
  constexpr std::array kHighest{"xmax", "ymax", "zmax"};
  constexpr std::array kPlaces{"i", "j", "k"};
  for (std::size_t axis = 0; axis < 3 && hasBox(tile); ++axis) {
    properties[kLowest[axis]] = tile.minimum[axis];
    properties[kHighest[axis]] = tile.maximum[axis];
  }
  for (std::size_t axis = 0; axis < 3 && tile.index; ++axis) {
    properties[kPlaces[axis]] = (*tile.index)[axis];
  }
  CatalogJson feature;
  feature["type"] = "Feature";
  feature["geometry"] = polygonJson(footprint);
  feature["properties"] = std::move(properties);
  return lineOf(feature);
}

}  // namespace Formats
