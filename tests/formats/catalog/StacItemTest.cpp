// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/StacItem.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace Formats {
namespace {

using Json = nlohmann::json;

CatalogTile someTile() {
  CatalogTile tile;
  tile.file = "tiles/a.laz";
  tile.pointCount = 12;
  tile.minimum = {1, 2, 3};
  tile.maximum = {4, 5, 6};
  tile.statistics = {{"Z", 3, 6}, {"Nothing", 0, 1}};
  return tile;
}

CatalogDescription someDescription() {
  CatalogDescription description;
  description.dimensions = {{"X", NumberKind::Floating, 8},
                            {"Z", NumberKind::Floating, 8},
                            {"ScanAngle", NumberKind::Signed, 2},
                            {"Red", NumberKind::Unsigned, 2}};
  return description;
}

Footprint someFootprint() {
  return {{{{9, 48}, {9.5, 48}, {9.5, 49}, {9, 49}}}, 8.9, 47.9, 9.6, 49.1};
}

Json itemOf(const CatalogTile& tile, const std::optional<Footprint>& footprint,
            const StacContext& context) {
  return Json::parse(stacItem(tile, "a", footprint, someDescription(), context));
}

const StacContext kKnown{"PROJCRS[...]", 25832, "2023-06-14T00:00:00Z"};

TEST(StacItem, HasEveryRequiredMember) {
  const Json item = itemOf(someTile(), someFootprint(), kKnown);
  EXPECT_EQ(item["type"], "Feature");
  EXPECT_EQ(item["stac_version"], "1.0.0");
  EXPECT_EQ(item["id"], "a");
  EXPECT_EQ(item["stac_extensions"].size(), 2U);
  EXPECT_EQ(item["links"], Json::array());
  EXPECT_EQ(item["properties"]["datetime"], "2023-06-14T00:00:00Z");
  EXPECT_EQ(item["bbox"], Json({8.9, 47.9, 3, 9.6, 49.1, 6}));
  EXPECT_EQ(item["geometry"], Json::parse(R"({"type":"Polygon","coordinates":
      [[[9.0,48.0],[9.5,48.0],[9.5,49.0],[9.0,49.0],[9.0,48.0]]]})"));
  EXPECT_EQ(item["assets"]["data"]["href"], "./tiles/a.laz");
}

TEST(StacItem, TellsPointsAndProjection) {
  const Json properties = itemOf(someTile(), someFootprint(), kKnown)["properties"];
  EXPECT_EQ(properties["pc:count"], 12);
  EXPECT_EQ(properties["pc:type"], "lidar");
  EXPECT_EQ(properties["pc:encoding"], "LASzip");
  EXPECT_EQ(properties["pc:schemas"].size(), 4U);
  EXPECT_EQ(properties["pc:schemas"][2],
            Json::parse(R"({"name":"ScanAngle","size":2,"type":"signed"})"));
  EXPECT_EQ(properties["pc:statistics"], Json::parse(R"([{"name":"Z","position":1,"count":12,
      "minimum":3.0,"maximum":6.0}])"));
  EXPECT_EQ(properties["proj:epsg"], 25832);
  EXPECT_EQ(properties["proj:wkt2"], "PROJCRS[...]");
  EXPECT_EQ(properties["proj:bbox"], Json({1, 2, 3, 4, 5, 6}));
}

TEST(StacItem, WithoutFootprintThereIsNoBox) {
  const Json item = itemOf(someTile(), {}, {"", {}, kUnknownDatetime});
  EXPECT_TRUE(item["geometry"].is_null());
  EXPECT_FALSE(item.contains("bbox"));
  EXPECT_TRUE(item["properties"]["proj:epsg"].is_null());
  EXPECT_EQ(item["properties"]["proj:wkt2"], "");
  EXPECT_EQ(item["properties"]["proj:bbox"].size(), 6U);
}

TEST(StacItem, PlainFilesAreSaidToBe) {
  CatalogTile tile = someTile();
  tile.file = "a.las";
  const Json item = itemOf(tile, {}, kKnown);
  EXPECT_EQ(item["properties"]["pc:encoding"], "LAS");
  EXPECT_EQ(item["assets"]["data"]["type"], "application/vnd.las");
}

TEST(StacItem, TileWithoutPointsHasNoBoxOfItsOwn) {
  CatalogTile tile = someTile();
  tile.pointCount = 0;
  EXPECT_FALSE(itemOf(tile, {}, kKnown)["properties"].contains("proj:bbox"));
}

}  // namespace
}  // namespace Formats
