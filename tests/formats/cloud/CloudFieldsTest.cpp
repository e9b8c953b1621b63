// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/CloudFields.hpp"

#include <gmock/gmock.h>

#include "tests/formats/cloud/CloudTestFiles.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

ExtraBytesDescriptor scaled(const std::string& name, ElementType type, double scale) {
  ExtraBytesDescriptor descriptor = describeExtraBytes(name, type);
  descriptor.options = 8;
  descriptor.scale = {{scale, 1, 1}};
  return descriptor;
}

/// Files of one made-up layout each, in a folder of their own.
class CloudFieldsFiles : public testing::Test {
 protected:
  void add(const std::string& name, std::uint8_t format,
           const std::vector<ExtraBytesDescriptor>& extraBytes = {}, std::size_t points = 4) {
    const LasWriterOptions options = lasOptions(format, extraBytes);
    const auto extra =
        static_cast<std::uint16_t>(options.header.recordBytes - standardRecordBytes(format));
    writeLas(folder_ / name, options, surveyRecords(format, extra, points, 7));
    auto opened = LasFile::open(folder_ / name);
    ASSERT_TRUE(opened.ok()) << opened.error();
    files_.push_back(*opened);
  }
  const CloudField* find(const std::string& name) const {
    for (const CloudField& field : joined_.fields) {
      if (field.name == name) return &field;
    }
    return nullptr;
  }
  void join() {
    auto joined = joinFields(files_);
    ASSERT_TRUE(joined.ok()) << joined.error();
    joined_ = std::move(*joined);
  }

  TempDir folder_;
  std::vector<std::shared_ptr<LasFile>> files_;
  CloudFields joined_;
};

}  // namespace

TEST_F(CloudFieldsFiles, OneFileGivesItsOwnFieldsUnchanged) {
  add("a.las", 8);
  join();
  ASSERT_EQ(joined_.fields.size(), files_[0]->layout().fields().size());
  EXPECT_THAT(joined_.notes, IsEmpty());
  for (std::size_t i = 0; i < joined_.fields.size(); ++i) {
    const PointField& stored = files_[0]->layout().fields()[i];
    EXPECT_EQ(joined_.fields[i].name, stored.name);
    EXPECT_EQ(joined_.fields[i].type, stored.type);
    EXPECT_TRUE(joined_.fields[i].supplies[0].conversion.isIdentity());
  }
}

TEST_F(CloudFieldsFiles, MissingFieldsAreNotedOncePerFile) {
  add("a.las", 2);
  add("b.las", 1);
  join();
  EXPECT_EQ(find("Red")->supplies[1].field, nullptr);
  EXPECT_EQ(find("GpsTime")->supplies[0].field, nullptr);
  EXPECT_THAT(joined_.notes, ElementsAre(HasSubstr("a.las: has no field GpsTime: zeros are"),
                                         HasSubstr("b.las: has no fields Red, Green, Blue: zero")));
}

TEST_F(CloudFieldsFiles, FilesWithoutPointsHaveNoSay) {
  add("a.las", 0);
  add("b.las", 3, {describeExtraBytes("Only here", ElementType::Float32)}, 0);
  join();
  EXPECT_EQ(find("Red"), nullptr);
  EXPECT_EQ(find("Only here"), nullptr);
  EXPECT_THAT(joined_.notes, IsEmpty());
}

TEST_F(CloudFieldsFiles, OldScanAnglesTakeTheUnitOfTheNewOnes) {
  add("old.las", 1);
  add("new.las", 6);
  join();
  const CloudField& angle = *find("ScanAngle");
  EXPECT_EQ(angle.type, ElementType::Int16);
  EXPECT_DOUBLE_EQ(angle.supplies[0].conversion.scale, 1.0 / 0.006);
  EXPECT_TRUE(angle.supplies[1].conversion.isIdentity());
  EXPECT_THAT(joined_.notes, testing::Contains(HasSubstr(
                                 "old.las: field ScanAngle counts whole degrees: turned into "
                                 "steps of 0.006 degrees")));
}

TEST_F(CloudFieldsFiles, OtherTypesAreWidened) {
  add("a.las", 0, {describeExtraBytes("Deviation", ElementType::UInt16)});
  add("b.las", 0, {describeExtraBytes("Deviation", ElementType::Int8)});
  join();
  const CloudField& field = *find("Deviation");
  EXPECT_EQ(field.type, ElementType::Int32);
  EXPECT_EQ(field.supplies[0].conversion.to, ElementType::Int32);
  EXPECT_THAT(joined_.notes,
              ElementsAre(HasSubstr("a.las: field Deviation is uint16: widened to int32"),
                          HasSubstr("b.las: field Deviation is int8: widened to int32")));
}

TEST_F(CloudFieldsFiles, TypesWithoutACommonOneNameBothFiles) {
  add("a.las", 0, {describeExtraBytes("Id", ElementType::UInt64)});
  add("b.las", 0, {describeExtraBytes("Id", ElementType::Int64)});
  const auto joined = joinFields(files_);
  ASSERT_FALSE(joined.ok());
  EXPECT_THAT(joined.error(), HasSubstr("b.las: field Id cannot be joined with that of "));
  EXPECT_THAT(joined.error(), HasSubstr("a.las, found int64, expected uint64"));
}

TEST_F(CloudFieldsFiles, FieldsThatNamePacketsKeepTheirTypes) {
  add("a.las", 0, {describeExtraBytes("WaveOffset", ElementType::UInt32)});
  add("b.las", 9);
  const auto joined = joinFields(files_);
  ASSERT_FALSE(joined.ok());
  EXPECT_THAT(joined.error(), HasSubstr("field WaveOffset cannot be joined"));
}

TEST_F(CloudFieldsFiles, OtherScaleTurnsExtraBytesIntoWhatTheyStandFor) {
  add("a.las", 0, {scaled("Height", ElementType::Int16, 0.5)});
  add("b.las", 0, {scaled("Height", ElementType::Int16, 0.25)});
  join();
  const CloudField& field = *find("Height");
  EXPECT_EQ(field.type, ElementType::Float64);
  EXPECT_EQ(field.supplies[0].conversion.scale, 0.5);
  EXPECT_EQ(field.supplies[1].conversion.scale, 0.25);
  EXPECT_FALSE(bool(field.properties.getAttribute("Scale")));
  EXPECT_EQ(joined_.notes.size(), 2U);
}

TEST_F(CloudFieldsFiles, SharedScaleLeavesExtraBytesAsTheyAreStored) {
  add("a.las", 0, {scaled("Height", ElementType::Int16, 0.5)});
  add("b.las", 0, {scaled("Height", ElementType::Int16, 0.5)});
  join();
  EXPECT_EQ(find("Height")->type, ElementType::Int16);
  const auto scale = MemCore::chunkCast<double>(find("Height")->properties.getAttribute("Scale"));
  ASSERT_TRUE(bool(scale));
  EXPECT_EQ((*scale)[0], 0.5);
  EXPECT_THAT(joined_.notes, IsEmpty());
}

}  // namespace Formats
