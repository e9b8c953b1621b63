// SPDX-License-Identifier: Apache-2.0

#include "formats/export/PacketPlan.hpp"

#include <gmock/gmock.h>

#include "formats/las/WaveformSource.hpp"
#include "tests/formats/export/ExportTestGrids.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;

using Samples = std::vector<std::uint16_t>;

/// What a point names, and the samples that are there.
struct Wave {
  std::uint8_t descriptor = 0;
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
  Samples samples;
};

VariableRecord descriptorOf(std::uint8_t index, std::uint8_t bits) {
  VariableRecord record;
  record.userId = kLasSpecUserId;
  record.recordId = static_cast<std::uint16_t>(kFirstWaveformDescriptorId + index - 1);
  record.payload = serialiseWaveformDescriptor({bits, 0, 60000, 1000, 1, 0});
  return record;
}

/// A grid of points with waveforms, fragment by fragment. Descriptor 1 has 16 bits, 2 has 8.
class WaveGrid {
 public:
  WaveGrid& fragment(const std::vector<Wave>& waves) {
    std::size_t stride = 1;
    for (const Wave& wave : waves) stride = std::max(stride, wave.samples.size());
    std::vector<std::uint8_t> descriptors;
    std::vector<std::uint64_t> offsets;
    std::vector<std::uint32_t> sizes;
    Samples lengths;
    Samples all;
    for (const Wave& wave : waves) {
      descriptors.push_back(wave.descriptor);
      offsets.push_back(wave.offset);
      sizes.push_back(wave.size);
      lengths.push_back(static_cast<std::uint16_t>(wave.samples.size()));
      all.insert(all.end(), wave.samples.begin(), wave.samples.end());
      all.resize(lengths.size() * stride);
    }
    cloud_.fragment(std::vector<Point>(waves.size())).field(kWaveDescriptorField, descriptors);
    cloud_.field(kWaveOffsetField, offsets).field(kWaveSizeField, sizes);
    cloud_.field("FWFLength", lengths).waveforms("Waveforms", stride, all);
    return *this;
  }

  ExportSource source(std::size_t fileCount = 1) {
    ExportSource source = sourceOf(cloud_);
    LasWriterOptions options = lasOptions(4);
    options.vlrs = {descriptorOf(1, 16), descriptorOf(2, 8)};
    for (std::size_t i = 0; i < fileCount; ++i) {
      source.files.push_back(sourceFile(std::to_string(i) + ".las", options));
    }
    return source;
  }

 private:
  CloudBuilder cloud_;
};

MemCore::Outcome<std::unique_ptr<PacketPlan>> plan(const ExportSource& source,
                                                   const PointChooser& choose = everyPoint()) {
  const PacketFields fields{*source.numberOf(kWaveDescriptorField),
                            *source.numberOf(kWaveOffsetField), *source.numberOf(kWaveSizeField)};
  return PacketPlan::make(source, source.fragments, fields, source.files.front().vlrs,
                          {choose, {}});
}

std::uint64_t bytesOf(const ExportSource& source, const PointChooser& choose = everyPoint()) {
  const auto made = plan(source, choose);
  EXPECT_TRUE(made.ok()) << made.error();
  return made ? (*made)->byteCount() : 0;
}

/// A written file: what its points name, and the samples found there.
struct Written {
  std::vector<std::uint64_t> offsets;
  std::vector<Samples> samples;
};
Written writtenOf(const ExportSource& source, const PointChooser& choose = everyPoint(),
                  WaveformPlace place = WaveformPlace::Beside) {
  const TempDir folder;
  ExportWishes wishes;
  wishes.las.waveforms = place;
  wishes.choose = choose;
  const auto file = exported(folder / "a.las", source, wishes);
  if (!file) return {};
  Written written{fieldValues<std::uint64_t>(*file, kWaveOffsetField), {}};
  const auto descriptors = fieldValues<std::uint8_t>(*file, kWaveDescriptorField);
  const auto sizes = fieldValues<std::uint32_t>(*file, kWaveSizeField);
  const auto packets = WaveformSource::open(file);
  EXPECT_TRUE(packets.ok()) << packets.error();
  for (std::size_t i = 0; packets && i < sizes.size(); ++i) {
    const auto read = (*packets)->readPacket({descriptors[i], written.offsets[i], sizes[i]},
                                             written.samples.emplace_back());
    EXPECT_TRUE(read.ok()) << read.error();
  }
  return written;
}

}  // namespace

TEST(PacketPlan, SharedPacketIsWrittenOnce) {
  WaveGrid grid;
  grid.fragment({{1, 60, 4, {1, 2}}, {1, 64, 4, {3, 4}}, {1, 60, 4, {1, 2}}});
  grid.fragment({{1, 60, 4, {1, 2}}});
  const ExportSource source = grid.source();
  EXPECT_EQ(bytesOf(source), 8U);
  const Written written = writtenOf(source);
  EXPECT_THAT(written.offsets, ElementsAre(60, 64, 60, 60));
  EXPECT_THAT(written.samples,
              ElementsAre(Samples{1, 2}, Samples{3, 4}, Samples{1, 2}, Samples{1, 2}));
}

TEST(PacketPlan, OffsetsStayWhereLittleIsUnused) {
  WaveGrid grid;
  const Samples twenty(20, 7);
  grid.fragment({{1, 110, 40, twenty}, {1, 60, 40, twenty}});
  const ExportSource source = grid.source();
  EXPECT_EQ(bytesOf(source), 90U);
  EXPECT_THAT(writtenOf(source).offsets, ElementsAre(110, 60));
}

TEST(PacketPlan, PacketsFarApartMoveTogetherInTheirOrder) {
  WaveGrid grid;
  grid.fragment({{1, 5000, 4, {3, 4}}, {1, 1000, 2, {9}}, {1, 90000, 2, {5}}});
  const ExportSource source = grid.source();
  EXPECT_EQ(bytesOf(source), 8U);
  const Written written = writtenOf(source);
  EXPECT_THAT(written.offsets, ElementsAre(62, 60, 66));
  EXPECT_THAT(written.samples, ElementsAre(Samples{3, 4}, Samples{9}, Samples{5}));
}

TEST(PacketPlan, OffsetsThatNoFileCanHaveAreReplaced) {
  WaveGrid grid;
  grid.fragment({{1, 0, 4, {1, 2}}, {1, UINT64_MAX - 1, 4, {3, 4}}});
  const Written written = writtenOf(grid.source());
  EXPECT_THAT(written.offsets, ElementsAre(60, 64));
  EXPECT_THAT(written.samples, ElementsAre(Samples{1, 2}, Samples{3, 4}));
}

TEST(PacketPlan, SameOffsetOfSeveralFilesMeansSeveralPackets) {
  WaveGrid grid;
  grid.fragment({{1, 60, 4, {1, 2}}}).fragment({{1, 60, 4, {3, 4}}, {1, 60, 4, {1, 2}}});
  const ExportSource source = grid.source(2);
  EXPECT_EQ(bytesOf(source), 8U);
  const Written written = writtenOf(source);
  EXPECT_THAT(written.samples, ElementsAre(Samples{1, 2}, Samples{3, 4}, Samples{1, 2}));
  EXPECT_EQ(written.offsets[0], written.offsets[2]);
  EXPECT_NE(written.offsets[0], written.offsets[1]);
}

TEST(PacketPlan, LostPacketsStayLost) {
  WaveGrid grid;
  grid.fragment({{1, 60, 4, {1, 2}}, {1, 1000000, 4, {}}, {0, 61, 0, {}}, {1, 62, 4, {}}});
  const Written written = writtenOf(grid.source());
  EXPECT_THAT(written.offsets, ElementsAre(60, 1000000, 61, 64));
  EXPECT_THAT(written.samples, ElementsAre(Samples{1, 2}, Samples{}, Samples{}, Samples{}));
}

TEST(PacketPlan, SamplesOfOneByteStayOfOneByte) {
  WaveGrid grid;
  grid.fragment({{2, 60, 3, {1, 255, 3}}, {1, 63, 4, {1, 65535}}});
  const ExportSource source = grid.source();
  EXPECT_EQ(bytesOf(source), 7U);
  EXPECT_THAT(writtenOf(source).samples, ElementsAre(Samples{1, 255, 3}, Samples{1, 65535}));
}

TEST(PacketPlan, PaddingBehindSamplesIsZero) {
  for (const std::uint32_t size : {100U, 9000U}) {
    WaveGrid grid;
    grid.fragment({{1, 60, size, {1, 2}}, {1, 60 + size, 4, {3, 4}}});
    Samples padded(size / 2);
    padded[0] = 1;
    padded[1] = 2;
    EXPECT_THAT(writtenOf(grid.source()).samples, ElementsAre(padded, Samples{3, 4}));
  }
}

TEST(PacketPlan, OnlyPacketsOfChosenPointsGo) {
  WaveGrid grid;
  grid.fragment({{1, 60, 4, {1, 2}}, {1, 64, 4, {3, 4}}, {1, 68, 2, {5}}});
  const ExportSource source = grid.source();
  EXPECT_EQ(bytesOf(source, onlyRows({2})), 2U);
  const Written written = writtenOf(source, onlyRows({1, 2}));
  EXPECT_THAT(written.samples, ElementsAre(Samples{3, 4}, Samples{5}));
}

TEST(PacketPlan, PacketsGoIntoTheFileAsWell) {
  WaveGrid grid;
  grid.fragment({{1, 60, 4, {1, 2}}, {1, 64, 4, {3, 4}}});
  const Written written = writtenOf(grid.source(), everyPoint(), WaveformPlace::Inside);
  EXPECT_THAT(written.samples, ElementsAre(Samples{1, 2}, Samples{3, 4}));
}

TEST(PacketPlan, NoPacketsNeedNoFile) {
  const TempDir folder;
  WaveGrid grid;
  grid.fragment({{0, 60, 4, {}}, {1, 64, 4, {}}});
  const auto file = exported(folder / "a.las", grid.source());
  EXPECT_FALSE(std::filesystem::exists(folder / "a.wdp"));
  EXPECT_EQ(file->header().globalEncoding & (kWaveformsInside | kWaveformsOutside), 0);
  EXPECT_THAT(fieldValues<std::uint64_t>(*file, kWaveOffsetField), ElementsAre(60, 64));
}

TEST(PacketPlan, ColumnsOfOtherTypesAreRefused) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::uint8_t>(kWaveDescriptorField, {1});
  cloud.field<std::int64_t>(kWaveOffsetField, {60}).field<std::uint32_t>(kWaveSizeField, {2});
  cloud.field<std::uint16_t>("FWFLength", {1}).waveforms<std::uint16_t>("Waveforms", 1, {5});
  ExportSource source = sourceOf(cloud);
  source.files = {sourceFile("a.las", lasOptions(4))};
  const auto made = plan(source);
  ASSERT_FALSE(made.ok());
  EXPECT_EQ(made.error(), "waveforms: fragment 0: packets are not named as LAS names them");
}

TEST(PacketPlan, SizesOutOfProportionAreRefused) {
  WaveGrid grid;
  grid.fragment({{1, 60, 4000000000U, {1, 2}}});
  const auto made = plan(grid.source());
  ASSERT_FALSE(made.ok());
  EXPECT_THAT(made.error(), HasSubstr("waveforms: impossible packet sizes, found 4000000000 bytes "
                                      "for samples of 4 bytes"));
}

}  // namespace Formats
