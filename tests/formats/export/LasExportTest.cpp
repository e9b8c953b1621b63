// SPDX-License-Identifier: Apache-2.0

#include "formats/export/LasExport.hpp"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <omp.h>

#include <algorithm>
#include <map>
#include <numeric>

#include "tests/formats/export/ExportTestGrids.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;

/// Fragments of whole coordinates; UserData numbers the points.
void addFragment(CloudBuilder& cloud, const std::vector<Point>& points,
                 const std::vector<std::uint8_t>& numbers) {
  cloud.fragment(points).field("UserData", numbers);
}

std::vector<std::string> entriesOf(const TempDir& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

/// A cloud of two fragments of three points in all.
class LasExport : public testing::Test {
 protected:
  LasExport() {
    addFragment(cloud_, {{1, 2, 3}, {4, 5, 6}}, {10, 11});
    addFragment(cloud_, {{-7, 8, 9}}, {12});
  }

  const TempDir folder_;
  CloudBuilder cloud_;
};

}  // namespace

TEST_F(LasExport, WritesFragmentsInTheirOrder) {
  const auto result = exportSourceTo(folder_ / "a.las", sourceOf(cloud_));
  ASSERT_TRUE(result.ok()) << result.error();
  EXPECT_EQ(result->points, 3U);
  EXPECT_TRUE(result->isWritten);
  EXPECT_THAT(result->minimum, ElementsAre(-7, 2, 3));
  EXPECT_THAT(result->maximum, ElementsAre(4, 8, 9));
  const auto file = LasFile::open(folder_ / "a.las");
  ASSERT_TRUE(file.ok()) << file.error();
  EXPECT_THAT(fieldValues<std::uint8_t>(**file, "UserData"), ElementsAre(10, 11, 12));
  EXPECT_THAT(entriesOf(folder_), ElementsAre("a.las"));
}

/// Many chunks, of which most begin and end within fragments, and several batches.
class LasExportOfManyChunks : public testing::Test {
 protected:
  LasExportOfManyChunks() {
    for (const std::size_t count : {110000U, 70001U, 300000U, 5U, 120000U}) {
      std::vector<Point> points(count);
      std::vector<std::uint8_t> numbers(count);
      for (std::size_t i = 0; i < count; ++i, ++total_) {
        const std::size_t row = total_ / 1009;
        points[i] = {static_cast<double>(total_ % 1009), static_cast<double>(row), 0};
        numbers[i] = static_cast<std::uint8_t>(total_ % 251);
      }
      addFragment(cloud_, points, numbers);
    }
  }
  ~LasExportOfManyChunks() override { omp_set_num_threads(formerThreads_); }

  std::vector<std::byte> bytesOfExport(const std::string& path, int threads) {
    omp_set_num_threads(threads);
    const auto result = exportSourceTo(path, sourceOf(cloud_));
    EXPECT_TRUE(result.ok() && result->points == total_);
    return readFile(path);
  }

  const TempDir folder_;
  CloudBuilder cloud_;
  std::size_t total_ = 0;

 private:
  const int formerThreads_ = omp_get_max_threads();
};

TEST_F(LasExportOfManyChunks, KeepsEveryPointInItsPlace) {
  for (const char* name : {"a.las", "a.laz"}) {
    const std::string path = folder_ / name;
    const auto expected = bytesOfExport(path, 1);
    const auto file = LasFile::open(path);
    ASSERT_TRUE(file.ok()) << file.error();
    const auto numbers = fieldValues<std::uint8_t>(**file, "UserData");
    ASSERT_EQ(numbers.size(), total_);
    for (std::size_t i = 0; i < total_; ++i) ASSERT_EQ(numbers[i], i % 251) << i;
    for (const int threads : {2, 3}) EXPECT_TRUE(bytesOfExport(path, threads) == expected);
  }
}

// What is left over of a chunk when the last fragments give no points; there may be nothing left.
TEST_F(LasExportOfManyChunks, EndsWithTheLastChosenPoint) {
  const ExportSource source = sourceOf(cloud_);
  for (const std::size_t kept : {0U, 1U, 50000U, 100000U, 100001U, 180001U, 480001U, 480003U}) {
    std::map<std::string, std::size_t> taken;
    std::size_t left = kept;
    for (const ExportFragment& fragment : source.fragments) {
      taken[fragment.id->name()] = std::min<std::size_t>(left, fragment.pointCount);
      left -= taken[fragment.id->name()];
    }
    ExportWishes wishes;
    wishes.choose = [&](const FragmentColumns& fragment) {
      PointChoice choice;
      choice.takesAll = false;
      choice.rows.resize(taken.at(fragment.fragment->id->name()));
      std::iota(choice.rows.begin(), choice.rows.end(), 0U);
      return choice;
    };
    for (const int threads : {1, 2}) {
      omp_set_num_threads(threads);
      for (const char* name : {"a.las", "a.laz"}) {
        const auto file = exported(folder_ / name, source, wishes);
        ASSERT_TRUE(file);
        const auto numbers = fieldValues<std::uint8_t>(*file, "UserData");
        ASSERT_EQ(numbers.size(), kept);
        for (std::size_t i = 0; i < kept; ++i) ASSERT_EQ(numbers[i], i % 251) << i;
      }
    }
  }
}

TEST_F(LasExportOfManyChunks, IsTheSameWithinAParallelRegion) {
  const auto expected = bytesOfExport(folder_ / "a.laz", 1);
  const ExportSource source = sourceOf(cloud_);
  std::array<bool, 2> isWritten{};
#pragma omp parallel for num_threads(2)
  for (std::size_t i = 0; i < isWritten.size(); ++i) {
    isWritten[i] = exportSourceTo(folder_ / fmt::format("{}.laz", i), source).ok();
  }
  for (std::size_t i = 0; i < isWritten.size(); ++i) {
    ASSERT_TRUE(isWritten[i]);
    EXPECT_TRUE(readFile(folder_ / fmt::format("{}.laz", i)) == expected);
  }
}

TEST_F(LasExport, WritesOnlyChosenPoints) {
  ExportWishes wishes;
  wishes.choose = onlyRows({0});
  const auto file = exported(folder_ / "a.las", sourceOf(cloud_), wishes);
  EXPECT_THAT(fieldValues<std::uint8_t>(*file, "UserData"), ElementsAre(10, 12));
}

TEST_F(LasExport, ChooserMayLookAtFieldsThatAreWrittenToo) {
  const ExportSource source = sourceOf(cloud_);
  ExportWishes wishes;
  wishes.choosesBy = {*source.numberOf("UserData")};
  wishes.choose = [](const FragmentColumns& fragment) {
    const auto numbers = MemCore::chunkCast<std::uint8_t>(fragment.fields[0]->elements());
    PointChoice choice;
    choice.takesAll = false;
    for (std::uint32_t i = 0; i < numbers->size(); ++i) {
      if ((*numbers)[i] > 10) choice.rows.push_back(i);
    }
    return choice;
  };
  const auto file = exported(folder_ / "a.las", source, wishes);
  EXPECT_THAT(fieldValues<std::uint8_t>(*file, "UserData"), ElementsAre(11, 12));
}

TEST_F(LasExport, FileWithoutPointsIsMadeUnlessUnwanted) {
  ExportWishes wishes;
  wishes.choose = onlyRows({});
  const auto file = exported(folder_ / "a.las", sourceOf(cloud_), wishes);
  EXPECT_EQ(file->pointCount(), 0U);
  wishes.skipsEmpty = true;
  const auto result = exportSourceTo(folder_ / "b.las", sourceOf(cloud_), wishes);
  ASSERT_TRUE(result.ok()) << result.error();
  EXPECT_FALSE(result->isWritten);
  EXPECT_THAT(entriesOf(folder_), ElementsAre("a.las"));
}

TEST_F(LasExport, ListenerEndsItWithoutATrace) {
  ExportWishes wishes;
  std::vector<std::size_t> heard;
  wishes.listener = [&](std::size_t done) {
    heard.push_back(done);
    return false;
  };
  const auto result = exportSourceTo(folder_ / "a.las", sourceOf(cloud_), wishes);
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error(), kExportStopped);
  EXPECT_THAT(heard, ElementsAre(2));
  EXPECT_THAT(entriesOf(folder_), ElementsAre());
}

TEST_F(LasExport, FailureLeavesTheOlderFileAlone) {
  writeFile(folder_ / "a.las", std::vector<std::byte>(3));
  addFragment(cloud_, {{0.5, 0, 0}}, {13});
  ExportWishes wishes;
  wishes.las.scale = {1, 1, 1};
  const auto result = exportSourceTo(folder_ / "a.las", sourceOf(cloud_), wishes);
  ASSERT_FALSE(result.ok());
  EXPECT_THAT(
      result.error(),
      HasSubstr(
          "a.las: positions: coordinate not exact (a lossy export rounds it), found x = 0.5"));
  EXPECT_EQ(readFile(folder_ / "a.las").size(), 3U);
  EXPECT_THAT(entriesOf(folder_), ElementsAre("a.las"));
}

TEST_F(LasExport, ValueThatDoesNotFitNamesFileFieldAndFragment) {
  cloud_.field<std::uint8_t>("ReturnNumber", {9});
  ExportWishes wishes;
  wishes.las.pointFormat = 1;
  const auto result = exportSourceTo(folder_ / "a.las", sourceOf(cloud_), wishes);
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(
      result.error(),
      (folder_ / "a.las") +
          ": field ReturnNumber: fragment 1: point format 1 cannot hold 9 (a lossy export takes "
          "the nearest)");
  wishes.las.isLossy = true;
  const auto lossy = exportSourceTo(folder_ / "a.las", sourceOf(cloud_), wishes);
  ASSERT_TRUE(lossy.ok()) << lossy.error();
  EXPECT_THAT(lossy->lossyFields, ElementsAre("ReturnNumber"));
}

TEST_F(LasExport, RoundedPositionsAreTold) {
  addFragment(cloud_, {{0.25, 0, 0}}, {13});
  ExportWishes wishes;
  wishes.las.scale = {1, 1, 1};
  wishes.las.isLossy = true;
  const auto result = exportSourceTo(folder_ / "a.las", sourceOf(cloud_), wishes);
  ASSERT_TRUE(result.ok()) << result.error();
  EXPECT_THAT(result->lossyFields, ElementsAre("Positions"));
  EXPECT_EQ(result->points, 4U);
}

TEST_F(LasExport, FieldsOfSeveralComponentsComeApart) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}, {1, 1, 1}}).waveforms<float>("Normal", 3, {1, 2, 3, 4, 5, 6});
  const auto file = exported(folder_ / "a.las", sourceOf(cloud));
  EXPECT_THAT(fieldValues<float>(*file, "Normal[0]"), ElementsAre(1, 4));
  EXPECT_THAT(fieldValues<float>(*file, "Normal[2]"), ElementsAre(3, 6));
}

TEST_F(LasExport, ExtraBytesOfMoreThanADescriptorCountsStayReadable) {
  LasWriterOptions options = lasOptions(0);
  options.header.recordBytes = static_cast<std::uint16_t>(options.header.recordBytes + 600);
  const auto original = writeLas(folder_ / "a.las", options, surveyRecords(0, 600, 5, 1));
  const TestCloud cloud = readCloud({original});
  const auto numbers = cloud.grid->getCartesianRepresentation("")->findField("UserData");
  ExportSource source = sourceOf(*cloud.grid);
  // A new field makes descriptors of all.
  source.fields.push_back({"Zz", ElementType::UInt8, 1, numbers});
  const auto file = exported(folder_ / "b.las", source);
  EXPECT_EQ(fieldValues<std::uint8_t>(*file, "Zz"), fieldValues<std::uint8_t>(*file, "UserData"));
}

TEST_F(LasExport, FormerOrderIsRestoredAcrossFilesWhereItIsWanted) {
  CloudBuilder cloud;
  addFragment(cloud, {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, {5, 3, 1});
  cloud.field<std::uint32_t>("SourceFile", {1, 0, 0})
      .field<std::uint64_t>("SourceIndex", {0, 9, 4});
  addFragment(cloud, {{3, 3, 3}, {4, 4, 4}}, {2, 4});
  cloud.field<std::uint32_t>("SourceFile", {0, 0}).field<std::uint64_t>("SourceIndex", {5, 12});
  const auto ordered = exported(folder_ / "a.las", sourceOf(cloud));
  EXPECT_THAT(fieldValues<std::uint8_t>(*ordered, "UserData"), ElementsAre(1, 2, 3, 4, 5));
  ExportWishes wishes;
  wishes.restoresOrder = false;
  const auto unordered = exported(folder_ / "b.las", sourceOf(cloud), wishes);
  EXPECT_THAT(fieldValues<std::uint8_t>(*unordered, "UserData"), ElementsAre(5, 3, 1, 2, 4));
}

TEST_F(LasExport, FilesOfOneCloudBecomeOne) {
  const auto first = writeSurvey(folder_ / "a.las", 1, 700, 1);
  const auto second = writeSurvey(folder_ / "b.las", 1, 300, 2);
  const TestCloud cloud = readCloud({first, second});
  const auto file = exported(folder_ / "c.las", sourceOf(*cloud.grid));
  auto expected = readAllRecords(**LasFile::open(first));
  const auto rest = readAllRecords(**LasFile::open(second));
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_EQ(readAllRecords(*file), expected);
}

TEST_F(LasExport, FolderThatIsMissingIsNamed) {
  const auto result = exportSourceTo(folder_ / "none/a.las", sourceOf(cloud_));
  ASSERT_FALSE(result.ok());
  EXPECT_THAT(result.error(), HasSubstr("none/a.las"));
}

using LasExportData = LasData;

TEST_F(LasExportData, RealFilesComeBackRecordByRecord) {
  const TempDir folder;
  for (const char* name : {"small/extrabytes.las", "small/1_4_w_evlr.las", "small/simple1_1.las",
                           "fwf/100429_152240_2535pt_UTM.las", "small/no-points.las"}) {
    const auto original = open(name);
    const TestCloud cloud = readCloud({path(name)});
    const auto file = exported(folder / "a.las", sourceOf(*cloud.grid));
    ASSERT_TRUE(file) << name;
    EXPECT_EQ(readAllRecords(*file), readAllRecords(*original)) << name;
    EXPECT_EQ(file->header().scale, original->header().scale) << name;
    ASSERT_EQ(file->vlrs().size(), original->vlrs().size()) << name;
    for (std::size_t i = 0; i < file->vlrs().size(); ++i) {
      EXPECT_EQ(file->vlrs()[i].payload, original->vlrs()[i].payload) << name;
    }
  }
}

}  // namespace Formats
