// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextCloudReader.hpp"

#include <gmock/gmock.h>

#include <clocale>
#include <limits>

#include "formats/text/GzipText.hpp"
#include "tests/formats/text/TextTestFiles.hpp"

namespace Formats::TextTests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TextCloudOptions withColumns(const std::vector<std::string>& columns) {
  TextCloudOptions options;
  options.columns = columns;
  return options;
}

}  // namespace

TEST(TextCloudReader, ColumnsBecomePositionsAndTypedFields) {
  const TempDir folder;
  const TestCloud cloud = readCloud(
      {writeText(folder / "a.csv",
                 "x,y,z,Intensity,t,quality,station\n1,2,3,700,12.5,-3,0.5\n4,5,6,8,13,4,1\n")});
  EXPECT_EQ(cloud.summary.points, 2U);
  EXPECT_EQ(valuesOf<Eagle::PhysicalSpace::point>(*cloud.field("Positions")),
            (Points{{1, 2, 3}, {4, 5, 6}}));
  EXPECT_THAT(valuesOf<std::uint16_t>(*cloud.field("Intensity")), ElementsAre(700, 8));
  EXPECT_THAT(valuesOf<double>(*cloud.field("GpsTime")), ElementsAre(12.5, 13));
  EXPECT_THAT(valuesOf<std::int32_t>(*cloud.field("quality")), ElementsAre(-3, 4));
  EXPECT_THAT(valuesOf<double>(*cloud.field("station")), ElementsAre(0.5, 1));
}

TEST(TextCloudReader, GivenNamesPickAndOrderTheColumns) {
  const TempDir folder;
  const std::string path = writeText(folder / "a.txt", "9 1 A1 2 3\n8 4 B2 5 6\n");
  const TestCloud cloud = readCloud({path}, withColumns({"class", "x", "-", "y", "z"}));
  EXPECT_THAT(valuesOf<std::uint8_t>(*cloud.field("Classification")), ElementsAre(9, 8));
  EXPECT_EQ(valuesOf<Eagle::PhysicalSpace::point>(*cloud.field("Positions")),
            (Points{{1, 2, 3}, {4, 5, 6}}));
}

TEST(TextCloudReader, FilesOfOneCloudAreJoinedByName) {
  const TempDir folder;
  const TestCloud cloud = readCloud({writeText(folder / "a.csv", "x,y,z,q\n1,2,3,4\n"),
                                     writeText(folder / "b.txt", "z q x y p\n3 0.5 1 2 7\n"),
                                     writeText(folder / "c.xyz", "5 6 7\n")});
  EXPECT_EQ(cloud.summary.points, 3U);
  EXPECT_THAT(valuesOf<double>(*cloud.field("q")), ElementsAre(4, 0.5, 0));
  EXPECT_THAT(valuesOf<std::int32_t>(*cloud.field("p")), ElementsAre(0, 7, 0));
  EXPECT_TRUE(cloud.hasNote("a.csv: has no field p: zeros are supplied"));
  EXPECT_TRUE(cloud.hasNote("c.xyz: has no fields q, p: zeros are supplied"));
}

TEST(TextCloudReader, GzipFilesAreReadLikeOthers) {
  const TempDir folder;
  const TestCloud cloud =
      readCloud({writeText(folder / "a.xyz.gz", *gzipMember("1 2 3\n") + *gzipMember("4 5 6\n"))});
  EXPECT_EQ(valuesOf<Eagle::PhysicalSpace::point>(*cloud.field("Positions")),
            (Points{{1, 2, 3}, {4, 5, 6}}));
}

TEST(TextCloudReader, DataOutliveTheCacheAndTheNamesOfTheFiles) {
  const CacheBudget budget(0);
  TestCloud cloud;
  {
    const TempDir folder;
    cloud = readCloud({writeText(folder / "a.xyz", "1 2 3\n"),
                       writeText(folder / "b.xyz.gz", *gzipMember("4 5 6\n"))});
  }
  EXPECT_EQ(valuesOf<Eagle::PhysicalSpace::point>(*cloud.field("Positions")),
            (Points{{1, 2, 3}, {4, 5, 6}}));
}

TEST(TextCloudReader, DecimalPointIsOneInEveryLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "C"}) {
    if (std::setlocale(LC_ALL, name) == nullptr) continue;
    const TempDir folder;
    const TestCloud cloud = readCloud({writeText(folder / "a.xyz", "1.5 2.25 1e-3\n")});
    EXPECT_EQ(valuesOf<Eagle::PhysicalSpace::point>(*cloud.field("Positions")),
              (Points{{1.5, 2.25, 0.001}}))
        << name;
  }
  std::setlocale(LC_ALL, before.c_str());
}

TEST(TextCloudReader, FilesWithoutPointsAreNoted) {
  const TempDir folder;
  const TestCloud cloud =
      readCloud({writeText(folder / "a.xyz", ""), writeText(folder / "b.csv", "x,y,z\n")});
  EXPECT_EQ(cloud.summary.points, 0U);
  EXPECT_EQ(cloud.fragmentCount(), 0U);
  EXPECT_TRUE(cloud.hasNote("a.xyz: has no points"));
  EXPECT_TRUE(cloud.hasNote("b.csv: has no points"));
  EXPECT_TRUE(cloud.hasNote("grid points: no file has any points"));
}

TEST(TextCloudReader, OptionsThatCannotBeUsedAreRefused) {
  const TempDir folder;
  const std::string file = writeText(folder / "a.xyz", "1 2 3\n");
  EXPECT_THAT(failureOf({}), HasSubstr("point cloud: no files given"));
  TextCloudOptions options;
  options.cloud.gridName = "a/b";
  EXPECT_THAT(failureOf({file}, options), HasSubstr("grid name: cannot be used"));
  EXPECT_THAT(failureOf({file}, withColumns({"x", "y"})), HasSubstr("columns: no column for z"));
  EXPECT_THAT(failureOf({folder / "missing.xyz"}), HasSubstr("missing.xyz: cannot be opened"));
}

TEST(TextCloudReader, FaultsAreNamedWithFileAndLine) {
  EXPECT_EQ(failureOfText("1 2 3\n1 2 3 4\n"),
            "a.xyz:2: wrong number of columns, found 4, expected 3");
  EXPECT_EQ(failureOfText("1 2 3\r\n\r\n1 2 abc\r\n"),
            "a.xyz:3: column 3 (z): no number, found \"abc\"");
  EXPECT_EQ(failureOfText("a b c\n1 2 3\n"),
            "a.xyz: no column for x, found \"a b c\", expected one of each of x, y and z");
  EXPECT_EQ(failureOfText("x y z\nx y z\n"), "a.xyz:2: column 1 (x): no number, found \"x\"");
}

TEST(TextCloudReader, TooManyFragmentsAreRefused) {
  const TempDir folder;
  std::string header = "x y z";
  std::string row = "1 2 3";
  for (int i = 0; i < 1000; ++i) {
    header += " q" + std::to_string(i);
    row += " 4";
  }
  std::string text = header + "\n";
  for (int i = 0; i < 9000; ++i) text += row + "\n";
  TextCloudOptions options;
  options.cloud.fragmentPoints = 1;
  EXPECT_THAT(failureOf({writeText(folder / "a.xyz", text)}, options),
              HasSubstr("point cloud: too many fragments for 1000 fields, found "));
}

}  // namespace Formats::TextTests
