// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/StacItem.hpp"

#include <algorithm>

#include "formats/catalog/CatalogJson.hpp"

namespace Formats {

namespace {

constexpr const char* kPointCloudExtension =
    "https://stac-extensions.github.io/pointcloud/v1.0.0/schema.json";
constexpr const char* kProjectionExtension =
    "https://stac-extensions.github.io/projection/v1.1.0/schema.json";

bool isCompressed(const CatalogTile& tile) { return tile.file.ends_with(".laz"); }

const char* textOf(NumberKind kind) {
  switch (kind) {
    case NumberKind::Signed:
      return "signed";
    case NumberKind::Floating:
      return "floating";
    case NumberKind::Unsigned:
      break;
  }
  return "unsigned";
}

CatalogJson schemasJson(const std::vector<CatalogDimension>& dimensions) {
  CatalogJson schemas = CatalogJson::array();
  for (const CatalogDimension& dimension : dimensions) {
    CatalogJson schema;
    schema["name"] = dimension.name;
    schema["size"] = dimension.bytes;
    schema["type"] = textOf(dimension.kind);
    schemas.push_back(std::move(schema));
  }
  return schemas;
}

/// Statistics of what is no dimension are left out: they must name its position.
CatalogJson statisticsJson(const CatalogTile& tile,
                           const std::vector<CatalogDimension>& dimensions) {
  CatalogJson all = CatalogJson::array();
  for (const DimensionStatistics& statistics : tile.statistics) {
    const auto found = std::find_if(
        dimensions.begin(), dimensions.end(),
        [&](const CatalogDimension& dimension) { return dimension.name == statistics.name; });
    if (found == dimensions.end()) continue;
    CatalogJson json;
    json["name"] = statistics.name;
    json["position"] = found - dimensions.begin();
    json["count"] = tile.pointCount;
    json["minimum"] = statistics.minimum;
    json["maximum"] = statistics.maximum;
    all.push_back(std::move(json));
  }
  return all;
}

CatalogJson propertiesJson(const CatalogTile& tile, const CatalogDescription& description,
                           const StacContext& context) {
  CatalogJson properties;
  properties["datetime"] = context.datetime;
  properties["pc:count"] = tile.pointCount;
  properties["pc:type"] = "lidar";
  properties["pc:encoding"] = isCompressed(tile) ? "LASzip" : "LAS";
  properties["pc:schemas"] = schemasJson(description.dimensions);
  if (CatalogJson all = statisticsJson(tile, description.dimensions); !all.empty()) {
    properties["pc:statistics"] = std::move(all);
  }
  properties["proj:epsg"] = context.epsg ? CatalogJson(*context.epsg) : CatalogJson();
  // Deliberate: an unknown system is an empty text, since programs that open such collections
  // expect a text.
  properties["proj:wkt2"] = context.wkt2;
  if (hasBox(tile)) {
    properties["proj:bbox"] = {tile.minimum[0], tile.minimum[1], tile.minimum[2],
                               tile.maximum[0], tile.maximum[1], tile.maximum[2]};
  }
  return properties;
}

/// Deliberate: the file's name as it stands, not percent-encoded: programs that open such
/// collections take it for a path.
CatalogJson assetsJson(const CatalogTile& tile) {
  CatalogJson data;
  data["href"] = "./" + tile.file;
  data["type"] = isCompressed(tile) ? "application/vnd.laszip" : "application/vnd.las";
  data["roles"] = CatalogJson::array({"data"});
  CatalogJson assets;
  assets["data"] = std::move(data);
  return assets;
}

}  // namespace

std::string stacItem(const CatalogTile& tile, const std::string& id,
                     const std::optional<Footprint>& footprint,
                     const CatalogDescription& description, const StacContext& context) {
  CatalogJson item;
  item["type"] = "Feature";
  item["stac_version"] = "1.0.0";
  item["stac_extensions"] = CatalogJson::array({kPointCloudExtension, kProjectionExtension});
  item["id"] = id;
  item["geometry"] = polygonJson(footprint);
  if (footprint) {
    item["bbox"] = {footprint->west, footprint->south, tile.minimum[2],
                    footprint->east, footprint->north, tile.maximum[2]};
  }
  item["properties"] = propertiesJson(tile, description, context);
  item["links"] = CatalogJson::array();
  item["assets"] = assetsJson(tile);
  return lineOf(item);
}

}  // namespace Formats
