// SPDX-License-Identifier: Apache-2.0

#include "formats/las/WaveformPacketWriter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "formats/las/LasFile.hpp"
#include "formats/las/LasWriter.hpp"
#include "formats/las/WaveformSource.hpp"
#include "tests/formats/LasTestFiles.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::TempDir;
using testing::HasSubstr;

constexpr std::uint32_t kPacketBytes = 8;

VariableRecord descriptorRecord() {
  VariableRecord record;
  record.userId = kLasSpecUserId;
  record.recordId = kFirstWaveformDescriptorId;
  record.payload = serialiseWaveformDescriptor({8, 0, kPacketBytes, 1000});
  return record;
}

std::unique_ptr<LasWriter> created(const std::string& path, WaveformPlace place,
                                   bool isCompressed) {
  LasWriterOptions options;
  options.header.pointFormat = 9;
  options.header.isCompressed = isCompressed;
  options.vlrs.push_back(descriptorRecord());
  options.evlrs.push_back({0, "someone", 7, "", std::vector<std::byte>(99, std::byte{1})});
  options.waveforms = place;
  auto writer = LasWriter::create(path, std::move(options));
  EXPECT_TRUE(writer.ok()) << writer.error();
  return writer ? std::move(*writer) : nullptr;
}

std::vector<std::byte> packetOf(int number) {
  return std::vector<std::byte>(kPacketBytes, static_cast<std::byte>(number));
}

std::uint64_t placeOf(int number) {
  return kEvlrHeaderBytes + kPacketBytes * static_cast<std::uint64_t>(number);
}

/// Packets 1 to 99, the odd ones backwards in a thread of their own; none has the place of 0.
void writePackets(LasWriter& writer) {
  std::thread other([&] {
    for (int number = 99; number > 0; number -= 2) {
      EXPECT_TRUE(writer.writeWaveformPacketAt(placeOf(number), packetOf(number)).ok());
    }
  });
  for (int number = 2; number < 100; number += 2) {
    EXPECT_TRUE(writer.writeWaveformPacketAt(placeOf(number), packetOf(number)).ok());
  }
  other.join();
}

void expectPackets(const std::string& path, bool isInternal) {
  const auto file = LasFile::open(path);
  ASSERT_TRUE(file.ok()) << file.error();
  EXPECT_THAT((*file)->notes(), testing::IsEmpty());
  EXPECT_EQ((*file)->evlrs().back().payload.size(), 99U);
  const auto source = WaveformSource::open(*file);
  ASSERT_TRUE(source.ok()) << source.error();
  EXPECT_EQ((*source)->isInternal(), isInternal);
  std::vector<std::uint16_t> samples;
  for (int number = 0; number < 100; ++number) {
    const auto isPresent = (*source)->readPacket({1, placeOf(number), kPacketBytes}, samples);
    ASSERT_TRUE(isPresent.ok()) << isPresent.error();
    EXPECT_TRUE(*isPresent);
    EXPECT_EQ(samples,
              std::vector<std::uint16_t>(kPacketBytes, static_cast<std::uint16_t>(number)));
  }
}

TEST(WaveformPacketWriter, PacketsStandWhereTheyWereGiven) {
  for (const bool isCompressed : {false, true}) {
    for (const auto place : {WaveformPlace::Inside, WaveformPlace::Beside}) {
      const TempDir folder;
      const auto writer = created(folder / "x.laz", place, isCompressed);
      const auto first = writer->reserveWaveformPackets(100 * kPacketBytes);
      ASSERT_TRUE(first.ok());
      EXPECT_EQ(*first, kEvlrHeaderBytes);
      const std::vector<std::byte> records = surveyRecords(9, 0, 1000, 1);
      ASSERT_TRUE(writer->writeRecords(records).ok());
      writePackets(*writer);
      ASSERT_TRUE(writer->finish().ok());
      EXPECT_EQ(std::filesystem::exists(folder / "x.wdp"), place == WaveformPlace::Beside);
      expectPackets(folder / "x.laz", place == WaveformPlace::Inside);
      EXPECT_TRUE(readAllRecords(**LasFile::open(folder / "x.laz")) == records);
    }
  }
}

TEST(WaveformPacketWriter, AppendedPacketsFollowTheReservedOnes) {
  const TempDir folder;
  const auto writer = created(folder / "x.las", WaveformPlace::Beside, false);
  EXPECT_EQ(*writer->writeWaveformPacket(packetOf(1)), kEvlrHeaderBytes);
  EXPECT_EQ(*writer->reserveWaveformPackets(16), kEvlrHeaderBytes + kPacketBytes);
  EXPECT_EQ(*writer->writeWaveformPacket(packetOf(2)), kEvlrHeaderBytes + kPacketBytes + 16);
  ASSERT_TRUE(writer->finish().ok());
  const std::vector<std::byte> bytes = readFile(folder / "x.wdp");
  ASSERT_EQ(bytes.size(), kEvlrHeaderBytes + 32);
  EXPECT_EQ(bytes[kEvlrHeaderBytes + kPacketBytes], std::byte{0});
  EXPECT_EQ(bytes.back(), std::byte{2});
}

TEST(WaveformPacketWriter, RefusesPlacesThatWereNotReserved) {
  const TempDir folder;
  const auto writer = created(folder / "x.las", WaveformPlace::Inside, false);
  ASSERT_TRUE(writer->reserveWaveformPackets(12).ok());
  EXPECT_EQ(
      writer->writeWaveformPacketAt(65, packetOf(1)).error(),
      folder / "x.wdp" +
          ": waveform packet has no place, found 8 bytes at byte 65, expected bytes 60 to 72");
  for (const std::uint64_t offset : {std::uint64_t{0}, std::uint64_t{59}, ~std::uint64_t{0}}) {
    EXPECT_FALSE(writer->writeWaveformPacketAt(offset, packetOf(1)).ok()) << offset;
  }
  EXPECT_FALSE(writer->finish().ok());
}

TEST(WaveformPacketWriter, MoreThanAFileHoldsIsRefused) {
  const TempDir folder;
  const auto writer = created(folder / "x.las", WaveformPlace::Inside, false);
  EXPECT_EQ(writer->reserveWaveformPackets(~std::uint64_t{0}).error(),
            folder / "x.wdp: cannot be written, File too large");
  const auto without = created(folder / "y.las", WaveformPlace::Nowhere, false);
  EXPECT_THAT(without->reserveWaveformPackets(1).error(), HasSubstr("waveforms have no place"));
  EXPECT_THAT(without->writeWaveformPacketAt(60, packetOf(1)).error(),
              HasSubstr("waveforms have no place"));
}

}  // namespace
}  // namespace Formats
