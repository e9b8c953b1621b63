// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/Catalog.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/formats/catalog/CatalogTestRecords.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {
namespace {

using Json = nlohmann::json;
using LidarLib::TestSupport::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Json jsonIn(const std::string& path) {
  std::ifstream stream(path);
  EXPECT_TRUE(stream.is_open()) << path;
  return Json::parse(stream);
}

CatalogTile tileNamed(const std::string& file) {
  CatalogTile tile;
  tile.file = file;
  tile.pointCount = 5;
  tile.minimum = {455583, 5427865, 90};
  tile.maximum = {455683, 5427965, 100};
  return tile;
}

CatalogDescription describing(const std::vector<std::string>& files) {
  CatalogDescription description;
  for (const std::string& file : files) description.tiles.push_back(tileNamed(file));
  description.system = CoordinateSystem{"", std::uint16_t{25832}, {}};
  description.datetime = "2023-06-14T00:00:00Z";
  return description;
}

std::vector<std::string> written(const TempDir& folder, const CatalogDescription& description) {
  const auto notes = writeCatalog(folder.path().string(), "all", description);
  EXPECT_TRUE(notes.ok()) << notes.error();
  return notes ? *notes : std::vector<std::string>();
}

std::vector<std::string> idsIn(const Json& collection) {
  std::vector<std::string> ids;
  for (const Json& feature : collection["features"]) ids.push_back(feature["id"]);
  return ids;
}

TEST(Catalog, ListsEveryTileInBothFiles) {
  const TempDir folder;
  EXPECT_THAT(written(folder, describing({"b.laz", "sub/a.laz"})), IsEmpty());
  const Json cloud = jsonIn(folder / "all.vpc");
  const Json index = jsonIn(folder / "all.geojson");
  EXPECT_EQ(cloud["type"], "FeatureCollection");
  EXPECT_EQ(index["type"], "FeatureCollection");
  EXPECT_THAT(idsIn(cloud), ElementsAre("b", "sub/a"));
  EXPECT_EQ(index["features"][1]["properties"]["file"], "sub/a.laz");
  EXPECT_EQ(index["features"][0]["geometry"], cloud["features"][0]["geometry"]);
  EXPECT_NEAR(cloud["features"][0]["bbox"][0].get<double>(), 8.4, 0.1);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2);
}

TEST(Catalog, SameTilesGiveTheSameBytes) {
  const TempDir first;
  const TempDir second;
  written(first, describing({"a.laz"}));
  written(second, describing({"a.laz"}));
  EXPECT_EQ(jsonIn(first / "all.vpc").dump(), jsonIn(second / "all.vpc").dump());
}

TEST(Catalog, WithoutTilesIsStillACollection) {
  const TempDir folder;
  EXPECT_THAT(written(folder, describing({})), IsEmpty());
  EXPECT_EQ(jsonIn(folder / "all.vpc")["features"], Json::array());
  EXPECT_EQ(jsonIn(folder / "all.geojson")["features"], Json::array());
}

TEST(Catalog, IdentifiersAreUnique) {
  const TempDir folder;
  written(folder, describing({"a.laz", "a.las", "b.c/d", ".laz"}));
  EXPECT_THAT(idsIn(jsonIn(folder / "all.vpc")), ElementsAre("a", "a.las", "b.c/d", ".laz"));
}

TEST(Catalog, UnknownSystemIsNotedAndLeavesNoOutlines) {
  const TempDir folder;
  CatalogDescription description = describing({"a.laz"});
  description.system.reset();
  EXPECT_THAT(written(folder, description),
              ElementsAre(folder / "all.vpc" +
                          ": the coordinate system is not known: there are no outlines"));
  EXPECT_TRUE(jsonIn(folder / "all.vpc")["features"][0]["geometry"].is_null());
  EXPECT_TRUE(jsonIn(folder / "all.geojson")["features"][0]["geometry"].is_null());
}

TEST(Catalog, TextThatCannotBeReadIsPassedOn) {
  const TempDir folder;
  CatalogDescription description = describing({"a.laz"});
  description.system = CoordinateSystem{"MYCRS[]", {}, {}};
  EXPECT_THAT(written(folder, description), ElementsAre(HasSubstr("not known to PROJ")));
  EXPECT_EQ(jsonIn(folder / "all.vpc")["features"][0]["properties"]["proj:wkt2"], "MYCRS[]");
}

TEST(Catalog, TilesWithoutOutlineAreCounted) {
  const TempDir folder;
  CatalogDescription description = describing({"a.laz", "b.laz", "empty.laz"});
  description.tiles[1].maximum[0] = 1e300;
  description.tiles[2].pointCount = 0;
  EXPECT_THAT(written(folder, description), ElementsAre(HasSubstr("1 of 3 tiles have no outline")));
  const Json features = jsonIn(folder / "all.vpc")["features"];
  EXPECT_FALSE(features[0]["geometry"].is_null());
  EXPECT_TRUE(features[1]["geometry"].is_null());
  EXPECT_TRUE(features[2]["geometry"].is_null());
}

TEST(Catalog, UnknownDateIsNoted) {
  const TempDir folder;
  CatalogDescription description = describing({"a.laz"});
  description.datetime.reset();
  EXPECT_THAT(written(folder, description), ElementsAre(HasSubstr("1970-01-01T00:00:00Z")));
  EXPECT_EQ(jsonIn(folder / "all.vpc")["features"][0]["properties"]["datetime"],
            "1970-01-01T00:00:00Z");
}

TEST(Catalog, NamesOfAnyKindAreWritten) {
  const TempDir folder;
  const std::string odd = "a \"b\" \\ %20 # \xc3\xa4\n.laz";
  EXPECT_THAT(written(folder, describing({odd})), IsEmpty());
  EXPECT_EQ(jsonIn(folder / "all.vpc")["features"][0]["assets"]["data"]["href"], "./" + odd);
  EXPECT_THAT(written(folder, describing({"\xff.laz"})), ElementsAre(HasSubstr("is no UTF-8")));
  EXPECT_EQ(jsonIn(folder / "all.vpc")["features"].size(), 1U);
}

TEST(Catalog, NamesThatCannotBeUsedAreRefused) {
  const TempDir folder;
  const std::string path = folder.path().string();
  EXPECT_THAT(writeCatalog(path, "a/b", describing({})).error(), HasSubstr("found \"a/b\""));
  EXPECT_FALSE(writeCatalog(path, "", describing({})).ok());
  EXPECT_THAT(writeCatalog(path, "all", describing({"/etc/a.laz"})).error(),
              HasSubstr("found \"/etc/a.laz\", expected a path from the catalog's folder"));
  EXPECT_FALSE(writeCatalog(path, "all", describing({""})).ok());
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(Catalog, FolderThatDoesNotExistIsAFailure) {
  const TempDir folder;
  EXPECT_EQ(writeCatalog(folder / "none", "all", describing({})).error(),
            folder / "none/all.vpc" + ": cannot be created, No such file or directory");
}

}  // namespace
}  // namespace Formats
