// SPDX-License-Identifier: Apache-2.0
//
// The field copy of two-dimensional fields: waveforms of fragments with different sample counts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <optional>

#include "assembly/FieldCopy.hpp"
#include "tests/assembly/TileRig.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/ConsoleCapture.hpp"

namespace LidarLib {
namespace {

using namespace TestSupport;
using MemCore::makeStrong;
using MemCore::StrongPtr;
using testing::ElementsAre;
using Extents = std::vector<std::uint64_t>;
using Lengths = std::vector<unsigned short>;
using Samples = std::vector<unsigned short>;

/// Sample s of point p is 1000 (p + 1) + s.
Samples ramp(unsigned points, unsigned samples) {
  Samples values;
  for (unsigned p = 0; p < points; ++p) {
    for (unsigned s = 0; s < samples; ++s)
      values.push_back(static_cast<unsigned short>(1000 * (p + 1) + s));
  }
  return values;
}

/// One fragment of two points with waveforms; both points are selected in the order 1, 0.
class WaveformCopy : public testing::Test {
 protected:
  Samples copied(unsigned samples, const Lengths& lengths) {
    CloudBuilder cloud;
    cloud.fragment(std::vector<Point>(2))
        .waveforms<unsigned short>("Waveforms", samples, ramp(2, samples));
    cloud.field("FWFLength", lengths);
    rig_.emplace(cloud.currentGrid(), TileRig::Selected{{"0", {1, 0}}});
    rig_->copyAll();
    return rig_->values<unsigned short>("Waveforms");
  }
  std::optional<TileRig> rig_;
};

TEST_F(WaveformCopy, ShorterWaveformsAreFilledUpWithZeros) {
  const Samples samples = copied(100, {7, 120});
  EXPECT_EQ(rig_->extents("Waveforms"), (Extents{120, 2}));
  const Samples input = ramp(2, 100);
  Samples expected(input.begin() + 100, input.end());
  expected.resize(120, 0);
  expected.insert(expected.end(), input.begin(), input.begin() + 100);
  expected.resize(240, 0);
  EXPECT_EQ(samples, expected);
}

TEST_F(WaveformCopy, LongerWaveformsKeepTheirFirstSamples) {
  const Samples samples = copied(160, {7, 120});
  EXPECT_EQ(rig_->extents("Waveforms"), (Extents{120, 2}));
  const Samples input = ramp(2, 160);
  Samples expected(input.begin() + 160, input.begin() + 280);
  expected.insert(expected.end(), input.begin(), input.begin() + 120);
  EXPECT_EQ(samples, expected);
}

TEST_F(WaveformCopy, NotMadeWhenEveryLengthIsZero) {
  EXPECT_EQ(copied(100, {0, 0}), Samples());
  EXPECT_FALSE(rig_->field("Waveforms"));
  EXPECT_TRUE(rig_->field("FWFLength"));
}

TEST(WaveformFieldCopy, WaveformsAreNotMadeWithoutLengths) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(2)).waveforms<unsigned short>("Waveforms", 3, ramp(2, 3));
  TileRig rig(cloud.currentGrid(), {{"0", {0}}});
  rig.copyAll();
  EXPECT_FALSE(rig.field("Waveforms"));
}

TEST(WaveformFieldCopy, TwoDimensionalFieldsOfOtherNamesAreNotCopied) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(2)).waveforms<unsigned short>("Spectra", 3, ramp(2, 3));
  cloud.field<unsigned short>("FWFLength", {3, 3}).field<unsigned short>("FWFLength_hp", {3, 3});
  TileRig rig(cloud.currentGrid(), {{"0", {0}}});
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_FALSE(rig.field("Spectra"));
  EXPECT_THAT(console.messages(), ElementsAre());
}

TEST(WaveformFieldCopy, BothKindsOfWaveformsHaveTheirOwnLength) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(1)).waveforms<unsigned short>("Waveforms", 2, {1, 2});
  cloud.waveforms<unsigned short>("Waveforms_hp", 2, {3, 4});
  cloud.field<unsigned short>("FWFLength", {3}).field<unsigned short>("FWFLength_hp", {1});
  TileRig rig(cloud.currentGrid(), {{"0", {0}}});
  rig.copyAll();
  EXPECT_EQ(rig.values<unsigned short>("Waveforms"), (Samples{1, 2, 0}));
  EXPECT_EQ(rig.values<unsigned short>("Waveforms_hp"), Samples{3});
}

TEST(WaveformFieldCopy, FragmentsOfDifferentSampleCountsShareOneLength) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(1)).field<unsigned short>("FWFLength", {2});
  cloud.waveforms<unsigned short>("Waveforms", 4, {1, 2, 3, 4});
  cloud.fragment(std::vector<Point>(1)).field<unsigned short>("FWFLength", {3});  // no waveforms
  cloud.fragment(std::vector<Point>(2)).field<unsigned short>("FWFLength", {1, 1});
  cloud.waveforms<unsigned short>("Waveforms", 1, {5, 6});
  TileRig rig(cloud.currentGrid(), {{"0", {0}}, {"1", {0}}, {"2", {0, 1}}});
  rig.copyAll();
  EXPECT_EQ(rig.extents("Waveforms"), (Extents{3, 4}));
  EXPECT_EQ(rig.values<unsigned short>("Waveforms"), (Samples{1, 2, 3, 5, 0, 0, 6, 0, 0, 0, 0, 0}));
}

TEST(WaveformFieldCopy, FewerWaveformsThanPointsSkipTheFragment) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(3)).field<unsigned short>("FWFLength", {2, 2, 2});
  cloud.waveforms<unsigned short>("Waveforms", 2, {1, 2, 3, 4});
  TileRig rig(cloud.currentGrid(), {{"0", {0, 2}}});
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_EQ(console.only(),
            " Warning! Field: Waveforms Fragment: 0: uint16[2x2] does not fit the tile, expected"
            " uint16[2x2] from element 0 -> SKIP THIS FRAGMENT");
  EXPECT_FALSE(rig.field("Waveforms"));
}

/// More bytes than the machine has memory: pages come into being when they are touched.
class HugeChunk final : public MemCore::ChunkBase {
 public:
  explicit HugeChunk(std::size_t size)
      : size_(size),
        memory_(::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
  ~HugeChunk() override {
    if (isMapped()) ::munmap(memory_, size_);
  }
  HugeChunk(const HugeChunk&) = delete;
  HugeChunk& operator=(const HugeChunk&) = delete;

  bool isMapped() const { return memory_ != MAP_FAILED; }
  const std::type_info& elementType() const override { return typeid(std::uint8_t); }
  std::size_t elementSize() const override { return 1; }
  std::size_t size() const override { return size_; }
  std::byte* bytes() override { return static_cast<std::byte*>(memory_); }
  const std::byte* bytes() const override { return static_cast<const std::byte*>(memory_); }
  bool isPlain() const override { return true; }

 private:
  std::size_t size_;
  void* memory_;
};

TEST(WaveformFieldCopy, SampleIndicesBeyond32BitsWrap) {
  constexpr std::uint64_t kSamples = std::uint64_t{1} << 31;
  const auto chunk = makeStrong<HugeChunk>(3 * kSamples);
  if (!chunk->isMapped()) GTEST_SKIP() << "no address space for 6 GB";
  chunk->bytes()[0] = std::byte{42};             // where the index of point 2 wraps to
  chunk->bytes()[2 * kSamples] = std::byte{43};  // where point 2 really is
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(3)).field<unsigned short>("FWFLength", {0, 0, 2});
  cloud.array("Waveforms", makeStrong<Fiber::MemBase>(Fiber::DynamicSize{kSamples, 3}, chunk));
  TileRig rig(cloud.currentGrid(), {{"0", {2}}});
  rig.copyAll();
  EXPECT_THAT(rig.values<std::uint8_t>("Waveforms"), ElementsAre(42, 0));
}

TEST(WaveformFieldCopy, FragmentsBeyond32BitIndicesArePaddedToo) {
  constexpr std::uint64_t kPoints = (std::uint64_t{1} << 31) + 1;
  const auto chunk = makeStrong<HugeChunk>(2 * kPoints);
  if (!chunk->isMapped()) GTEST_SKIP() << "no address space for 4 GB";
  for (const std::size_t sample : {0U, 1U, 4U, 5U}) chunk->bytes()[sample] = std::byte(50 + sample);
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(3)).field<unsigned short>("FWFLength", {0, 0, 3});
  cloud.array("Waveforms", makeStrong<Fiber::MemBase>(Fiber::DynamicSize{2, kPoints}, chunk));
  TileRig rig(cloud.currentGrid(), {{"0", {0, 2}}});
  rig.copyAll();
  EXPECT_THAT(rig.values<std::uint8_t>("Waveforms"), ElementsAre(50, 51, 0, 54, 55, 0));
}

}  // namespace
}  // namespace LidarLib
