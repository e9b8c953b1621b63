// SPDX-License-Identifier: Apache-2.0
//
// Damaged files: cut off anywhere, or with bytes changed. Whatever happens, the reader hands back
// records or a text, in bounded time and memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "formats/las/ByteStream.hpp"
#include "formats/las/LasFile.hpp"
#include "formats/las/RecordColumns.hpp"
#include "formats/las/WaveformSource.hpp"
#include "tests/formats/LasTestFiles.hpp"
#include "tests/support/Seed.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::TempDir;
using LidarLib::TestSupport::testSeed;

/// A damaged header may claim any number of points; this many are enough to meet damage.
constexpr std::uint64_t kMostPoints = 20000;

/// The files have at most a few megabytes of points; damage must not make them take this much.
constexpr long kMostMemoryKilobytes = 500L << 10;

long peakMemoryKilobytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

void expectOneLineAbout(const std::string& text, const std::string& path) {
  EXPECT_EQ(text.substr(0, path.size() + 2), path + ": ");
  EXPECT_EQ(text.find('\n'), std::string::npos) << text;
}

std::vector<WaveformPacketRef> packetsIn(const LasFile& file, std::span<const std::byte> records) {
  const std::size_t at = file.layout().find("WaveDescriptor")->byteOffset;
  std::vector<WaveformPacketRef> packets;
  for (std::size_t record = 0; record < records.size(); record += file.recordBytes()) {
    const std::byte* from = records.data() + record + at;
    packets.push_back({loadValue<std::uint8_t>(from), loadValue<std::uint64_t>(from + 1),
                       loadValue<std::uint32_t>(from + 9)});
  }
  return packets;
}

/// Does with a file what its users do; returns whether all of it went well.
bool exercise(const std::string& path) {
  const auto opened = LasFile::open(path);
  if (!opened) {
    expectOneLineAbout(opened.error(), path);
    return false;
  }
  const LasFile& file = **opened;
  const std::uint64_t count = std::min(file.pointCount(), kMostPoints);
  std::vector<std::byte> records(count * file.recordBytes());
  if (const auto read = file.readRecords(0, count, records); !read) {
    expectOneLineAbout(read.error(), path);
    return false;
  }
  std::vector<double> positions(count * 3);
  extractPositions(records, file.recordBytes(), {file.header().scale, file.header().offset},
                   positions);
  if (!WaveformSource::hasWaveforms(file)) return true;
  const auto source = WaveformSource::open(*opened);
  if (!source) {
    expectOneLineAbout(source.error(), path);
    return false;
  }
  return (*source)->readPackets(packetsIn(file, records)).ok();
}

const std::vector<std::string>& victims() {
  static const std::vector<std::string> kNames{"formats/10_points_format_0.las",
                                               "formats/10_points_format_3.laz",
                                               "formats/10_points_format_5.laz",
                                               "formats/10_points_format_6.laz",
                                               "formats/10_points_format_8.laz",
                                               "formats/10_points_with_extra_bytes_format_10.las",
                                               "small/no-points.las",
                                               "small/extrabytes.las",
                                               "small/1_4_w_evlr.las",
                                               "fwf/simple1_3.las",
                                               "fwf/riegl_2535pt_internal.las",
                                               "small/point-version-1-point-wise.laz",
                                               "lidarhd/test_data_77050_627760_LA93_IGN69.laz"};
  return kNames;
}

class LasHostile : public LasData, public testing::WithParamInterface<std::string> {
 protected:
  /// The steps between the lengths to try: every byte of small files.
  static std::size_t stepFor(std::size_t byteCount) { return 1 + byteCount / 3000; }

  TempDir folder_;
  long memoryBefore_ = peakMemoryKilobytes();
};

std::string victimName(const testing::TestParamInfo<std::string>& info) {
  return testNameOf({{info.param}, info.index});
}

INSTANTIATE_TEST_SUITE_P(Victims, LasHostile, testing::ValuesIn(victims()), victimName);

TEST_P(LasHostile, CutOffAnywhere) {
  const std::vector<std::byte> bytes = readFile(path(GetParam()));
  const std::string victim = folder_ / "x.las";
  writeFile(victim, bytes);
  std::size_t readable = 0;
  for (std::size_t length = bytes.size(); length > 0;) {
    length -= std::min(length, stepFor(bytes.size()));
    std::filesystem::resize_file(victim, length);
    if (exercise(victim)) ++readable;
  }
  // Only what lies behind the points (records, tables, packets) can be missing without harm.
  EXPECT_LT(readable, 3000U);
  EXPECT_LT(peakMemoryKilobytes() - memoryBefore_, kMostMemoryKilobytes);
}

TEST_P(LasHostile, BytesChangedAnywhere) {
  const std::vector<std::byte> bytes = readFile(path(GetParam()));
  const std::string victim = folder_ / "x.las";
  std::mt19937_64 random(testSeed());
  // Changes in the header and the variable records do the most harm, so they get their share.
  const std::size_t front = std::min<std::size_t>(bytes.size(), 2000);
  for (int round = 0; round < 300; ++round) {
    std::vector<std::byte> damaged = bytes;
    for (std::uint64_t change = random() % 6; change < 8; ++change) {
      const std::size_t at = random() % (random() % 2 == 0 ? front : bytes.size());
      const bool isExtreme = random() % 3 == 0;
      damaged[at] = isExtreme ? std::byte{0xFF} : static_cast<std::byte>(random());
    }
    writeFile(victim, damaged);
    exercise(victim);
  }
  EXPECT_LT(peakMemoryKilobytes() - memoryBefore_, kMostMemoryKilobytes);
}

}  // namespace
}  // namespace Formats
