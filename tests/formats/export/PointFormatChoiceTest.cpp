// SPDX-License-Identifier: Apache-2.0

#include "formats/export/PointFormatChoice.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace Formats {

namespace {

/// A grid that has these fields besides its positions.
ExportSource gridWith(const std::vector<std::string>& names) {
  ExportSource source;
  for (const std::string& name : names) source.fields.push_back({name, ElementType::UInt8, 1, {}});
  return source;
}

using FileFormats = std::vector<std::uint8_t>;

int choice(const std::vector<std::string>& names, const FileFormats& files,
           bool namesPackets = false) {
  return choosePointFormat(gridWith(names), files, namesPackets, {});
}

}  // namespace

TEST(PointFormatChoice, ChoiceOfTheUserIsTaken) {
  LasExportOptions options;
  options.pointFormat = 2;
  EXPECT_EQ(choosePointFormat(gridWith({"GpsTime", "Infrared"}), FileFormats{7}, false, options),
            2);
}

TEST(PointFormatChoice, FormatOfTheFilesIsKept) {
  for (std::uint8_t format = 0; format <= kMaxPointFormat; ++format) {
    const bool namesPackets = formatHasWaveforms(format);
    EXPECT_EQ(choice({"Intensity"}, {format}, namesPackets), format);
  }
}

TEST(PointFormatChoice, ConvertedOldFilesWithNewFieldsGoToTheNewFamily) {
  EXPECT_EQ(choice({"ScanChannel"}, {1}), 6);
  EXPECT_EQ(choice({"Infrared"}, {2, 3}), 8);
}

TEST(PointFormatChoice, OldFilesTogetherStayOld) {
  EXPECT_EQ(choice({"Intensity", "GpsTime"}, {0, 1}), 1);
  EXPECT_EQ(choice({"Red", "GpsTime"}, {1, 2}), 3);
  EXPECT_EQ(choice({"Intensity"}, {0, 2}), 2);
}

TEST(PointFormatChoice, OldAndNewFilesTogetherBecomeNew) {
  EXPECT_EQ(choice({"Intensity"}, {1, 6}), 6);
  EXPECT_EQ(choice({"Intensity"}, {3, 6}), 7);
}

TEST(PointFormatChoice, GridsOfOtherOriginGetTheSmallestNewFormat) {
  EXPECT_EQ(choice({}, {}), 6);
  EXPECT_EQ(choice({"Reflectance"}, {}), 6);
  EXPECT_EQ(choice({"Red"}, {}), 7);
  EXPECT_EQ(choice({"Infrared", "Red"}, {}), 8);
}

TEST(PointFormatChoice, PacketsAskForAFormatThatNamesThem) {
  EXPECT_EQ(choice({"WaveDescriptor"}, {}, true), 9);
  EXPECT_EQ(choice({"WaveDescriptor", "Red"}, {}, true), 10);
  EXPECT_EQ(choice({"WaveDescriptor"}, {1, 4}, true), 4);
  EXPECT_EQ(choice({"WaveDescriptor", "Red"}, {3, 4}, true), 5);
}

TEST(PointFormatChoice, WithoutTheirPacketsPointsGetAFormatWithout) {
  EXPECT_EQ(choice({"WaveDescriptor", "WaveSize"}, {4}), 1);
  EXPECT_EQ(choice({"WaveDescriptor", "WaveSize"}, {5}), 3);
  EXPECT_EQ(choice({"WaveDescriptor", "WaveSize"}, {9}), 6);
  EXPECT_EQ(choice({"WaveDescriptor", "WaveSize"}, {10}), 8);
}

TEST(PointFormatChoice, FieldsOfSeveralComponentsAreNoStandardFields) {
  ExportSource source = gridWith({});
  source.fields.push_back({"Red", ElementType::UInt16, 3, {}});
  EXPECT_EQ(choosePointFormat(source, FileFormats{}, false, {}), 6);
}

TEST(PointFormatChoice, StandardFieldsAreToldByName) {
  for (const char* name : {"Intensity", "Overlap", "Infrared", "GpsTime", "WaveXt"}) {
    EXPECT_TRUE(isStandardField(name)) << name;
  }
  for (const char* name : {"intensity", "Position", "Positions", "SourceFile", ""}) {
    EXPECT_FALSE(isStandardField(name)) << name;
  }
}

TEST(PointFormatChoice, WavePacketFieldsAreToldByName) {
  for (const char* name : {"WaveDescriptor", "WaveOffset", "WaveSize", "WaveReturnLocation",
                           "WaveXt", "WaveYt", "WaveZt"}) {
    EXPECT_TRUE(isWavePacketField(name)) << name;
  }
  for (const char* name : {"Waveforms", "FWFLength", "GpsTime", "Intensity"}) {
    EXPECT_FALSE(isWavePacketField(name)) << name;
  }
}

}  // namespace Formats
