// SPDX-License-Identifier: Apache-2.0

#include "formats/las/LasHeader.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "formats/las/ByteStream.hpp"
#include "tests/formats/LasTestFiles.hpp"

namespace Formats {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr std::size_t kVersionMinorAt = 25;
constexpr std::size_t kHeaderBytesAt = 94;
constexpr std::size_t kPointFormatAt = 104;
constexpr std::size_t kRecordBytesAt = 105;
constexpr std::size_t kLegacyCountAt = 107;
constexpr std::size_t kScaleAt = 131;
constexpr std::size_t kOffsetAt = 155;
constexpr std::size_t kPointCountAt = 247;

/// A header with something in every member that its version has.
LasHeader fullHeader(std::uint8_t versionMinor) {
  LasHeader header;
  header.fileSourceId = 17;
  header.globalEncoding = kGpsTimeIsStandard | kWktCoordinateSystem;
  header.projectGuid.fill(std::byte{0xA5});
  header.versionMinor = versionMinor;
  header.systemIdentifier = "MERGE";
  header.generatingSoftware = "a name of thirty-two characters!";
  header.creationDayOfYear = 77;
  header.creationYear = 2021;
  header.pointDataOffset = 1000;
  header.variableRecordCount = 3;
  header.pointFormat = 1;
  header.recordBytes = 31;
  header.scale = {0.01, 1e-7, -3};
  header.offset = {-5, 1e9, 0.5};
  header.minimum = {1, 2, 3};
  header.maximum = {4, 5, 6};
  header.legacyPointCount = 100;
  header.legacyPointsByReturn = {60, 30, 8, 1, 1};
  header.pointCount = 100;
  std::copy_n(header.legacyPointsByReturn.begin(), 5, header.pointsByReturn.begin());
  header.waveformDataOffset = versionMinor >= 3 ? 4000 : 0;
  header.firstEvlrOffset = versionMinor >= 4 ? 4100 : 0;
  header.evlrCount = versionMinor >= 4 ? 2 : 0;
  header.trailingBytes = {std::byte{1}, std::byte{2}, std::byte{3}};
  return header;
}

std::vector<std::byte> bytesOfVersion(std::uint8_t versionMinor) {
  return serialiseLasHeader(fullHeader(versionMinor));
}

std::string errorOf(std::span<const std::byte> bytes) {
  const auto header = parseLasHeader(bytes, "dir/x.las");
  EXPECT_FALSE(header.ok());
  return header ? std::string() : header.error();
}

TEST(LasHeader, SurvivesTheWayToBytesAndBack) {
  for (std::uint8_t minor = 0; minor <= 4; ++minor) {
    const std::vector<std::byte> bytes = bytesOfVersion(minor);
    EXPECT_EQ(bytes.size(), standardHeaderBytes(minor) + 3);
    const auto header = parseLasHeader(bytes, "x");
    ASSERT_TRUE(header.ok()) << header.error();
    EXPECT_EQ(header->headerBytes, bytes.size());
    EXPECT_EQ(header->generatingSoftware, fullHeader(minor).generatingSoftware);
    EXPECT_EQ(header->maximum, fullHeader(minor).maximum);
    EXPECT_EQ(header->pointCount, 100U);
    EXPECT_EQ(header->pointsByReturn, fullHeader(minor).pointsByReturn);
    EXPECT_EQ(header->trailingBytes, fullHeader(minor).trailingBytes);
    EXPECT_TRUE(serialiseLasHeader(*header) == bytes) << int{minor};
  }
}

TEST(LasHeader, ReadsVersion15AsVersion14) {
  std::vector<std::byte> bytes = bytesOfVersion(4);
  bytes.resize(393);
  storeValue(bytes.data() + kVersionMinorAt, std::uint8_t{5});
  storeValue(bytes.data() + kHeaderBytesAt, std::uint16_t{393});
  const auto header = parseLasHeader(bytes, "x");
  ASSERT_TRUE(header.ok()) << header.error();
  EXPECT_EQ(header->versionMinor, 5);
  EXPECT_EQ(header->evlrCount, 2U);
  EXPECT_EQ(header->trailingBytes.size(), 18U);
}

TEST(LasHeader, TakesTheCountThatTheVersionMeans) {
  std::vector<std::byte> bytes = bytesOfVersion(4);
  storeValue(bytes.data() + kPointCountAt, std::uint64_t{5'000'000'000});
  EXPECT_EQ(parseLasHeader(bytes, "x")->pointCount, 5'000'000'000U);
  storeValue(bytes.data() + kLegacyCountAt, std::uint32_t{0});
  EXPECT_EQ(parseLasHeader(bytes, "x")->pointCount, 5'000'000'000U);
  storeValue(bytes.data() + kPointCountAt, std::uint64_t{0});
  EXPECT_EQ(parseLasHeader(bytes, "x")->pointCount, 0U);
  storeValue(bytes.data() + kLegacyCountAt, std::uint32_t{7});
  EXPECT_EQ(parseLasHeader(bytes, "x")->pointCount, 7U);
}

TEST(LasHeader, SeparatesCompressionFromPointFormat) {
  std::vector<std::byte> bytes = bytesOfVersion(2);
  storeValue(bytes.data() + kPointFormatAt, std::uint8_t{0x81});
  const auto header = parseLasHeader(bytes, "x");
  ASSERT_TRUE(header.ok());
  EXPECT_TRUE(header->isCompressed);
  EXPECT_EQ(header->pointFormat, 1);
  EXPECT_TRUE(serialiseLasHeader(*header) == bytes);
}

TEST(LasHeader, RefusesWhatIsNoHeader) {
  EXPECT_EQ(errorOf({}), "dir/x.las: not a LAS file, found an empty file");
  std::vector<std::byte> bytes = bytesOfVersion(2);
  bytes[3] = std::byte{'X'};
  EXPECT_EQ(errorOf(bytes),
            "dir/x.las: not a LAS file, found first bytes 4c 41 53 58, expected 4c 41 53 46");
  EXPECT_THAT(errorOf(std::span(bytes).first(2)), StartsWith("dir/x.las: LAS header cut off"));
}

TEST(LasHeader, RefusesEveryLengthShorterThanItself) {
  for (std::uint8_t minor = 0; minor <= 4; ++minor) {
    const std::vector<std::byte> bytes = bytesOfVersion(minor);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      EXPECT_FALSE(parseLasHeader(std::span(bytes).first(length), "x").ok()) << length;
    }
  }
}

template <class T>
std::string errorAfter(std::uint8_t versionMinor, std::size_t at, T value) {
  std::vector<std::byte> bytes = bytesOfVersion(versionMinor);
  storeValue(bytes.data() + at, value);
  return errorOf(bytes);
}

TEST(LasHeader, RefusesValuesThatCannotBe) {
  EXPECT_EQ(errorAfter(2, kVersionMinorAt, std::uint8_t{6}),
            "dir/x.las: LAS version not known, found 1.6, expected 1.0 to 1.5");
  EXPECT_EQ(errorAfter(2, kVersionMinorAt - 1, std::uint8_t{2}),
            "dir/x.las: LAS version not known, found 2.2, expected 1.0 to 1.5");
  EXPECT_EQ(errorAfter(4, kHeaderBytesAt, std::uint16_t{235}),
            "dir/x.las: LAS 1.4 header too short, found 235 bytes, expected 375");
  EXPECT_EQ(errorAfter(2, kHeaderBytesAt, std::uint16_t{60000}),
            "dir/x.las: LAS header cut off, found 230 bytes, expected 60000");
  EXPECT_EQ(errorAfter(2, kPointFormatAt, std::uint8_t{11}),
            "dir/x.las: point format not known, found 11, expected 0 to 10");
  EXPECT_EQ(
      errorAfter(2, kRecordBytesAt, std::uint16_t{27}),
      "dir/x.las: point records too short for format 1, found 27 bytes, expected at least 28");
  EXPECT_EQ(errorAfter(2, kScaleAt + 8, 0.0),
            "dir/x.las: y scale cannot be used, found 0, expected a finite number other than 0");
  EXPECT_THAT(errorAfter(2, kOffsetAt, std::numeric_limits<double>::infinity()),
              HasSubstr("x offset cannot be used, found inf"));
}

class LasHeaderData : public LasData, public testing::WithParamInterface<KnownFile> {};

INSTANTIATE_TEST_SUITE_P(Known, LasHeaderData, testing::ValuesIn(smallKnownFiles()), testNameOf);

TEST_P(LasHeaderData, IsWrittenBackAsItWas) {
  const std::vector<std::byte> bytes = readFile(path(GetParam().name));
  const auto header = parseLasHeader(bytes, "x");
  ASSERT_TRUE(header.ok()) << header.error();
  const std::vector<std::byte> written = serialiseLasHeader(*header);
  ASSERT_EQ(written.size(), header->headerBytes);
  EXPECT_TRUE(std::equal(written.begin(), written.end(), bytes.begin()));
}

}  // namespace
}  // namespace Formats
