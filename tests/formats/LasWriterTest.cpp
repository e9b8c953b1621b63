// SPDX-License-Identifier: Apache-2.0

#include "formats/las/LasWriter.hpp"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "formats/las/ByteStream.hpp"
#include "formats/las/LasFile.hpp"
#include "formats/las/RecordColumns.hpp"
#include "formats/las/WaveformSource.hpp"
#include "tests/formats/LasTestFiles.hpp"
#include "tests/support/FileSizeLimit.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

LasWriterOptions optionsFor(std::uint8_t versionMinor, std::uint8_t pointFormat) {
  LasWriterOptions options;
  options.header.versionMinor = versionMinor;
  options.header.pointFormat = pointFormat;
  options.header.scale = {0.01, 0.02, -0.5};
  options.header.offset = {100, -7, 1e6};
  return options;
}

std::vector<std::string> entriesOf(const TempDir& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::unique_ptr<LasWriter> created(const std::string& path, LasWriterOptions options) {
  auto writer = LasWriter::create(path, std::move(options));
  EXPECT_TRUE(writer.ok()) << writer.error();
  return writer ? std::move(*writer) : nullptr;
}

std::shared_ptr<LasFile> opened(const std::string& path) {
  auto file = LasFile::open(path);
  EXPECT_TRUE(file.ok()) << file.error();
  return file ? *file : nullptr;
}

struct Kind {
  std::uint8_t versionMinor;
  std::uint8_t pointFormat;
  bool isCompressed;
};

void PrintTo(const Kind& kind, std::ostream* stream) {
  *stream << fmt::format("1.{} format {}{}", kind.versionMinor, kind.pointFormat,
                         kind.isCompressed ? ", compressed" : "");
}

std::vector<Kind> allKinds() {
  std::vector<Kind> kinds;
  const auto add = [&kinds](std::uint8_t minor, std::uint8_t newestFormat) {
    for (std::uint8_t format = 0; format <= newestFormat; ++format) {
      kinds.push_back({minor, format, false});
      kinds.push_back({minor, format, true});
    }
  };
  add(4, kMaxPointFormat);
  add(3, 5);
  add(2, 3);
  add(1, 1);
  add(0, 1);
  return kinds;
}

class LasWriterOfKind : public testing::TestWithParam<Kind> {};

INSTANTIATE_TEST_SUITE_P(All, LasWriterOfKind, testing::ValuesIn(allKinds()));

TEST_P(LasWriterOfKind, WritesWhatTheReaderReads) {
  const TempDir folder;
  const Kind kind = GetParam();
  const std::vector<std::byte> records = surveyRecords(kind.pointFormat, 3, 5000, 11);
  LasWriterOptions options = optionsFor(kind.versionMinor, kind.pointFormat);
  options.header.recordBytes =
      static_cast<std::uint16_t>(standardRecordBytes(kind.pointFormat) + 3);
  options.header.isCompressed = kind.isCompressed;
  options.vlrs.push_back({1, "someone", 42, "a thing", std::vector<std::byte>(77, std::byte{9})});
  const auto writer = created(folder / "x.las", options);
  ASSERT_NE(writer, nullptr);
  const std::size_t half = 1234U * options.header.recordBytes;
  ASSERT_TRUE(writer->writeRecords(std::span(records).first(half)).ok());
  ASSERT_TRUE(writer->writeRecords(std::span(records).subspan(half)).ok());
  ASSERT_TRUE(writer->finish().ok());
  EXPECT_THAT(entriesOf(folder), ElementsAre("x.las"));

  const auto file = opened(folder / "x.las");
  ASSERT_NE(file, nullptr);
  EXPECT_THAT(file->notes(), IsEmpty());
  EXPECT_EQ(file->header().versionMinor, kind.versionMinor);
  EXPECT_EQ(file->pointCount(), 5000U);
  EXPECT_EQ(file->header().legacyPointCount, kind.pointFormat >= 6 ? 0U : 5000U);
  EXPECT_EQ(file->isCompressed(), kind.isCompressed);
  ASSERT_EQ(file->vlrs().size(), kind.isCompressed ? 2U : 1U);
  EXPECT_EQ(file->vlrs()[0].userId, "someone");
  EXPECT_EQ(file->vlrs()[0].description, "a thing");
  EXPECT_EQ(file->vlrs()[0].reserved, 1);
  EXPECT_TRUE(file->vlrs()[0].payload == options.vlrs[0].payload);
  EXPECT_TRUE(readAllRecords(*file) == records);
}

TEST_P(LasWriterOfKind, HeaderTellsBoundsAndReturns) {
  const TempDir folder;
  const Kind kind = GetParam();
  const std::vector<std::byte> records = surveyRecords(kind.pointFormat, 0, 3000, 12);
  LasWriterOptions options = optionsFor(kind.versionMinor, kind.pointFormat);
  options.header.isCompressed = kind.isCompressed;
  const auto writer = created(folder / "x.las", options);
  ASSERT_NE(writer, nullptr);
  ASSERT_TRUE(writer->writeRecords(records).ok());
  EXPECT_EQ(writer->pointCount(), 3000U);
  ASSERT_TRUE(writer->finish().ok());
  const auto file = opened(folder / "x.las");
  ASSERT_NE(file, nullptr);

  std::vector<double> positions(3000 * 3);
  extractPositions(records, file->recordBytes(), {options.header.scale, options.header.offset},
                   positions);
  std::vector<std::byte> returns(3000);
  const ColumnOutput output{file->layout().find("ReturnNumber"), returns};
  extractColumns(records, file->recordBytes(), {&output, 1});
  for (std::size_t axis = 0; axis < 3; ++axis) {
    double least = positions[axis];
    double most = positions[axis];
    for (std::size_t at = axis; at < positions.size(); at += 3) {
      least = std::min(least, positions[at]);
      most = std::max(most, positions[at]);
    }
    EXPECT_EQ(file->header().minimum[axis], least);
    EXPECT_EQ(file->header().maximum[axis], most);
  }
  const std::size_t tracked = kind.versionMinor == 4 ? 15 : 5;
  for (std::size_t number = 1; number <= tracked; ++number) {
    const auto expected =
        std::count(returns.begin(), returns.end(), static_cast<std::byte>(number));
    EXPECT_EQ(file->header().pointsByReturn[number - 1], static_cast<std::uint64_t>(expected));
  }
}

TEST(LasWriter, FileWithoutPointsIsValid) {
  const TempDir folder;
  const auto writer = created(folder / "x.las", optionsFor(2, 0));
  ASSERT_TRUE(writer->finish().ok());
  const auto file = opened(folder / "x.las");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->pointCount(), 0U);
  EXPECT_EQ(file->header().maximum, (std::array<double, 3>{}));
}

TEST(LasWriter, NothingIsVisibleBeforeTheEnd) {
  const TempDir folder;
  {
    const auto writer = created(folder / "x.las", optionsFor(4, 6));
    ASSERT_TRUE(writer->writeRecords(surveyRecords(6, 0, 100, 1)).ok());
    EXPECT_THAT(entriesOf(folder), ElementsAre(testing::StartsWith("x.las.tmp.")));
  }
  EXPECT_THAT(entriesOf(folder), IsEmpty());
}

TEST(LasWriter, TwoWritersOfOneNameDoNotMeet) {
  const TempDir folder;
  const auto first = created(folder / "x.las", optionsFor(4, 6));
  const auto second = created(folder / "x.las", optionsFor(4, 6));
  ASSERT_TRUE(first->writeRecords(surveyRecords(6, 0, 3, 1)).ok());
  ASSERT_TRUE(second->finish().ok());
  ASSERT_TRUE(first->finish().ok());
  EXPECT_EQ(opened(folder / "x.las")->pointCount(), 3U);
  EXPECT_FALSE(first->finish().ok());
}

std::string refusal(LasWriterOptions options) {
  const TempDir folder;
  const auto writer = LasWriter::create(folder / "x.las", std::move(options));
  EXPECT_FALSE(writer.ok());
  EXPECT_THAT(entriesOf(folder), IsEmpty());
  const std::string path = folder / "x.las: ";
  return writer ? std::string() : writer.error().substr(path.size());
}

TEST(LasWriter, RefusesWhatTheVersionLacks) {
  EXPECT_EQ(refusal(optionsFor(3, 6)), "LAS 1.3 cannot hold point format 6");
  EXPECT_EQ(refusal(optionsFor(2, 4)), "LAS 1.2 cannot hold point format 4");
  EXPECT_EQ(refusal(optionsFor(1, 2)), "LAS 1.1 cannot hold point format 2");
  EXPECT_THAT(refusal(optionsFor(5, 6)), HasSubstr("version not known, found 1.5"));
  EXPECT_THAT(refusal(optionsFor(4, 11)), HasSubstr("found 11"));
  LasWriterOptions options = optionsFor(3, 1);
  options.evlrs.emplace_back();
  EXPECT_EQ(refusal(options), "LAS 1.3 cannot hold extended variable length records");
  options = optionsFor(4, 6);
  options.vlrs.emplace_back();
  options.vlrs[0].payload.resize(65536);
  EXPECT_THAT(refusal(options), HasSubstr("too long, found 65536 bytes, expected at most 65535"));
  options = optionsFor(4, 6);
  options.waveforms = WaveformPlace::Inside;
  EXPECT_THAT(refusal(options), HasSubstr("waveforms need another point format, found 6"));
}

TEST(LasWriter, SaysWhereItCannotWrite) {
  const TempDir folder;
  const auto writer = LasWriter::create(folder / "none/x.las", optionsFor(4, 6));
  ASSERT_FALSE(writer.ok());
  EXPECT_EQ(writer.error(),
            folder / "none/x.las" + ": cannot be created, No such file or directory");
}

TEST(LasWriter, FullDiskIsAFailureAndLeavesNothing) {
  const TempDir folder;
  {
    const auto writer = created(folder / "x.las", optionsFor(4, 6));
    const LidarLib::TestSupport::FileSizeLimit limit(1 << 20);
    const std::vector<std::byte> records = surveyRecords(6, 0, 100000, 1);
    const auto written = writer->writeRecords(records);
    EXPECT_FALSE(written.ok());
    EXPECT_EQ(written.error(), folder / "x.las" + ": cannot be written, File too large");
    EXPECT_FALSE(writer->finish().ok());
  }
  EXPECT_THAT(entriesOf(folder), IsEmpty());
}

TEST(LasWriter, ExtendedRecordsFollowThePackets) {
  const TempDir folder;
  LasWriterOptions options = optionsFor(4, 9);
  options.waveforms = WaveformPlace::Inside;
  options.evlrs.push_back({0, "someone", 7, "", std::vector<std::byte>(100000, std::byte{1})});
  const auto writer = created(folder / "x.las", options);
  const std::vector<std::byte> packet(24, std::byte{5});
  EXPECT_EQ(*writer->writeWaveformPacket(packet), kEvlrHeaderBytes);
  ASSERT_TRUE(writer->writeRecords(surveyRecords(9, 0, 10, 1)).ok());
  EXPECT_EQ(*writer->writeWaveformPacket(packet), kEvlrHeaderBytes + 24);
  ASSERT_TRUE(writer->finish().ok());
  EXPECT_THAT(entriesOf(folder), ElementsAre("x.las"));
  const auto file = opened(folder / "x.las");
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(file->evlrs().size(), 2U);
  EXPECT_EQ(file->evlrs()[0].payloadBytes, 48U);
  EXPECT_FALSE(file->evlrs()[0].isLoaded);
  EXPECT_TRUE(file->evlrs()[1].payload == options.evlrs[0].payload);
  EXPECT_EQ(file->header().globalEncoding, kWaveformsInside);
}

TEST(LasWriter, PacketsBesideGetTheirOwnFile) {
  const TempDir folder;
  LasWriterOptions options = optionsFor(3, 4);
  options.waveforms = WaveformPlace::Beside;
  const auto writer = created(folder / "a.b.las", options);
  ASSERT_TRUE(writer->writeWaveformPacket(std::vector<std::byte>(10)).ok());
  ASSERT_TRUE(writer->finish().ok());
  EXPECT_THAT(entriesOf(folder), ElementsAre("a.b.las", "a.b.wdp"));
  EXPECT_EQ(std::filesystem::file_size(folder.path() / "a.b.wdp"), kEvlrHeaderBytes + 10);
  EXPECT_EQ(opened(folder / "a.b.las")->header().globalEncoding, kWaveformsOutside);
}

TEST(LasWriter, PacketWithoutPlaceIsRefused) {
  const TempDir folder;
  const auto writer = created(folder / "x.las", optionsFor(4, 9));
  EXPECT_THAT(writer->writeWaveformPacket(std::vector<std::byte>(10)).error(),
              HasSubstr("waveforms have no place"));
}

class LasWriterData : public LasData, public testing::WithParamInterface<KnownFile> {};

INSTANTIATE_TEST_SUITE_P(Known, LasWriterData, testing::ValuesIn(smallKnownFiles()), testNameOf);

void expectWrittenBack(const LasFile& source, bool isCompressed) {
  const TempDir folder;
  LasWriterOptions options{source.header(), source.vlrs(), source.evlrs()};
  options.header.isCompressed = isCompressed;
  std::erase_if(options.evlrs, [](const VariableRecord& record) { return !record.isLoaded; });
  const auto writer = created(folder / "x.las", options);
  ASSERT_NE(writer, nullptr);
  const std::vector<std::byte> records = readAllRecords(source);
  ASSERT_TRUE(writer->writeRecords(records).ok());
  ASSERT_TRUE(writer->finish().ok());
  const auto copy = opened(folder / "x.las");
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(readAllRecords(*copy) == records);
  EXPECT_EQ(copy->vlrs().size() + (source.isCompressed() ? 1U : 0U),
            source.vlrs().size() + (isCompressed ? 1U : 0U));
  EXPECT_EQ(copy->header().systemIdentifier, source.header().systemIdentifier);
  EXPECT_EQ(copy->header().projectGuid, source.header().projectGuid);
  EXPECT_EQ(copy->layout().fields().size(), source.layout().fields().size());
}

TEST_P(LasWriterData, RealFileIsWrittenBackWithAllItsRecords) {
  const auto source = open(GetParam().name);
  ASSERT_NE(source, nullptr);
  expectWrittenBack(*source, false);
  expectWrittenBack(*source, true);
}

}  // namespace
}  // namespace Formats
