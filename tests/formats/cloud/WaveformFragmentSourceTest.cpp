// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/WaveformFragmentSource.hpp"

#include <gmock/gmock.h>

#include "formats/las/ByteStream.hpp"
#include "tests/formats/cloud/CloudTestFiles.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::TempDir;
using Samples = Fiber::MemArray<2, std::uint16_t>;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Where format 4 keeps descriptor, offset and size of the packet.
constexpr std::size_t kPacketAt = 28;

/// A made-up survey of format 4 whose packets are given point by point.
class WaveformFile {
 public:
  explicit WaveformFile(std::size_t points) : records_(surveyRecords(4, 0, points, 3)) {
    options_ = lasOptions(4);
    options_.header.versionMinor = 3;
    options_.waveforms = WaveformPlace::Beside;
    for (std::size_t point = 0; point < points; ++point) name(point, {});
  }

  void describe(std::uint8_t index, const WaveformDescriptor& descriptor) {
    VariableRecord record;
    record.userId = kLasSpecUserId;
    record.recordId = static_cast<std::uint16_t>(99 + index);
    record.payload = serialiseWaveformDescriptor(descriptor);
    options_.vlrs.push_back(record);
  }
  void name(std::size_t point, const WaveformPacketRef& packet) {
    std::byte* at = &records_[point * standardRecordBytes(4) + kPacketAt];
    storeValue(at, packet.descriptorIndex);
    storeValue(at + 1, packet.byteOffset);
    storeValue(at + 9, packet.byteSize);
  }
  /// Packets come one behind the other, the first at byte 60.
  void addPacket(const std::vector<std::uint16_t>& samples) { packets_.push_back(samples); }

  std::string write(const std::string& path) const {
    const auto writer = LasWriter::create(path, options_);
    EXPECT_TRUE(writer.ok()) << writer.error();
    for (const auto& packet : packets_) {
      EXPECT_TRUE((*writer)->writeWaveformPacket(std::as_bytes(std::span(packet))).ok());
    }
    EXPECT_TRUE((*writer)->writeRecords(records_).ok());
    EXPECT_TRUE((*writer)->finish().ok());
    return path;
  }

 private:
  LasWriterOptions options_;
  std::vector<std::byte> records_;
  std::vector<std::vector<std::uint16_t>> packets_;
};

WaveformDescriptor sixteenBits(std::uint32_t samples) { return {16, 0, samples, 1000, 1, 0}; }

std::vector<std::uint16_t> row(const Samples& samples, std::uint64_t point) {
  const auto rowSamples = static_cast<std::size_t>(samples.size()[0]);
  const auto part = samples.span().subspan(point * rowSamples, rowSamples);
  return {part.begin(), part.end()};
}

MemCore::StrongPtr<Samples> firstWaveforms(const TestCloud& cloud) {
  auto samples = MemCore::handleCast<Samples>(cloud.field("Waveforms")->getFirstCreator()->data());
  EXPECT_TRUE(bool(samples)) << cloud.field("Waveforms")->getFirstCreator()->failure();
  return samples;
}

}  // namespace

TEST(WaveformFragmentSource, ShortPacketsArePaddedAndSharedOnesRepeated) {
  const TempDir folder;
  WaveformFile file(4);
  file.describe(1, sixteenBits(4));
  file.describe(2, sixteenBits(2));
  file.addPacket({11, 12, 13, 14});
  file.addPacket({21, 22});
  file.name(0, {1, 60, 8});
  file.name(2, {2, 68, 4});
  file.name(3, {1, 60, 8});
  const TestCloud cloud = readCloud({file.write(folder / "a.las")});
  EXPECT_TRUE(cloud.summary.hasWaveforms);
  const auto samples = firstWaveforms(cloud);
  ASSERT_EQ(samples->size(), (Fiber::DynamicSize{4, 4}));
  EXPECT_THAT(row(*samples, 0), ElementsAre(11, 12, 13, 14));
  EXPECT_THAT(row(*samples, 1), ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(row(*samples, 2), ElementsAre(21, 22, 0, 0));
  EXPECT_THAT(row(*samples, 3), ElementsAre(11, 12, 13, 14));
  EXPECT_THAT(valuesOf<std::uint16_t>(*cloud.field("FWFLength")), ElementsAre(4, 0, 2, 4));
  EXPECT_THAT(cloud.summary.lateNotes(), IsEmpty());
}

TEST(WaveformFragmentSource, RowsAreAsLongAsTheLongestPacketOfTheFragment) {
  const TempDir folder;
  WaveformFile file(2);
  file.describe(1, sixteenBits(3));
  file.describe(2, sixteenBits(1000));  // used by no point
  file.addPacket({1, 2, 3});
  file.name(0, {1, 60, 6});
  const TestCloud cloud = readCloud({file.write(folder / "a.las")}, {"points", 0, 1});
  const auto waveforms = cloud.field("Waveforms");
  const auto fragments = cloud.fragments();
  ASSERT_EQ(fragments.size(), 2U);
  EXPECT_EQ(*Fiber::getSize(*waveforms->getCreator(fragments[0])), (Fiber::DynamicSize{3, 1}));
  // A row has a sample even if no point has any.
  EXPECT_EQ(*Fiber::getSize(*waveforms->getCreator(fragments[1])), (Fiber::DynamicSize{1, 1}));
}

TEST(WaveformFragmentSource, PacketsOutOfReachCountAsNoneAndAreToldAtTheEnd) {
  const TempDir folder;
  WaveformFile file(5);
  file.describe(1, sixteenBits(2));
  file.describe(2, {12, 0, 2, 1000, 1, 0});   // of 12 bits
  file.describe(3, sixteenBits(4000000000));  // longer than lengths can tell
  file.addPacket({1, 2});
  file.name(0, {1, 60, 4});
  file.name(1, {1, 64, 4});            // past the end
  file.name(2, {2, 60, 4});            // of a descriptor that cannot be read
  file.name(3, {9, 60, 4});            // of a descriptor that does not exist
  file.name(4, {3, 60, 4000000000U});  // too long
  const TestCloud cloud = readCloud({file.write(folder / "a.las")});
  EXPECT_TRUE(cloud.hasNote("waveform descriptor 2: packets cannot be read, found 12 bits"));
  EXPECT_THAT(cloud.summary.lateNotes(), IsEmpty());
  EXPECT_THAT(valuesOf<std::uint16_t>(*cloud.field("FWFLength")), ElementsAre(2, 0, 0, 0, 0));
  EXPECT_THAT(cloud.summary.lateNotes(),
              ElementsAre(HasSubstr("a.wdp: waveform packets of 4 points lie past the end")));
  MemCore::Cache::MemCache()->clear();
  EXPECT_EQ(bytesOf(*cloud.field("Waveforms")).size(), 5U * 2 * 2);
  EXPECT_THAT(cloud.summary.lateNotes(), ElementsAre(HasSubstr("packets of 4 points")));
}

TEST(WaveformFragmentSource, WithoutDescriptorsWaveformsAreLeftOut) {
  const TempDir folder;
  const TestCloud cloud = readCloud({WaveformFile(3).write(folder / "a.las")});
  EXPECT_FALSE(cloud.summary.hasWaveforms);
  EXPECT_TRUE(cloud.hasNote("a.las: no waveform descriptor that can be read: waveforms are left"));
  EXPECT_FALSE(bool(cloud.grid->getCartesianRepresentation("")->findField("Waveforms")));
  EXPECT_EQ(bytesOf(*cloud.field("WaveSize")).size(), 12U);
}

TEST(WaveformFragmentSource, WithoutItsPacketFileAFileCanStillBeRead) {
  const TempDir folder;
  WaveformFile file(3);
  file.describe(1, sixteenBits(2));
  const std::string path = file.write(folder / "a.las");
  std::filesystem::remove(folder / "a.wdp");
  const TestCloud cloud = readCloud({path});
  EXPECT_FALSE(cloud.summary.hasWaveforms);
  EXPECT_TRUE(cloud.hasNote("a.wdp"));
  EXPECT_TRUE(cloud.hasNote(": waveforms are left out"));
  EXPECT_EQ(cloud.summary.points, 3U);
}

TEST(WaveformFragmentSource, FilesWithoutWaveformsSupplyEmptyOnes) {
  const TempDir folder;
  WaveformFile file(2);
  file.describe(1, sixteenBits(2));
  file.addPacket({7, 8});
  file.name(1, {1, 60, 4});
  const TestCloud cloud =
      readCloud({file.write(folder / "a.las"), writeSurvey(folder / "b.las", 1, 3)});
  EXPECT_TRUE(cloud.hasNote("b.las: has no waveforms: empty ones are supplied"));
  EXPECT_THAT(valuesOf<std::uint16_t>(*cloud.field("FWFLength")), ElementsAre(0, 2, 0, 0, 0));
  EXPECT_THAT(valuesOf<std::uint16_t>(*cloud.field("Waveforms")), ElementsAre(0, 0, 7, 8, 0, 0, 0));
}

TEST(WaveformFragmentSource, ReadFailureNamesThePacketFile) {
  const TempDir folder;
  WaveformFile file(1);
  file.describe(1, sixteenBits(2));
  file.addPacket({7, 8});
  file.name(0, {1, 60, 4});
  const TestCloud cloud = readCloud({file.write(folder / "a.las")});
  std::filesystem::resize_file(folder / "a.wdp", 61);
  const auto creator = cloud.field("Waveforms")->getFirstCreator();
  EXPECT_FALSE(bool(creator->data()));
  EXPECT_THAT(creator->failure(), HasSubstr("a.wdp: "));
}

using WaveformFragmentSourceData = LasData;

TEST_F(WaveformFragmentSourceData, PacketsInsideAndBesideGiveTheSame) {
  const TestCloud beside = readCloud({path("fwf/100429_152240_2535pt_UTM.las")});
  const TestCloud inside = readCloud({path("fwf/riegl_2535pt_internal.las")});
  const auto lengths = valuesOf<std::uint16_t>(*beside.field("FWFLength"));
  EXPECT_EQ(valuesOf<std::uint16_t>(*inside.field("FWFLength")), lengths);
  EXPECT_EQ(bytesOf(*inside.field("Waveforms")), bytesOf(*beside.field("Waveforms")));
  EXPECT_EQ(firstWaveforms(beside)->size()[0], 120U);
  const auto shortOnes = std::ranges::count(lengths, 60);
  const auto longOnes = std::ranges::count(lengths, 120);
  EXPECT_GT(shortOnes, 0);
  EXPECT_GT(longOnes, 0);
  EXPECT_EQ(shortOnes + longOnes, 2535);
}

TEST_F(WaveformFragmentSourceData, EveryRowIsThePacketThatThePointNames) {
  const TestCloud cloud = readCloud({path("fwf/Haus29_ID04_FWF_V13.laz")}, {"points", 0, 50000});
  const auto file = open("fwf/Haus29_ID04_FWF_V13.laz");
  const auto source = WaveformSource::open(file);
  ASSERT_TRUE(source.ok()) << source.error();
  const auto records = readAllRecords(*file);
  std::size_t point = 0;
  for (const auto& fragment : cloud.fragments()) {
    const auto samples = MemCore::handleCast<Samples>(cloud.field("Waveforms")->getData(fragment));
    ASSERT_TRUE(bool(samples));
    for (std::uint64_t i = 0; i < samples->size()[1]; i += 97) {
      const std::byte* at = &records[(point + i) * file->recordBytes() + kPacketAt];
      std::vector<std::uint16_t> packet;
      const WaveformPacketRef named{loadValue<std::uint8_t>(at), loadValue<std::uint64_t>(at + 1),
                                    loadValue<std::uint32_t>(at + 9)};
      ASSERT_TRUE((*source)->readPacket(named, packet).ok());
      packet.resize(static_cast<std::size_t>(samples->size()[0]), 0);
      ASSERT_EQ(row(*samples, i), packet) << point + i;
    }
    point += static_cast<std::size_t>(samples->size()[1]);
  }
  EXPECT_EQ(point, 155528U);
}

TEST_F(WaveformFragmentSourceData, PacketsCutOffLeaveAllPointsWithoutWaveforms) {
  const TestCloud cloud = readCloud({path("fwf/simple1_3.las")});
  const auto lengths = valuesOf<std::uint16_t>(*cloud.field("FWFLength"));
  EXPECT_EQ(lengths, std::vector<std::uint16_t>(999, 0));
  EXPECT_THAT(cloud.summary.lateNotes(), ElementsAre(HasSubstr("packets of 999 points")));
}

}  // namespace Formats
