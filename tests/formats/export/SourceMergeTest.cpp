// SPDX-License-Identifier: Apache-2.0

#include "formats/export/SourceMerge.hpp"

#include <gmock/gmock.h>

#include "formats/las/ExtraBytes.hpp"

namespace Formats {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint16_t kWktId = 2112;

VariableRecord recordOf(const std::string& userId, std::uint16_t id, const std::string& payload) {
  VariableRecord record;
  record.userId = userId;
  record.recordId = id;
  const auto bytes = std::as_bytes(std::span(payload));
  record.payload.assign(bytes.begin(), bytes.end());
  record.payloadBytes = record.payload.size();
  return record;
}

VariableRecord crs(const std::string& text) { return recordOf("LASF_Projection", kWktId, text); }

SourceFile fileOf(const std::string& name, const std::vector<VariableRecord>& vlrs = {}) {
  SourceFile file;
  file.name = name;
  file.vlrs = vlrs;
  file.header.pointFormat = 1;
  file.header.recordBytes = standardRecordBytes(1);
  file.header.systemIdentifier = "scanner";
  file.header.fileSourceId = 7;
  return file;
}

MergedSource merge(const std::vector<SourceFile>& files) {
  auto merged = mergeSources(files);
  EXPECT_TRUE(merged.ok()) << merged.error();
  return merged ? std::move(*merged) : MergedSource();
}

std::string refusalOf(const std::vector<SourceFile>& files) {
  const auto merged = mergeSources(files);
  EXPECT_FALSE(merged.ok());
  return merged ? "" : merged.error();
}

std::vector<std::uint16_t> idsOf(const std::vector<VariableRecord>& records) {
  std::vector<std::uint16_t> ids;
  for (const VariableRecord& record : records) ids.push_back(record.recordId);
  return ids;
}

}  // namespace

TEST(SourceMerge, OneFileStaysAsItIs) {
  SourceFile file = fileOf("a.las", {crs("x"), recordOf("me", 3, "3"), recordOf("me", 3, "3")});
  file.header.trailingBytes = {std::byte{1}};
  file.header.generatingSoftware = "maker";
  file.evlrs = {recordOf("me", 9, "9")};
  const MergedSource merged = merge({file});
  EXPECT_EQ(serialiseLasHeader(merged.header), serialiseLasHeader(file.header));
  EXPECT_THAT(idsOf(merged.vlrs), ElementsAre(kWktId, 3, 3));
  EXPECT_THAT(idsOf(merged.evlrs), ElementsAre(9));
  EXPECT_THAT(merged.pointFormats, ElementsAre(1));
  EXPECT_THAT(merged.notes, IsEmpty());
}

TEST(SourceMerge, OtherCoordinateSystemIsRefused) {
  EXPECT_EQ(refusalOf({fileOf("a.las", {crs("x")}), fileOf("b.las", {crs("y")})}),
            "b.las: cannot go into one file with a.las: another coordinate system");
}

TEST(SourceMerge, CoordinateSystemIsTheSameBehindThePoints) {
  SourceFile behind = fileOf("b.las");
  behind.evlrs = {crs("x")};
  EXPECT_THAT(merge({fileOf("a.las", {crs("x")}), behind}).notes, IsEmpty());
}

TEST(SourceMerge, FileWithoutCoordinateSystemIsTold) {
  const MergedSource merged = merge({fileOf("a.las"), fileOf("b.las", {crs("x")})});
  EXPECT_THAT(merged.notes,
              ElementsAre("a.las: names no coordinate system: taken for that of b.las"));
  EXPECT_THAT(idsOf(merged.vlrs), ElementsAre(kWktId));
}

TEST(SourceMerge, OtherMeaningOfTimesIsRefused) {
  SourceFile standard = fileOf("b.las");
  standard.header.globalEncoding = kGpsTimeIsStandard;
  EXPECT_THAT(refusalOf({fileOf("a.las"), standard}),
              HasSubstr("b.las: cannot go into one file with a.las: GPS times count from another"));
}

TEST(SourceMerge, OtherWaveformDescriptorOfOneNumberIsRefused) {
  const auto describing = [](const std::string& name, const std::string& payload) {
    return fileOf(name, {recordOf("LASF_Spec", 101, payload)});
  };
  EXPECT_EQ(refusalOf({describing("a.las", "16 bits"), describing("b.las", "8 bits")}),
            "b.las: cannot go into one file with a.las: another waveform descriptor 2");
  const MergedSource merged = merge({describing("a.las", "16"), describing("b.las", "16")});
  EXPECT_THAT(idsOf(merged.vlrs), ElementsAre(101));
}

TEST(SourceMerge, SharedRecordsAreKeptOnceAndOthersAll) {
  const MergedSource merged =
      merge({fileOf("a.las", {recordOf("me", 1, "x")}), fileOf("b.las", {recordOf("me", 1, "x")}),
             fileOf("c.las", {recordOf("me", 1, "y")})});
  EXPECT_THAT(idsOf(merged.vlrs), ElementsAre(1, 1));
  EXPECT_THAT(merged.notes,
              ElementsAre("c.las: another record me 1 than other files: all are kept"));
}

TEST(SourceMerge, ExtraBytesAreThoseOfTheFirstFile) {
  const MergedSource merged = merge({fileOf("a.las", {recordOf("LASF_Spec", 4, "x")}),
                                     fileOf("b.las", {recordOf("LASF_Spec", 4, "y")})});
  ASSERT_EQ(merged.vlrs.size(), 1U);
  EXPECT_EQ(merged.vlrs.front().payload, recordOf("", 0, "x").payload);
  EXPECT_THAT(merged.notes, IsEmpty());
}

TEST(SourceMerge, NewestVersionOfAllCounts) {
  SourceFile old = fileOf("a.las");
  old.header.versionMinor = 2;
  SourceFile newer = fileOf("b.las");
  newer.header.versionMinor = 3;
  newer.header.pointFormat = 4;
  old.header.trailingBytes = {std::byte{1}};
  newer.header.trailingBytes = {std::byte{1}};
  const MergedSource merged = merge({old, newer, old});
  EXPECT_EQ(merged.header.versionMinor, 3);
  EXPECT_TRUE(merged.header.trailingBytes.empty());
  EXPECT_THAT(merged.pointFormats, ElementsAre(1, 4));
}

TEST(SourceMerge, IdentifiersHoldForAllOrAreDropped) {
  SourceFile other = fileOf("b.las");
  other.header.fileSourceId = 8;
  other.header.projectGuid[3] = std::byte{1};
  other.header.systemIdentifier = "another";
  const MergedSource merged = merge({fileOf("a.las"), other});
  EXPECT_EQ(merged.header.fileSourceId, 0);
  EXPECT_EQ(merged.header.projectGuid, (std::array<std::byte, 16>{}));
  EXPECT_EQ(merged.header.systemIdentifier, "MERGE");
  const MergedSource same = merge({fileOf("a.las"), fileOf("b.las")});
  EXPECT_EQ(same.header.fileSourceId, 7);
  EXPECT_EQ(same.header.systemIdentifier, "scanner");
}

TEST(SourceMerge, KindOfCoordinateSystemOfAnyFileIsKept) {
  SourceFile wkt = fileOf("b.las", {crs("x")});
  wkt.header.globalEncoding = kWktCoordinateSystem;
  EXPECT_EQ(merge({fileOf("a.las"), wkt}).header.globalEncoding, kWktCoordinateSystem);
}

}  // namespace Formats
