// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/CloudGrid.hpp"

#include <gmock/gmock.h>

#include "formats/las/ByteStream.hpp"
#include "tests/formats/cloud/CloudTestFiles.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::TempDir;
using MemCore::Attributes;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<double> doublesOf(const Attributes& attributes, const char* name) {
  const auto chunk = MemCore::chunkCast<double>(attributes.getAttribute(name));
  return chunk ? std::vector<double>(chunk->begin(), chunk->end()) : std::vector<double>();
}

}  // namespace

TEST(CloudGrid, FragmentsAreNumberedThroughAllFiles) {
  const TempDir folder;
  const TestCloud cloud =
      readCloud({writeSurvey(folder / "a.las", 1, 25), writeSurvey(folder / "b.las", 1, 10, 2)},
                {"points", 0, 10});
  std::vector<std::string> names;
  for (const auto& fragment : cloud.fragments()) {
    EXPECT_EQ(fragment->number(), names.size());
    names.push_back(fragment->name());
  }
  EXPECT_THAT(names, ElementsAre("0-0", "0-1", "0-2", "1-0"));
  EXPECT_EQ(cloud.summary.fragments, 4U);
  EXPECT_EQ(cloud.summary.points, 35U);
}

TEST(CloudGrid, EveryFragmentCarriesEveryField) {
  const TempDir folder;
  const TestCloud cloud =
      readCloud({writeSurvey(folder / "a.las", 10, 30), writeSurvey(folder / "b.las", 0, 10, 2),
                 writeSurvey(folder / "c.las", 3, 10, 3)},
                {"points", 0, 10});
  for (const auto& [name, field] : cloud.grid->getCartesianRepresentation("")->fields()) {
    for (const auto& fragment : cloud.fragments()) {
      const auto creator = field->getCreator(fragment);
      ASSERT_TRUE(bool(creator)) << name << " " << fragment->name();
      const auto data = creator->data();
      ASSERT_TRUE(bool(data)) << name << " " << fragment->name() << " " << creator->failure();
      EXPECT_EQ(data->size(), (Fiber::DynamicSize{10})) << name << " " << fragment->name();
      EXPECT_EQ(data->type(), field->getFirstCreator()->facts().type) << name;
    }
  }
}

TEST(CloudGrid, MissingFieldsAreZeroAndOthersStayInPlace) {
  const TempDir folder;
  const auto records = surveyRecords(2, 0, 10, 5);
  const TestCloud cloud = readCloud(
      {writeSurvey(folder / "a.las", 1, 10), writeLas(folder / "b.las", lasOptions(2), records)});
  const auto red = valuesOf<std::uint16_t>(*cloud.field("Red"));
  const auto times = valuesOf<double>(*cloud.field("GpsTime"));
  for (std::size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(red[i], 0);
    EXPECT_EQ(red[10 + i], loadValue<std::uint16_t>(&records[i * 26 + 20]));
    EXPECT_EQ(times[10 + i], 0.0);
  }
  EXPECT_NE(times[9], 0.0);
}

TEST(CloudGrid, OldScanAnglesAreTurnedIntoNewSteps) {
  const TempDir folder;
  const auto old = surveyRecords(1, 0, 10, 5);
  const auto recent = surveyRecords(6, 0, 10, 6);
  const TestCloud cloud = readCloud({writeLas(folder / "a.las", lasOptions(1), old),
                                     writeLas(folder / "b.las", lasOptions(6), recent)});
  const auto angles = valuesOf<std::int16_t>(*cloud.field("ScanAngle"));
  for (std::size_t i = 0; i < 10; ++i) {
    const double degrees = loadValue<std::int8_t>(&old[i * 28 + 16]);
    EXPECT_NEAR(angles[i] * 0.006, degrees, 0.0031);
    EXPECT_EQ(angles[10 + i], loadValue<std::int16_t>(&recent[i * 30 + 18]));
  }
}

TEST(CloudGrid, WidenedExtraBytesKeepTheirValues) {
  const TempDir folder;
  const auto narrow = lasOptions(0, {describeExtraBytes("Amount", ElementType::UInt8)});
  const auto wide = lasOptions(0, {describeExtraBytes("Amount", ElementType::Int16)});
  const auto narrowRecords = surveyRecords(0, 1, 5, 8);
  const auto wideRecords = surveyRecords(0, 2, 5, 9);
  const TestCloud cloud = readCloud({writeLas(folder / "a.las", narrow, narrowRecords),
                                     writeLas(folder / "b.las", wide, wideRecords)});
  const auto values = valuesOf<std::int16_t>(*cloud.field("Amount"));
  ASSERT_EQ(values.size(), 10U);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(values[i], std::to_integer<std::int16_t>(narrowRecords[i * 21 + 20]));
    EXPECT_EQ(values[5 + i], loadValue<std::int16_t>(&wideRecords[i * 22 + 20]));
  }
}

TEST(CloudGrid, ScaledExtraBytesOfDifferentScaleBecomeWhatTheyStandFor) {
  const TempDir folder;
  auto descriptor = describeExtraBytes("Height", ElementType::UInt8);
  descriptor.options = 8 | 16;
  descriptor.scale = {{0.5, 1, 1}};
  descriptor.offset = {{100, 0, 0}};
  const auto records = surveyRecords(0, 1, 5, 8);
  const auto first = writeLas(folder / "a.las", lasOptions(0, {descriptor}), records);
  descriptor.scale = {{2, 1, 1}};
  const auto second = writeLas(folder / "b.las", lasOptions(0, {descriptor}), records);
  const TestCloud cloud = readCloud({first, second});
  const auto values = valuesOf<double>(*cloud.field("Height"));
  for (std::size_t i = 0; i < 5; ++i) {
    const auto raw = std::to_integer<int>(records[i * 21 + 20]);
    EXPECT_EQ(values[i], raw * 0.5 + 100);
    EXPECT_EQ(values[5 + i], raw * 2.0 + 100);
  }
}

TEST(CloudGrid, GridHintIsThatOfTheFirstFileWithPoints) {
  const TempDir folder;
  auto options = lasOptions(1);
  options.header.scale = {0.5, 0.25, 0.125};
  options.header.offset = {1, 2, 3};
  const auto second = writeLas(folder / "b.las", options, surveyRecords(1, 0, 3, 1));
  const TestCloud cloud =
      readCloud({writeSurvey(folder / "a.las", 1, 0), second, writeSurvey(folder / "c.las", 1, 3)});
  const Attributes& properties = cloud.field("Positions")->properties();
  EXPECT_THAT(doublesOf(properties, "GridScale"), ElementsAre(0.5, 0.25, 0.125));
  EXPECT_THAT(doublesOf(properties, "GridOffset"), ElementsAre(1, 2, 3));
}

TEST(CloudGrid, ExtraBytesAreDescribedByTheirFields) {
  const TempDir folder;
  auto descriptor = describeExtraBytes("Height", ElementType::UInt8, "above the ground");
  const TestCloud cloud = readCloud(
      {writeLas(folder / "a.las", lasOptions(0, {descriptor}), surveyRecords(0, 1, 3, 1))});
  EXPECT_EQ(MemCore::textAttribute(cloud.field("Height")->properties(), "Description"),
            "above the ground");
}

}  // namespace Formats
