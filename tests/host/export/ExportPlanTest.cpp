// SPDX-License-Identifier: Apache-2.0

#include "host/export/ExportPlan.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "planning/TilingAttributes.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/TempDir.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// A grid of two fragments with three points.
CloudBuilder twoFragments() {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}, {1, 1, 1}}).fragment({{2, 2, 2}});
  return cloud;
}

class ExportPlanTest : public testing::Test {
 protected:
  Result<ExportPlan> plan(const CloudBuilder& cloud) const {
    return planExport(*selectGrids(*cloud.bundle(), {}), options_);
  }
  ExportPlan planned(const CloudBuilder& cloud) const {
    auto made = plan(cloud);
    EXPECT_TRUE(made.ok()) << made.stop().text;
    return made.ok() ? std::move(*made) : ExportPlan();
  }
  Stop refusalOf(const CloudBuilder& cloud) const {
    const auto made = plan(cloud);
    EXPECT_FALSE(made.ok());
    return made.ok() ? Stop() : made.stop();
  }
  std::vector<std::string> namesOf(const ExportPlan& plan) const {
    std::vector<std::string> names;
    for (const PlannedFile& file : plan.files) {
      names.push_back(fs::relative(file.path, folder_.path()).string());
    }
    return names;
  }
  void touch(const std::string& name) const { std::ofstream(folder_ / name).flush(); }

  const TempDir folder_;
  ExportOptions options_;
};

TEST_F(ExportPlanTest, SingleFileGetsAllFragments) {
  options_.output = folder_ / "sub/out.las";
  const ExportPlan plan = planned(twoFragments());
  ASSERT_EQ(plan.files.size(), 1U);
  EXPECT_EQ(plan.files[0].path, folder_ / "sub/out.las");
  EXPECT_EQ(plan.files[0].kind, PointFileKind::Las);
  EXPECT_EQ(plan.files[0].fragments.size(), 2U);
  EXPECT_TRUE(plan.files[0].restoresOrder);
  EXPECT_TRUE(plan.folder.empty());
}

TEST_F(ExportPlanTest, SingleFileTakesNoSeveralGrids) {
  CloudBuilder cloud = twoFragments();
  cloud.grid("other").fragment({{0, 0, 0}});
  options_.output = folder_ / "out.laz";
  const Stop stop = refusalOf(cloud);
  EXPECT_EQ(stop.code, ExitCode::Usage);
  EXPECT_THAT(stop.text, HasSubstr("out.laz is one file, but there are 2 grids; choose one"));
}

TEST_F(ExportPlanTest, SingleFileHasNoUseForNamesAndDivisions) {
  options_.output = folder_ / "out.laz";
  options_.name = "{n}";
  EXPECT_EQ(refusalOf(twoFragments()).code, ExitCode::Usage);
  options_.name.clear();
  options_.division = FileDivision::Source;
  EXPECT_EQ(refusalOf(twoFragments()).code, ExitCode::Usage);
}

TEST_F(ExportPlanTest, ExistingSingleFileNeedsForce) {
  options_.output = folder_ / "out.laz";
  touch("out.laz");
  EXPECT_THAT(refusalOf(twoFragments()).text, HasSubstr("exists already; --force replaces it"));
  options_.force = true;
  EXPECT_EQ(planned(twoFragments()).files.size(), 1U);
}

TEST_F(ExportPlanTest, FolderGetsAFileForEachFragment) {
  options_.output = (folder_ / "tiles") + "/";
  const ExportPlan plan = planned(twoFragments());
  EXPECT_THAT(namesOf(plan), ElementsAre("tiles/points_0.laz", "tiles/points_1.laz"));
  EXPECT_EQ(plan.folder, folder_ / "tiles");
  EXPECT_TRUE(fs::is_directory(plan.folder));
  EXPECT_EQ(plan.files[1].fragments.size(), 1U);
  EXPECT_FALSE(plan.files[0].restoresOrder);
  EXPECT_EQ(plan.files[0].source, plan.files[1].source);
}

TEST_F(ExportPlanTest, FileTypeSettlesEnding) {
  options_.output = folder_ / "tiles";
  options_.fileType = "las";
  const ExportPlan plan = planned(twoFragments());
  EXPECT_THAT(namesOf(plan), ElementsAre("tiles/points_0.las", "tiles/points_1.las"));
  EXPECT_EQ(plan.files[0].kind, PointFileKind::Las);
}

TEST_F(ExportPlanTest, NamesThatClashAreAUsageMistake) {
  options_.output = folder_ / "tiles";
  options_.name = "tile";
  const Stop stop = refusalOf(twoFragments());
  EXPECT_EQ(stop.code, ExitCode::Usage);
  EXPECT_THAT(stop.text, HasSubstr("tiles/tile.laz: two parts would get this name; --name tells"));
  EXPECT_FALSE(fs::exists(folder_ / "tiles"));
}

TEST_F(ExportPlanTest, GridsOfOneFolderAreToldApartByTheirNames) {
  CloudBuilder cloud = twoFragments();
  cloud.grid("other").fragment({{0, 0, 0}});
  options_.output = folder_ / "tiles";
  EXPECT_EQ(planned(cloud).files.size(), 3U);
  options_.name = "{n}";
  EXPECT_EQ(refusalOf(cloud).code, ExitCode::Usage);
}

TEST_F(ExportPlanTest, AnyExistingFileNeedsForce) {
  options_.output = folder_ / "tiles";
  fs::create_directory(folder_ / "tiles");
  touch("tiles/points_1.laz");
  const Stop stop = refusalOf(twoFragments());
  EXPECT_EQ(stop.code, ExitCode::Failed);
  EXPECT_EQ(stop.text, (folder_ / "tiles/points_1.laz") + ": exists already; --force replaces it");
  options_.force = true;
  EXPECT_EQ(planned(twoFragments()).files.size(), 2U);
}

TEST_F(ExportPlanTest, FileInThePlaceOfTheFolderIsAFailure) {
  touch("tiles");
  options_.output = folder_ / "tiles";
  options_.force = true;
  EXPECT_THAT(refusalOf(twoFragments()).text, HasSubstr("tiles: is no folder"));
}

TEST_F(ExportPlanTest, NoPointsMakeNoFolder) {
  CloudBuilder cloud;
  cloud.fragment({});
  options_.output = folder_ / "tiles";
  EXPECT_THAT(refusalOf(cloud).text, HasSubstr("points: has no points"));
  EXPECT_FALSE(fs::exists(folder_ / "tiles"));
  options_.output = folder_ / "out.las";
  EXPECT_EQ(planned(cloud).files.size(), 1U);
}

TEST_F(ExportPlanTest, OverlapOfUnknownTilingIsAFailureUnlessKept) {
  CloudBuilder cloud = twoFragments();
  cloud.gridAttribute<double>(LidarLib::kOverlapAttribute, {0.1});
  options_.output = folder_ / "out.las";
  EXPECT_THAT(refusalOf(cloud).text, HasSubstr("--overlap keep"));
  options_.overlap = OverlapRule::Keep;
  EXPECT_FALSE(planned(cloud).files[0].restoresOrder);
}

/// Two points of two files, as a bundle made with --keep-order tells them.
class SourcePlanTest : public ExportPlanTest {
 protected:
  SourcePlanTest() {
    options_.output = folder_ / "out";
    options_.division = FileDivision::Source;
    cloud_.fragment({{0, 0, 0}, {1, 1, 1}}).field<std::uint32_t>("SourceFile", {0, 1});
    cloud_.field<std::uint64_t>("SourceIndex", {0, 0});
  }

  /// Gives the grid the attributes of two LAS files of these names.
  void nameFiles(const std::string& lines, std::uint8_t pointFormat = 0) {
    Formats::LasHeader header;
    header.pointFormat = pointFormat;
    header.recordBytes = Formats::standardRecordBytes(pointFormat);
    const auto bytes = Formats::serialiseLasHeader(header);
    std::vector<std::uint8_t> packed;
    for (const std::byte byte : bytes) packed.push_back(std::to_integer<std::uint8_t>(byte));
    cloud_.gridAttribute("LasHeaders", packed);
    cloud_.gridAttribute<std::uint32_t>("LasFiles", {0, 0, 0, 0, 0, 0});
    cloud_.gridAttribute<std::uint8_t>("LasRecords", {});
    MemCore::setTextAttribute(cloud_.currentGrid()->attributes(), "LasFileNames", lines);
  }

  CloudBuilder cloud_;
};

TEST_F(SourcePlanTest, EveryFileGetsItsNameBack) {
  nameFiles("a.laz\nb.LAS");
  const ExportPlan plan = planned(cloud_);
  EXPECT_THAT(namesOf(plan), ElementsAre("out/a.laz", "out/b.LAS"));
  EXPECT_EQ(plan.files[0].kind, PointFileKind::Laz);
  EXPECT_EQ(plan.files[1].kind, PointFileKind::Las);
  EXPECT_TRUE(plan.files[0].restoresOrder);
}

TEST_F(SourcePlanTest, FilesOfOneNameAreNumbered) {
  nameFiles("a.laz\na.laz");
  EXPECT_THAT(namesOf(planned(cloud_)), ElementsAre("out/a.laz", "out/a_2.laz"));
}

TEST_F(SourcePlanTest, WaveformsOfTwoFilesThatWouldBecomeOneAreAUsageMistake) {
  nameFiles("a.las\na.laz", 4);
  cloud_.field<std::uint16_t>("FWFLength", {1, 1});
  cloud_.waveforms<std::uint16_t>("Waveforms", 1, {5, 6});
  const Stop stop = refusalOf(cloud_);
  EXPECT_EQ(stop.code, ExitCode::Usage);
  EXPECT_THAT(stop.text, HasSubstr("out/a.wdp: two files would get these waveforms"));
  options_.waveforms = WaveformChoice::Internal;
  EXPECT_EQ(planned(cloud_).files.size(), 2U);
}

TEST_F(ExportPlanTest, WaveformsOfAnotherFileNeedForce) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::uint16_t>("FWFLength", {1});
  cloud.waveforms<std::uint16_t>("Waveforms", 1, {5});
  options_.output = folder_ / "out.las";
  touch("out.wdp");
  EXPECT_THAT(refusalOf(cloud).text, HasSubstr("out.wdp: exists already; --force replaces it"));
  options_.waveforms = WaveformChoice::None;
  EXPECT_EQ(planned(cloud).files.size(), 1U);
}

TEST_F(SourcePlanTest, NamesThatLeadOutOfTheFolderAreRefused) {
  for (const char* name : {"../evil.las", "/tmp/evil.las", "..", "sub/x.las", "plan.json"}) {
    nameFiles(std::string("a.laz\n") + name);
    const Stop stop = refusalOf(cloud_);
    EXPECT_EQ(stop.code, ExitCode::Failed) << name;
    EXPECT_EQ(stop.text, std::string(name) + ": cannot be the name of a file to write");
  }
  EXPECT_FALSE(fs::exists(folder_ / "out"));
}

}  // namespace
}  // namespace Host
