// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/TileIndex.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace Formats {
namespace {

using Json = nlohmann::json;

CatalogTile someTile() {
  CatalogTile tile;
  tile.file = "a \"b\"\n.laz";
  tile.pointCount = 12;
  tile.minimum = {1, 2, 3};
  tile.maximum = {4, 5, 6.5};
  return tile;
}

TEST(TileIndex, FeatureTellsFileAndBox) {
  const Json feature = Json::parse(tileFeature(someTile(), {}));
  EXPECT_EQ(feature["type"], "Feature");
  EXPECT_TRUE(feature["geometry"].is_null());
  EXPECT_EQ(feature["properties"],
            Json::parse(R"({"file":"a \"b\"\n.laz","points":12,"xmin":1.0,"ymin":2.0,"zmin":3.0,
                            "xmax":4.0,"ymax":5.0,"zmax":6.5})"));
}

TEST(TileIndex, IndexIsToldWhereItIsKnown) {
  CatalogTile tile = someTile();
  tile.index = {7, 0, -2};
  const Json properties = Json::parse(tileFeature(tile, {}))["properties"];
  EXPECT_EQ(properties["i"], 7);
  EXPECT_EQ(properties["j"], 0);
  EXPECT_EQ(properties["k"], -2);
}

TEST(TileIndex, RingEndsWhereItBegins) {
  const Footprint footprint{{{{9, 48}, {9.5, 48}, {9.5, 49}, {9, 49}}}, 9, 48, 9.5, 49};
  const Json geometry = Json::parse(tileFeature(someTile(), footprint))["geometry"];
  EXPECT_EQ(geometry["type"], "Polygon");
  const Json ring = geometry["coordinates"][0];
  ASSERT_EQ(ring.size(), 5U);
  EXPECT_EQ(ring.front(), ring.back());
}

TEST(TileIndex, TileWithoutPointsHasNoBox) {
  CatalogTile tile = someTile();
  tile.pointCount = 0;
  EXPECT_FALSE(Json::parse(tileFeature(tile, {}))["properties"].contains("zmin"));
}

}  // namespace
}  // namespace Formats
