// SPDX-License-Identifier: Apache-2.0

#include "formats/export/TextExport.hpp"

#include <gmock/gmock.h>
#include <omp.h>

#include "tests/formats/export/ExportTestGrids.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;

std::string textOf(const std::string& path) {
  const auto bytes = readFile(path);
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Two fragments with the fields "A" and "B".
class TextExport : public testing::Test {
 protected:
  TextExport() {
    cloud_.fragment({{1, 2.5, -3}, {4, 5, 6}}).field<std::uint8_t>("A", {7, 8});
    cloud_.field<double>("B", {0.25, -1});
    cloud_.fragment({{7, 8, 9}}).field<std::uint8_t>("A", {9}).field<double>("B", {1e300});
  }

  MemCore::Outcome<PointFileResult> exportTo(const std::string& name,
                                             const std::vector<std::size_t>& fields = {},
                                             const PointChooser& choose = everyPoint(),
                                             const ExportListener& listener = {},
                                             bool skipsEmpty = false) {
    const ExportSource source = sourceOf(cloud_);
    TextExportJob job;
    job.path = folder_ / name;
    job.source = &source;
    job.fragments = source.fragments;
    job.fields = fields;
    job.choose = choose;
    job.listener = listener;
    job.skipsEmpty = skipsEmpty;
    return exportText(job);
  }

  const TempDir folder_;
  CloudBuilder cloud_;
};

}  // namespace

TEST_F(TextExport, RowsComeInTheOrderOfTheFragments) {
  const auto result = exportTo("a.csv", {0, 1});
  ASSERT_TRUE(result.ok()) << result.error();
  EXPECT_EQ(result->points, 3U);
  EXPECT_TRUE(result->isWritten);
  EXPECT_EQ(textOf(folder_ / "a.csv"), "x,y,z,A,B\n1,2.5,-3,7,0.25\n4,5,6,8,-1\n7,8,9,9,1e+300\n");
}

TEST_F(TextExport, FieldsComeAsTheyAreNamed) {
  ASSERT_TRUE(exportTo("a.csv", {1}).ok());
  EXPECT_THAT(textOf(folder_ / "a.csv"), testing::StartsWith("x,y,z,B\n1,2.5,-3,0.25\n"));
}

TEST_F(TextExport, OnlyChosenPointsGo) {
  ASSERT_TRUE(exportTo("a.xyz", {}, onlyRows({0})).ok());
  EXPECT_EQ(textOf(folder_ / "a.xyz"), "1 2.5 -3\n7 8 9\n");
}

TEST_F(TextExport, FileWithoutPointsIsMadeUnlessUnwanted) {
  ASSERT_TRUE(exportTo("a.csv", {}, onlyRows({})).ok());
  EXPECT_EQ(textOf(folder_ / "a.csv"), "x,y,z\n");
  const auto result = exportTo("b.csv", {}, onlyRows({}), {}, true);
  ASSERT_TRUE(result.ok()) << result.error();
  EXPECT_FALSE(result->isWritten);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "b.csv"));
}

TEST_F(TextExport, ListenerEndsItWithoutATrace) {
  const auto result = exportTo("a.csv", {}, everyPoint(), [](std::size_t) { return false; });
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error(), kExportStopped);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(TextExport, FragmentThatLacksAFieldIsNamed) {
  cloud_.fragment({{0, 0, 0}});
  const auto result = exportTo("a.csv", {0});
  ASSERT_FALSE(result.ok());
  EXPECT_THAT(result.error(), HasSubstr("a.csv: fragment 2 lacks a field"));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(TextExport, EveryNumberOfThreadsWritesTheSame) {
  CloudBuilder large;
  for (int fragment = 0; fragment < 3; ++fragment) {
    std::vector<Point> points;
    for (int i = 0; i < 45000; ++i) points.push_back({0.1 * i, 7.0 * fragment, -0.5 * i});
    large.fragment(points);
  }
  cloud_ = large;
  const int former = omp_get_max_threads();
  for (const int threads : {1, 2, 3}) {
    omp_set_num_threads(threads);
    ASSERT_TRUE(exportTo(std::to_string(threads) + ".csv").ok());
  }
  omp_set_num_threads(former);
  const auto one = readFile(folder_ / "1.csv");
  EXPECT_GT(one.size(), 135000U * 6);
  EXPECT_EQ(readFile(folder_ / "2.csv"), one);
  EXPECT_EQ(readFile(folder_ / "3.csv"), one);
}

}  // namespace Formats
