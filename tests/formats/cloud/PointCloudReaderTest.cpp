// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointCloudReader.hpp"

#include <gmock/gmock.h>

#include <limits>

#include "formats/cloud/SourceFiles.hpp"
#include "formats/las/ByteStream.hpp"
#include "tests/formats/cloud/CloudTestFiles.hpp"

namespace Formats {

namespace {

using Eagle::PhysicalSpace;
using LidarLib::TestSupport::TempDir;
using testing::HasSubstr;

/// Bytes of the header that hold scales and offsets.
constexpr std::size_t kScaleAt = 131;

/// The box of points, one by one.
std::pair<PhysicalSpace::point, PhysicalSpace::point> plainBox(
    const std::vector<PhysicalSpace::point>& points) {
  PhysicalSpace::point low = points.front();
  PhysicalSpace::point high = points.front();
  for (const auto& point : points) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      low[axis] = std::min(low[axis], point[axis]);
      high[axis] = std::max(high[axis], point[axis]);
    }
  }
  return {low, high};
}

/// The bounds of the table hold for the decoded points, up to the digits that it shows.
void expectKnownBounds(const KnownFile& known, const Eagle::BoundingBox& box) {
  if (known.name == "fwf/simple1_3.las") return;  // its header's bounds are no coordinates
  for (std::size_t axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(box.min()[axis], known.minimum[axis], 0.0101) << axis;
    EXPECT_NEAR(box.max()[axis], known.maximum[axis], 0.0101) << axis;
  }
}

}  // namespace

TEST(PointCloudReader, NamesThatWouldReachOutOfTheirFolderAreRefused) {
  const TempDir folder;
  const auto file = writeSurvey(folder / "a.las", 1, 3);
  for (const std::string name : {"", ".", "..", ".hidden", "a/b", "a\\b", "a\nb", "a\x7f"}) {
    EXPECT_THAT(failureOf({file}, {name, 0, 10}), HasSubstr("grid name: cannot be used, found \""));
  }
  EXPECT_THAT(failureOf({file}, {std::string("a\0b", 3), 0, 10}), HasSubstr("\"a\\x00b\""));
  EXPECT_EQ(readCloud({file}, {"Äcker 2.0", 0, 10}).summary.points, 3U);
}

TEST(PointCloudReader, OptionsThatCannotBeUsedAreRefused) {
  const TempDir folder;
  const auto file = writeSurvey(folder / "a.las", 1, 3);
  EXPECT_THAT(failureOf({}), HasSubstr("point cloud: no files given"));
  EXPECT_THAT(failureOf({file}, {"points", std::numeric_limits<double>::quiet_NaN(), 10}),
              HasSubstr("time: cannot be used, found nan"));
  EXPECT_THAT(failureOf({file}, {"points", 0, 0}), HasSubstr("points per fragment"));
}

TEST(PointCloudReader, GridThatExistsIsNotReplaced) {
  const TempDir folder;
  const auto file = writeSurvey(folder / "a.las", 1, 3);
  Fiber::Bundle bundle;
  ASSERT_TRUE(addPointCloud(bundle, {file}, {}).ok());
  const auto again = addPointCloud(bundle, {file}, {});
  ASSERT_FALSE(again.ok());
  EXPECT_THAT(again.error(), HasSubstr("grid points: exists already at time 0"));
  EXPECT_TRUE(addPointCloud(bundle, {file}, {"others", 0, 10}).ok());
  EXPECT_TRUE(addPointCloud(bundle, {file}, {"points", 1, 10}).ok());
}

TEST(PointCloudReader, MissingFileIsNamed) {
  const TempDir folder;
  const auto file = writeSurvey(folder / "a.las", 1, 3);
  EXPECT_THAT(failureOf({file, folder / "missing.las"}), HasSubstr("missing.las"));
}

TEST(PointCloudReader, ScalesThatGiveNoPositionsAreRefused) {
  const TempDir folder;
  const auto whole = readFile(writeSurvey(folder / "a.las", 1, 3));
  for (const double scale : {0.0, std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::infinity(), 1e300}) {
    auto bytes = whole;
    storeValue(&bytes[kScaleAt + sizeof(double)], scale);
    writeFile(folder / "b.las", bytes);
    EXPECT_THAT(failureOf({folder / "b.las"}), HasSubstr("b.las: y scale")) << scale;
  }
}

TEST(PointCloudReader, MoreFragmentsThanCanBeHandledAreRefused) {
  const TempDir folder;
  // As many extra bytes, each a field, as a record can have.
  LasWriterOptions options = lasOptions(0);
  options.header.recordBytes = 60000;
  const std::vector<std::byte> records(60000 * 200);
  const auto file = writeLas(folder / "a.las", options, records);
  EXPECT_THAT(failureOf({file}, {"points", 0, 1}),
              HasSubstr("point cloud: too many fragments for 59992 fields, found 200, expected "));
}

TEST(PointCloudReader, FileGivenTwiceIsNoted) {
  const TempDir folder;
  const auto file = writeSurvey(folder / "a.las", 1, 3);
  const TestCloud cloud = readCloud({file, file});
  EXPECT_TRUE(cloud.hasNote("a.las: given more than once"));
  EXPECT_EQ(cloud.summary.points, 6U);
}

TEST(PointCloudReader, EmptyFilesLeaveTheirHeaderAndAGridWithoutFragments) {
  const TempDir folder;
  const TestCloud cloud = readCloud({writeSurvey(folder / "a.las", 1, 0)});
  EXPECT_TRUE(cloud.fragments().empty());
  EXPECT_FALSE(bool(cloud.box()));
  EXPECT_EQ(cloud.summary.points, 0U);
  EXPECT_TRUE(cloud.hasNote("a.las: has no points"));
  EXPECT_TRUE(cloud.hasNote("grid points: no file has any points"));
  const auto sources = sourceFilesOf(cloud.grid->attributes());
  ASSERT_TRUE(sources.ok()) << sources.error();
  EXPECT_EQ(sources->at(0).header.pointFormat, 1);
}

TEST(PointCloudReader, GridGoesToTheTimeAndNameAskedFor) {
  const TempDir folder;
  const TestCloud cloud = readCloud({writeSurvey(folder / "a.las", 1, 3)}, {"scan", 2.5, 10});
  EXPECT_EQ(cloud.bundle->slices().size(), 1U);
  EXPECT_EQ(cloud.bundle->slices().begin()->first, 2.5);
  EXPECT_EQ(cloud.grid->name(), "scan");
}

class PointCloudReaderData : public LasData, public testing::WithParamInterface<KnownFile> {};

TEST_P(PointCloudReaderData, CountAndBoxAreThoseOfTheTable) {
  const KnownFile& known = GetParam();
  const TestCloud cloud = readCloud({path(known.name)}, {"points", 0, 60000});
  EXPECT_EQ(cloud.summary.points, known.pointCount);
  const auto box = cloud.box();
  ASSERT_EQ(bool(box), known.pointCount != 0);
  if (!box) return;
  const auto file = open(known.name);
  const auto [low, high] = plainBox(plainPositions(readAllRecords(*file), file->header()));
  EXPECT_EQ(box->min(), low);
  EXPECT_EQ(box->max(), high);
  expectKnownBounds(known, *box);
}

TEST_P(PointCloudReaderData, EveryFieldHoldsWhatTheRecordsSay) {
  const KnownFile& known = GetParam();
  const TestCloud cloud = readCloud({path(known.name)}, {"points", 0, 60000});
  if (known.pointCount == 0) return;
  const auto file = open(known.name);
  const auto records = readAllRecords(*file);
  EXPECT_EQ(valuesOf<PhysicalSpace::point>(*cloud.field("Positions")),
            plainPositions(records, file->header()));
  for (const PointField& field : file->layout().fields()) {
    EXPECT_EQ(cloud.field(field.name)->getFirstCreator()->facts().type, fiberTypeOf(field.type));
    EXPECT_EQ(bytesOf(*cloud.field(field.name)), plainColumn(records, file->recordBytes(), field))
        << field.name;
  }
}

INSTANTIATE_TEST_SUITE_P(RealFiles, PointCloudReaderData, testing::ValuesIn(smallKnownFiles()),
                         testNameOf);

using PointCloudReaderTiles = LasData;

TEST_F(PointCloudReaderTiles, SixTilesMakeOneCloud) {
  std::vector<std::string> files;
  for (const KnownFile& known : smallKnownFiles()) {
    if (known.name.starts_with("lidarhd/")) files.push_back(path(known.name));
  }
  ASSERT_EQ(files.size(), 6U);
  const TestCloud cloud = readCloud(files);
  EXPECT_EQ(cloud.summary.points, 405937U);
  EXPECT_EQ(cloud.summary.fragments, 6U);
  EXPECT_THAT(cloud.summary.notes, testing::IsEmpty());
  const auto box = cloud.box();
  EXPECT_EQ(box->min(), (PhysicalSpace::point{770500.0, 6277500.0, 20.21}));
  EXPECT_EQ(box->max(), (PhysicalSpace::point{770650.0, 6277600.0, 43.49}));
  const auto returns = valuesOf<std::uint8_t>(*cloud.field("ReturnNumber"));
  EXPECT_EQ(*std::ranges::max_element(returns), 5);
}

TEST_F(PointCloudReaderTiles, FilesOfAllFormatsMakeOneCloud) {
  std::vector<std::string> files;
  for (int format = 0; format <= 10; ++format) {
    files.push_back(path("formats/10_points_format_" + std::to_string(format) + ".las"));
  }
  const TestCloud cloud = readCloud(files);
  EXPECT_EQ(cloud.summary.points, 110U);
  EXPECT_EQ(valuesOf<PhysicalSpace::point>(*cloud.field("Positions")).size(), 110U);
  EXPECT_TRUE(cloud.hasNote("format_0.las: has no fields GpsTime, Red, Green, Blue, WaveDesc"));
  EXPECT_TRUE(cloud.hasNote("format_4.las: waveform"));
  for (const auto& [name, field] : cloud.grid->getCartesianRepresentation("")->fields()) {
    EXPECT_FALSE(bytesOf(*field).empty()) << name;
  }
}

}  // namespace Formats
