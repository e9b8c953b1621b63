// SPDX-License-Identifier: Apache-2.0

#include "formats/las/WaveformSource.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "formats/las/LasWriter.hpp"
#include "formats/las/RecordColumns.hpp"
#include "tests/formats/LasTestFiles.hpp"
#include "tests/support/Seed.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::TempDir;
using LidarLib::TestSupport::testSeed;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

template <class T>
std::vector<T> columnOf(const LasFile& file, const std::vector<std::byte>& records,
                        const char* name) {
  std::vector<T> column(file.pointCount());
  const ColumnOutput output{file.layout().find(name), std::as_writable_bytes(std::span(column))};
  extractColumns(records, file.recordBytes(), {&output, 1});
  return column;
}

/// The packet references of all points.
std::vector<WaveformPacketRef> packetsOf(const LasFile& file) {
  const std::vector<std::byte> records = readAllRecords(file);
  const auto descriptors = columnOf<std::uint8_t>(file, records, "WaveDescriptor");
  const auto offsets = columnOf<std::uint64_t>(file, records, "WaveOffset");
  const auto sizes = columnOf<std::uint32_t>(file, records, "WaveSize");
  std::vector<WaveformPacketRef> packets(file.pointCount());
  for (std::size_t at = 0; at < packets.size(); ++at) {
    packets[at] = {descriptors[at], offsets[at], sizes[at]};
  }
  return packets;
}

std::shared_ptr<const WaveformSource> opened(const std::shared_ptr<const LasFile>& file) {
  auto source = WaveformSource::open(file);
  EXPECT_TRUE(source.ok()) << source.error();
  return source ? *source : nullptr;
}

TEST_F(LasData, WaveformsInsideEqualThoseBeside) {
  const auto beside = open("fwf/100429_152240_2535pt_UTM.las");
  const auto inside = open("fwf/riegl_2535pt_internal.las");
  ASSERT_TRUE(beside && inside);
  const auto besideSource = opened(beside);
  const auto insideSource = opened(inside);
  ASSERT_TRUE(besideSource && insideSource);
  EXPECT_FALSE(besideSource->isInternal());
  EXPECT_TRUE(insideSource->isInternal());
  const auto packets = packetsOf(*beside);
  const auto fromBeside = besideSource->readPackets(packets);
  const auto fromInside = insideSource->readPackets(packetsOf(*inside));
  ASSERT_TRUE(fromBeside.ok() && fromInside.ok());
  EXPECT_EQ(fromBeside->distinctPackets, 2375U);
  EXPECT_EQ(fromBeside->absentPackets, 0U);
  EXPECT_EQ(fromBeside->longestPacket, 120U);
  EXPECT_EQ(fromBeside->places.size(), 2535U);
  EXPECT_TRUE(fromBeside->samples == fromInside->samples);
}

TEST_F(LasData, PacketsPastTheEndAreAbsent) {
  const auto file = open("fwf/simple1_3.las");
  ASSERT_NE(file, nullptr);
  const auto source = opened(file);
  ASSERT_NE(source, nullptr);
  const auto packets = packetsOf(*file);
  const auto batch = source->readPackets(packets);
  ASSERT_TRUE(batch.ok()) << batch.error();
  EXPECT_EQ(batch->absentPackets, 999U);
  EXPECT_EQ(batch->distinctPackets, 0U);
  EXPECT_THAT(batch->samples, IsEmpty());
  std::vector<std::uint16_t> samples{1, 2};
  const auto isPresent = source->readPacket(packets.front(), samples);
  ASSERT_TRUE(isPresent.ok()) << isPresent.error();
  EXPECT_FALSE(*isPresent);
  EXPECT_THAT(samples, IsEmpty());
}

TEST_F(LasData, PacketsOfACompressedFileFillTheirWdp) {
  const auto file = open("fwf/Haus29_ID04_FWF_V13.laz");
  ASSERT_NE(file, nullptr);
  const auto source = opened(file);
  ASSERT_NE(source, nullptr);
  const auto batch = source->readPackets(packetsOf(*file));
  ASSERT_TRUE(batch.ok()) << batch.error();
  EXPECT_EQ(batch->distinctPackets, 149537U);
  EXPECT_EQ(batch->absentPackets, 0U);
  // Gapless from byte 230 to the end, 16 bits each.
  EXPECT_EQ(batch->samples.size(), (16449526U - 230U) / 2);
  ASSERT_NE(source->descriptor(1), nullptr);
  EXPECT_EQ(source->descriptor(1)->bitsPerSample, 16);
  EXPECT_EQ(source->descriptor(1)->sampleSpacingPicoseconds, 1005U);
}

TEST_F(LasData, OnePacketIsWhatTheBatchGives) {
  const auto file = open("fwf/100429_152240_2535pt_UTM.las");
  ASSERT_NE(file, nullptr);
  const auto source = opened(file);
  ASSERT_NE(source, nullptr);
  const auto packets = packetsOf(*file);
  const auto batch = source->readPackets(packets);
  ASSERT_TRUE(batch.ok());
  for (std::size_t at = 0; at < packets.size(); at += 37) {
    std::vector<std::uint16_t> samples;
    const auto isPresent = source->readPacket(packets[at], samples);
    ASSERT_TRUE(isPresent.ok() && *isPresent);
    const auto& place = batch->places[at];
    ASSERT_EQ(samples.size(), place.sampleCount);
    EXPECT_TRUE(
        std::equal(samples.begin(), samples.end(),
                   batch->samples.begin() + static_cast<std::ptrdiff_t>(place.firstSample)));
  }
}

/// A file with a descriptor of each kind and 1000 bytes of packets that count upwards.
class MadeUpWaveforms : public testing::Test {
 protected:
  void write(WaveformPlace place) {
    LasWriterOptions options;
    options.header.pointFormat = 9;
    options.waveforms = place;
    options.vlrs = {descriptorRecord(1, {8, 0, 10, 1000}), descriptorRecord(2, {16, 0, 5, 1000}),
                    descriptorRecord(3, {32, 0, 5, 1000}), descriptorRecord(4, {16, 1, 5, 1000}),
                    descriptorRecord(255, {16, 0, 0xFFFFFFFF, 1000})};
    auto writer = LasWriter::create(folder_ / "x.las", options);
    ASSERT_TRUE(writer.ok()) << writer.error();
    std::vector<std::byte> packet(1000);
    for (std::size_t at = 0; at < packet.size(); ++at) packet[at] = static_cast<std::byte>(at);
    ASSERT_TRUE((*writer)->writeWaveformPacket(packet).ok());
    ASSERT_TRUE((*writer)->finish().ok());
  }

  std::shared_ptr<const WaveformSource> source() {
    const auto file = LasFile::open(folder_ / "x.las");
    EXPECT_TRUE(file.ok()) << file.error();
    return opened(*file);
  }

  std::vector<std::uint16_t> samplesOf(const WaveformPacketRef& packet) {
    std::vector<std::uint16_t> samples;
    const auto isPresent = source()->readPacket(packet, samples);
    EXPECT_TRUE(isPresent.ok()) << isPresent.error();
    return samples;
  }

  std::string errorOf(const WaveformPacketRef& packet) {
    std::vector<std::uint16_t> samples;
    const auto isPresent = source()->readPacket(packet, samples);
    EXPECT_FALSE(isPresent.ok());
    return isPresent ? std::string() : isPresent.error();
  }

  TempDir folder_;

 private:
  static VariableRecord descriptorRecord(std::uint16_t index,
                                         const WaveformDescriptor& descriptor) {
    VariableRecord record;
    record.userId = kLasSpecUserId;
    record.recordId = static_cast<std::uint16_t>(99 + index);
    record.payload = serialiseWaveformDescriptor(descriptor);
    return record;
  }
};

TEST_F(MadeUpWaveforms, SamplesHaveOneOrTwoBytes) {
  for (const WaveformPlace place : {WaveformPlace::Inside, WaveformPlace::Beside}) {
    write(place);
    EXPECT_EQ(source()->isInternal(), place == WaveformPlace::Inside);
    EXPECT_THAT(samplesOf({1, 60, 3}), ElementsAre(0, 1, 2));
    EXPECT_THAT(samplesOf({2, 60 + 10, 4}), ElementsAre(0x0B0A, 0x0D0C));
    // Padding behind the samples that the descriptor knows, and half a sample at the end.
    EXPECT_EQ(samplesOf({1, 60, 30}).size(), 10U);
    EXPECT_EQ(samplesOf({2, 60, 5}).size(), 2U);
    EXPECT_THAT(samplesOf({1, 1060, 0}), IsEmpty());
  }
}

TEST_F(MadeUpWaveforms, TellsAbsentPacketsFromThoseItCannotRead) {
  write(WaveformPlace::Inside);
  EXPECT_THAT(samplesOf({0, 60, 4}), IsEmpty());
  EXPECT_THAT(samplesOf({2, 1059, 2}), IsEmpty());
  EXPECT_THAT(samplesOf({2, ~std::uint64_t{0}, 2}), IsEmpty());
  EXPECT_THAT(samplesOf({255, 60, 0xFFFFFFFF}), IsEmpty());
  EXPECT_THAT(errorOf({7, 60, 4}), HasSubstr("waveform descriptor 7 missing"));
  EXPECT_THAT(errorOf({3, 60, 4}), HasSubstr("found 32 bits, expected 8 or 16"));
  EXPECT_THAT(errorOf({4, 60, 4}), HasSubstr("compressed packets cannot be read, found type 1"));
}

TEST_F(MadeUpWaveforms, SharedPacketsAreReadOnce) {
  write(WaveformPlace::Beside);
  const std::vector<WaveformPacketRef> packets{{2, 160, 4},  {1, 60, 2},  {2, 160, 4}, {0, 0, 0},
                                               {2, 5000, 4}, {1, 160, 4}, {2, 160, 4}};
  const auto batch = source()->readPackets(packets);
  ASSERT_TRUE(batch.ok()) << batch.error();
  EXPECT_EQ(batch->distinctPackets, 3U);
  EXPECT_EQ(batch->withoutWaveform, 1U);
  EXPECT_EQ(batch->absentPackets, 1U);
  EXPECT_EQ(batch->longestPacket, 4U);
  EXPECT_EQ(batch->samples.size(), 2U + 4U + 2U);
  EXPECT_EQ(batch->places[0].firstSample, batch->places[6].firstSample);
  EXPECT_EQ(batch->places[3].sampleCount, 0U);
}

TEST_F(MadeUpWaveforms, RandomBatchesEqualSinglePackets) {
  write(WaveformPlace::Inside);
  std::mt19937_64 random(testSeed());
  std::vector<WaveformPacketRef> packets(300);
  for (WaveformPacketRef& packet : packets) {
    packet = {static_cast<std::uint8_t>(random() % 3), 60 + random() % 1020,
              static_cast<std::uint32_t>(random() % 20)};
  }
  const auto batch = source()->readPackets(packets);
  ASSERT_TRUE(batch.ok()) << batch.error();
  for (std::size_t at = 0; at < packets.size(); ++at) {
    const auto& place = batch->places[at];
    const auto first = batch->samples.begin() + static_cast<std::ptrdiff_t>(place.firstSample);
    EXPECT_EQ(std::vector<std::uint16_t>(first, first + place.sampleCount), samplesOf(packets[at]));
  }
}

TEST_F(MadeUpWaveforms, RefusesPacketsThatCoverTheFileManyTimes) {
  write(WaveformPlace::Inside);
  std::vector<WaveformPacketRef> packets;
  for (std::uint32_t at = 0; at < 30; ++at) packets.push_back({255, 60 + at, 900});
  const auto batch = source()->readPackets(packets);
  ASSERT_FALSE(batch.ok());
  EXPECT_THAT(batch.error(), HasSubstr("overlap too much"));
}

TEST_F(MadeUpWaveforms, FindsPacketsUnderACapitalExtension) {
  write(WaveformPlace::Beside);
  std::filesystem::rename(folder_ / "x.wdp", folder_ / "x.WDP");
  EXPECT_EQ(source()->packetPath(), folder_ / "x.WDP");
  EXPECT_THAT(samplesOf({1, 60, 3}), ElementsAre(0, 1, 2));
}

TEST_F(MadeUpWaveforms, MissingPacketFileIsNamed) {
  write(WaveformPlace::Beside);
  std::filesystem::remove(folder_ / "x.wdp");
  const auto file = LasFile::open(folder_ / "x.las");
  ASSERT_TRUE(file.ok());
  const auto source = WaveformSource::open(*file);
  ASSERT_FALSE(source.ok());
  EXPECT_EQ(source.error(), folder_ / "x.las" + ": waveform packets missing, expected " +
                                (folder_ / "x.wdp") + " beside it");
}

TEST_F(LasData, FileWithoutWaveformsIsRefused) {
  const auto file = open("small/mvk-thin.las");
  ASSERT_NE(file, nullptr);
  EXPECT_FALSE(WaveformSource::hasWaveforms(*file));
  EXPECT_THAT(WaveformSource::open(file).error(), HasSubstr("no waveforms, found point format 1"));
}

}  // namespace
}  // namespace Formats
