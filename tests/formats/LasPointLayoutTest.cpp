// SPDX-License-Identifier: Apache-2.0

#include "formats/las/PointLayout.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/las/ByteStream.hpp"

namespace Formats {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::size_t kTypeAt = 2;

VariableRecord extraBytesRecord(std::span<const ExtraBytesDescriptor> descriptors) {
  VariableRecord record;
  record.userId = kLasSpecUserId;
  record.recordId = kExtraBytesRecordId;
  record.payload = serialiseExtraBytes(descriptors);
  return record;
}

ExtraBytesDescriptor ofType(std::string name, std::uint8_t dataType, std::uint8_t options = 0) {
  ExtraBytesDescriptor descriptor;
  descriptor.name = std::move(name);
  descriptor.dataType = dataType;
  descriptor.options = options;
  return descriptor;
}

/// The layout of format 0 with these descriptors and so many extra bytes.
PointLayout layoutWith(const std::vector<ExtraBytesDescriptor>& descriptors,
                       std::uint16_t extraBytes) {
  auto layout = PointLayout::make(0, static_cast<std::uint16_t>(20 + extraBytes),
                                  {extraBytesRecord(descriptors)});
  EXPECT_TRUE(layout.ok()) << layout.error();
  return *layout;
}

/// Names of the extra bytes.
std::vector<std::string> extraNames(const PointLayout& layout) {
  std::vector<std::string> names;
  for (const PointField& field : layout.fields()) {
    if (field.byteOffset >= standardRecordBytes(layout.pointFormat())) names.push_back(field.name);
  }
  return names;
}

TEST(PointLayout, FieldsCoverEveryBitOfARecordOnce) {
  for (std::uint8_t format = 0; format <= kMaxPointFormat; ++format) {
    const auto layout =
        PointLayout::make(format, static_cast<std::uint16_t>(standardRecordBytes(format) + 3), {});
    ASSERT_TRUE(layout.ok()) << layout.error();
    std::vector<int> uses(layout->recordBytes() * 8U);
    const auto use = [&](const PointField& field) {
      const std::size_t bits = field.bitCount != 0
                                   ? field.bitCount
                                   : elementBytes(field.type) * field.componentCount * 8;
      for (std::size_t bit = 0; bit < bits; ++bit) {
        ++uses.at(field.byteOffset * 8U + field.bitShift + bit);
      }
    };
    use(layout->position());
    for (const PointField& field : layout->fields()) use(field);
    EXPECT_THAT(uses, testing::Each(1)) << int{format};
  }
}

struct Expected {
  std::uint8_t format;
  const char* name;
  ElementType type;
  int byteOffset;
  int bitShift;
  int bitCount;
};

// Source: ASPRS LAS Specification 1.4 - R15, tables 7 to 20.
TEST(PointLayout, PlacesFieldsAsTheStandardSays) {
  for (const Expected& expected :
       {Expected{0, "Intensity", ElementType::UInt16, 12, 0, 0},
        Expected{0, "NumberOfReturns", ElementType::UInt8, 14, 3, 3},
        Expected{0, "Classification", ElementType::UInt8, 15, 0, 5},
        Expected{0, "Withheld", ElementType::UInt8, 15, 7, 1},
        Expected{0, "ScanAngle", ElementType::Int8, 16, 0, 0},
        Expected{1, "GpsTime", ElementType::Float64, 20, 0, 0},
        Expected{2, "Red", ElementType::UInt16, 20, 0, 0},
        Expected{3, "Blue", ElementType::UInt16, 32, 0, 0},
        Expected{4, "WaveDescriptor", ElementType::UInt8, 28, 0, 0},
        Expected{5, "WaveZt", ElementType::Float32, 59, 0, 0},
        Expected{6, "ScanChannel", ElementType::UInt8, 15, 4, 2},
        Expected{6, "Overlap", ElementType::UInt8, 15, 3, 1},
        Expected{6, "ScanAngle", ElementType::Int16, 18, 0, 0},
        Expected{6, "GpsTime", ElementType::Float64, 22, 0, 0},
        Expected{7, "Red", ElementType::UInt16, 30, 0, 0},
        Expected{8, "Infrared", ElementType::UInt16, 36, 0, 0},
        Expected{9, "WaveOffset", ElementType::UInt64, 31, 0, 0},
        Expected{9, "WaveSize", ElementType::UInt32, 39, 0, 0},
        Expected{10, "WaveReturnLocation", ElementType::Float32, 51, 0, 0}}) {
    const auto layout =
        PointLayout::make(expected.format, standardRecordBytes(expected.format), {});
    const PointField* field = layout->find(expected.name);
    ASSERT_NE(field, nullptr) << expected.name;
    EXPECT_EQ(field->type, expected.type) << expected.name;
    EXPECT_EQ(field->byteOffset, expected.byteOffset) << expected.name;
    EXPECT_EQ(field->bitShift, expected.bitShift) << expected.name;
    EXPECT_EQ(field->bitCount, expected.bitCount) << expected.name;
  }
}

TEST(PointLayout, LeavesOutWhatTheFormatLacks) {
  const auto layout = PointLayout::make(0, 20, {});
  for (const char* name : {"GpsTime", "Red", "Infrared", "Overlap", "ScanChannel", "WaveSize"}) {
    EXPECT_EQ(layout->find(name), nullptr) << name;
  }
}

TEST(PointLayout, RefusesUnknownFormatAndShortRecord) {
  EXPECT_EQ(PointLayout::make(11, 100, {}).error(),
            "point format: not known, found 11, expected 0 to 10");
  EXPECT_EQ(PointLayout::make(6, 29, {}).error(),
            "point records: too short for format 6, found 29 bytes, expected at least 30");
}

TEST(PointLayout, SplitsArraysAndUndocumentedBytes) {
  const PointLayout layout =
      layoutWith({ofType("Colour", 23), ofType("Blob", 0, 2), ofType("Pair", 19)}, 16);
  EXPECT_THAT(extraNames(layout), ElementsAre("Colour[0]", "Colour[1]", "Colour[2]", "Blob[0]",
                                              "Blob[1]", "Pair[0]", "Pair[1]"));
  EXPECT_EQ(layout.find("Colour[2]")->type, ElementType::UInt16);
  EXPECT_EQ(layout.find("Colour[2]")->byteOffset, 24);
  EXPECT_EQ(layout.find("Colour[2]")->component, 2);
  EXPECT_EQ(layout.find("Colour[2]")->meaning->dataType, 23);
  EXPECT_EQ(layout.find("Blob[1]")->type, ElementType::UInt8);
  EXPECT_EQ(layout.find("Pair[1]")->type, ElementType::Float32);
}

TEST(PointLayout, NamesBytesThatNobodyDescribed) {
  const PointLayout layout = layoutWith({ofType("Height", 5)}, 6);
  EXPECT_THAT(extraNames(layout), ElementsAre("Height", "ExtraBytes[0]", "ExtraBytes[1]"));
  EXPECT_EQ(layout.find("ExtraBytes[1]")->byteOffset, 25);
  EXPECT_EQ(layout.find("ExtraBytes[1]")->meaning, nullptr);
}

TEST(PointLayout, ReadsDescriptorsOfSeveralRecords) {
  const auto layout =
      PointLayout::make(6, 33,
                        {extraBytesRecord(std::vector{ofType("A", 3)}), VariableRecord{},
                         extraBytesRecord(std::vector{ofType("B", 1)})});
  EXPECT_THAT(extraNames(*layout), ElementsAre("A", "B"));
}

TEST(PointLayout, DropsDescriptorsThatDoNotFit) {
  const PointLayout layout = layoutWith({ofType("A", 1), ofType("Wide", 7), ofType("B", 1)}, 3);
  EXPECT_THAT(extraNames(layout), ElementsAre("A", "ExtraBytes[0]", "ExtraBytes[1]"));
  EXPECT_THAT(layout.notes(),
              ElementsAre("extra bytes Wide: described but not in the records, found 2 bytes, "
                          "expected 8"));
}

TEST(PointLayout, StopsAtATypeOfUnknownWidth) {
  const PointLayout layout = layoutWith({ofType("A", 1), ofType("New", 31), ofType("B", 1)}, 3);
  EXPECT_THAT(extraNames(layout), ElementsAre("A", "ExtraBytes[0]", "ExtraBytes[1]"));
  EXPECT_THAT(layout.notes(), ElementsAre(HasSubstr("data type not known, found 31")));
}

TEST(PointLayout, MakesNamesUniqueAndSafe) {
  const PointLayout layout = layoutWith(
      {ofType("Intensity", 1), ofType("", 1), ofType("a/b\\c\n", 1), ofType("A", 1), ofType("A", 1),
       ofType("A_2", 1), ofType("A", 11), ofType("A[0]", 1), ofType(".", 1), ofType("Waveforms", 1),
       ofType("Gr\xC3\xBC\xC3\x9F\x80", 1), ofType("", 1)},
      14);
  EXPECT_THAT(extraNames(layout), ElementsAre("Intensity_2", "Unnamed", "a_b_c_", "A", "A_2",
                                              "A_2_2", "A[0]", "A[1]", "A[0]_2", "_", "Waveforms_2",
                                              "Gr\xC3\xBC\xC3\x9F_", "Unnamed_2", "ExtraBytes[0]"));
}

TEST(PointLayout, CopesWithThousandsOfEqualNames) {
  const std::vector<ExtraBytesDescriptor> descriptors(60000, ofType("Same", 1));
  const PointLayout layout = layoutWith(descriptors, 60000);
  EXPECT_EQ(layout.fields().back().name, "Same_60000");
}

TEST(ExtraBytes, SurviveTheWayToBytesAndBack) {
  ExtraBytesDescriptor descriptor =
      describeExtraBytes("Height", ElementType::Int32, "above ground");
  descriptor.options = 0x1F;
  descriptor.noData = {std::int64_t{-9999}, std::int64_t{0}, std::int64_t{0}};
  descriptor.minimum = {std::int64_t{-5}, std::int64_t{0}, std::int64_t{0}};
  descriptor.maximum = {std::int64_t{5}, std::int64_t{0}, std::int64_t{0}};
  descriptor.scale = {0.01, 0, 0};
  descriptor.offset = {100, 0, 0};
  const std::vector<std::byte> bytes = serialiseExtraBytes({&descriptor, 1});
  ASSERT_EQ(bytes.size(), kExtraBytesDescriptorBytes);
  const std::vector<ExtraBytesDescriptor> read = parseExtraBytes(bytes);
  ASSERT_EQ(read.size(), 1U);
  EXPECT_EQ(read[0].name, "Height");
  EXPECT_EQ(read[0].description, "above ground");
  EXPECT_EQ(read[0].type, ElementType::Int32);
  EXPECT_EQ(read[0].noData, descriptor.noData);
  EXPECT_EQ(read[0].maximum, descriptor.maximum);
  EXPECT_EQ(read[0].scale, descriptor.scale);
  EXPECT_EQ(read[0].offset, descriptor.offset);
  EXPECT_TRUE(serialiseExtraBytes(read) == bytes);
}

TEST(ExtraBytes, ValuesCountOnlyWhereTheOptionsSaySo) {
  const std::vector<std::byte> bytes(kExtraBytesDescriptorBytes + 50, std::byte{0x41});
  std::vector<std::byte> single = bytes;
  storeValue(single.data() + kTypeAt, std::uint8_t{9});
  storeValue(single.data() + kTypeAt + 1, std::uint8_t{0x08});
  const std::vector<ExtraBytesDescriptor> read = parseExtraBytes(single);
  ASSERT_EQ(read.size(), 1U);
  EXPECT_FALSE(read[0].noData || read[0].minimum || read[0].maximum || read[0].offset);
  EXPECT_TRUE(read[0].scale.has_value());
  EXPECT_EQ(read[0].name, std::string(32, 'A'));
  // For an undocumented attribute the options are a width instead.
  storeValue(single.data() + kTypeAt, std::uint8_t{0});
  EXPECT_EQ(extraBytesWidth(parseExtraBytes(single)[0]), 8U);
  EXPECT_FALSE(parseExtraBytes(single)[0].scale.has_value());
}

}  // namespace
}  // namespace Formats
