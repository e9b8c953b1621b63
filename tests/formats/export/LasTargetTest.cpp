// SPDX-License-Identifier: Apache-2.0

#include "formats/export/LasTarget.hpp"

#include <gmock/gmock.h>

#include "tests/formats/export/ExportTestGrids.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

LasExportOptions formatOf(std::uint8_t format, bool isLossy = false) {
  LasExportOptions options;
  options.pointFormat = format;
  options.isLossy = isLossy;
  return options;
}

LasTarget targetOf(const ExportSource& source, const LasExportOptions& options = {}) {
  auto target = lasTargetOf(source, options);
  EXPECT_TRUE(target.ok()) << target.error();
  return target ? std::move(*target) : LasTarget();
}

std::vector<std::string> targetsOf(const LasTarget& target) {
  std::vector<std::string> names;
  for (const FieldMapping& mapping : target.mappings) names.push_back(mapping.target.name);
  return names;
}

/// Fields that name packets, and waveforms, as far as wanted.
ExportSource wavesOf(bool hasNames, bool hasSamples, CloudBuilder& cloud) {
  cloud.fragment({{0, 0, 0}});
  if (hasNames) {
    cloud.field<std::uint8_t>("WaveDescriptor", {1}).field<std::uint64_t>("WaveOffset", {60});
    cloud.field<std::uint32_t>("WaveSize", {2});
  }
  if (hasSamples) {
    cloud.field<std::uint16_t>("FWFLength", {1}).waveforms<std::uint16_t>("Waveforms", 1, {5});
  }
  ExportSource source = sourceOf(cloud);
  LasWriterOptions options = lasOptions(4);
  VariableRecord descriptor;
  descriptor.userId = kLasSpecUserId;
  descriptor.recordId = kFirstWaveformDescriptorId;
  options.vlrs.push_back(descriptor);
  source.files = {sourceFile("a.las", options)};
  return source;
}

}  // namespace

TEST(LasTarget, GridOfOtherOriginGetsANewHeader) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::uint8_t>("Classification", {2}).field<float>("Curve", {1});
  const LasTarget target = targetOf(sourceOf(cloud));
  const LasHeader& header = target.writer.header;
  EXPECT_EQ(header.pointFormat, 6);
  EXPECT_EQ(header.versionMinor, 4);
  EXPECT_EQ(header.systemIdentifier, "OTHER");
  EXPECT_EQ(header.generatingSoftware, "refragment");
  EXPECT_EQ(header.recordBytes, 34);
  EXPECT_THAT(targetsOf(target), UnorderedElementsAre("Classification", "Curve"));
  EXPECT_THAT(target.notes, IsEmpty());
}

TEST(LasTarget, FormatWithoutPlaceForValuesIsRefused) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::uint16_t>("Red", {5});
  const ExportSource source = sourceOf(cloud);
  EXPECT_EQ(lasTargetOf(source, formatOf(1)).error(),
            "grid points: field Red has no place in point format 1 (a lossy export leaves it out)");
  const LasTarget lossy = targetOf(source, formatOf(1, true));
  EXPECT_THAT(lossy.notes,
              ElementsAre("grid points: field Red has no place in point format 1: left out"));
  EXPECT_THAT(targetsOf(lossy), IsEmpty());
}

TEST(LasTarget, ZerosNeedNoPlace) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}, {1, 1, 1}}).field<std::uint16_t>("Red", {0, 0});
  EXPECT_THAT(targetOf(sourceOf(cloud), formatOf(1)).notes, IsEmpty());
}

TEST(LasTarget, OrderFieldsAreNeverWritten) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::uint32_t>("SourceFile", {3});
  cloud.field<std::uint64_t>("SourceIndex", {4}).field<std::uint8_t>("Mine", {1});
  EXPECT_THAT(targetsOf(targetOf(sourceOf(cloud))), ElementsAre("Mine"));
  EXPECT_TRUE(isOrderField("SourceFile"));
  EXPECT_FALSE(isOrderField("SourceFiles"));
}

TEST(LasTarget, MissingFieldsOfFilesAreTold) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::uint16_t>("Intensity", {5});
  ExportSource source = sourceOf(cloud);
  source.files = {sourceFile("a.las", lasOptions(1))};
  const LasTarget target = targetOf(source);
  EXPECT_THAT(target.notes, ElementsAre(HasSubstr("grid points: has no ReturnNumber, ")));
  EXPECT_THAT(target.notes, ElementsAre(HasSubstr("GpsTime: zeros are written")));
}

TEST(LasTarget, ScanAnglesChangeTheirSteps) {
  const auto factorFor = [](auto angle, std::uint8_t format) {
    CloudBuilder cloud;
    cloud.fragment({{0, 0, 0}}).field("ScanAngle", std::vector{angle});
    const LasTarget target = targetOf(sourceOf(cloud), formatOf(format));
    return target.mappings.at(0).factor;
  };
  EXPECT_EQ(factorFor(std::int8_t{1}, 1), 1.0);
  EXPECT_EQ(factorFor(std::int16_t{1}, 6), 1.0);
  EXPECT_EQ(factorFor(std::int8_t{1}, 6), 1.0 / kScanAngleStepDegrees);
  EXPECT_EQ(factorFor(std::int16_t{1}, 1), kScanAngleStepDegrees);
}

TEST(LasTarget, VersionIsTheOldestThatWillDo) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::uint16_t>("Intensity", {5});
  ExportSource source = sourceOf(cloud);
  LasWriterOptions old = lasOptions(0);
  old.header.versionMinor = 0;
  old.header.trailingBytes = {std::byte{1}, std::byte{2}};
  source.files = {sourceFile("a.las", old)};
  EXPECT_EQ(targetOf(source).writer.header.versionMinor, 0);
  EXPECT_EQ(targetOf(source).writer.header.trailingBytes.size(), 2U);
  const LasTarget newer = targetOf(source, formatOf(6));
  EXPECT_EQ(newer.writer.header.versionMinor, 4);
  EXPECT_TRUE(newer.writer.header.trailingBytes.empty());
  EXPECT_EQ(targetOf(source, formatOf(3)).writer.header.versionMinor, 2);
}

TEST(LasTarget, ExtraBytesRecordStaysInItsPlace) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<float>("a", {5}).field<float>("new", {5});
  ExportSource source = sourceOf(cloud);
  LasWriterOptions options = lasOptions(0, {describeExtraBytes("a", ElementType::Float32)});
  VariableRecord other;
  other.userId = "me";
  options.vlrs.push_back(other);
  source.files = {sourceFile("a.las", options)};
  const LasTarget target = targetOf(source);
  ASSERT_EQ(target.writer.vlrs.size(), 2U);
  EXPECT_TRUE(hasId(target.writer.vlrs[0], kLasSpecUserId, kExtraBytesRecordId));
  EXPECT_EQ(parseExtraBytes(target.writer.vlrs[0].payload).size(), 2U);
  EXPECT_EQ(target.writer.header.recordBytes, 28);
}

TEST(LasTarget, LostExtraBytesTakeTheirRecordAlong) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::uint16_t>("Intensity", {5});
  ExportSource source = sourceOf(cloud);
  source.files = {
      sourceFile("a.las", lasOptions(0, {describeExtraBytes("a", ElementType::Float32)}))};
  const LasTarget target = targetOf(source);
  EXPECT_THAT(target.writer.vlrs, IsEmpty());
  EXPECT_EQ(target.writer.header.recordBytes, standardRecordBytes(0));
}

TEST(LasTarget, WaveformsGoWhereTheyAreWanted) {
  CloudBuilder cloud;
  const ExportSource source = wavesOf(true, true, cloud);
  LasExportOptions options;
  EXPECT_EQ(targetOf(source, options).writer.waveforms, WaveformPlace::Beside);
  options.waveforms = WaveformPlace::Inside;
  const LasTarget inside = targetOf(source, options);
  EXPECT_EQ(inside.writer.waveforms, WaveformPlace::Inside);
  EXPECT_EQ(inside.writer.header.pointFormat, 4);
  EXPECT_EQ(inside.writer.vlrs.size(), 1U);
}

TEST(LasTarget, WithoutWaveformsPointsNameNoPackets) {
  CloudBuilder cloud;
  const ExportSource source = wavesOf(true, true, cloud);
  LasExportOptions options;
  options.waveforms = WaveformPlace::Nowhere;
  const LasTarget target = targetOf(source, options);
  EXPECT_EQ(target.writer.header.pointFormat, 1);
  EXPECT_EQ(target.writer.waveforms, WaveformPlace::Nowhere);
  EXPECT_THAT(targetsOf(target), IsEmpty());
  EXPECT_THAT(target.writer.vlrs, IsEmpty());
}

TEST(LasTarget, WaveformsThatNothingNamesAreLeftOutAndTold) {
  CloudBuilder cloud;
  const ExportSource source = wavesOf(false, true, cloud);
  const LasTarget target = targetOf(source);
  EXPECT_EQ(target.writer.waveforms, WaveformPlace::Nowhere);
  EXPECT_EQ(target.writer.header.pointFormat, 1);
  EXPECT_THAT(target.notes,
              testing::Contains(HasSubstr("its waveforms are left out: the fields "
                                          "WaveDescriptor, WaveOffset and WaveSize")));
}

TEST(LasTarget, PacketsThatAreGoneStayNamedAndTold) {
  CloudBuilder cloud;
  const ExportSource source = wavesOf(true, false, cloud);
  const LasTarget target = targetOf(source);
  EXPECT_EQ(target.writer.waveforms, WaveformPlace::Nowhere);
  EXPECT_EQ(target.writer.header.pointFormat, 4);
  EXPECT_THAT(target.notes, testing::Contains("grid points: has no waveforms: points name packets "
                                              "that are not there"));
}

TEST(LasTarget, RecordThatWouldBeTooLongIsRefused) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).waveforms<std::uint8_t>("v", 65510, std::vector<std::uint8_t>(65510));
  EXPECT_EQ(lasTargetOf(sourceOf(cloud), {}).error(),
            "point records: too long, found 65510 extra bytes, expected at most 65505");
}

TEST(LasTarget, FilesThatMustNotBecomeOneAreRefused) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}});
  ExportSource source = sourceOf(cloud);
  LasWriterOptions standard = lasOptions(1);
  standard.header.globalEncoding = kGpsTimeIsStandard;
  source.files = {sourceFile("a.las", lasOptions(1)), sourceFile("b.las", standard)};
  EXPECT_THAT(lasTargetOf(source, {}).error(), HasSubstr("b.las: cannot go into one file with"));
}

}  // namespace Formats
