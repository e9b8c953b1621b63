// SPDX-License-Identifier: Apache-2.0

#include "assembly/Waveforms.hpp"

#include <gtest/gtest.h>

#include <random>

#include "tests/assembly/PlainSelection.hpp"
#include "tests/assembly/TileRig.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib {
namespace {

using namespace TestSupport;
using Fiber::IndexList;
using MemCore::Chunk;
using MemCore::makeStrong;
using MemCore::StrongPtr;
using Indices = std::vector<unsigned int>;
using Samples = std::vector<unsigned short>;

StrongPtr<IndexList> listOf(const Indices& indices) {
  return makeStrong<IndexList>(std::span<const unsigned int>(indices));
}

WaveformLengths scan(const TileRig& rig) {
  return scanWaveformLengths(*rig.input, rig.copy.fragments, *rig.copy.selection.indexLists);
}

TEST(ScanWaveformLengths, LongestOfTheSelectedPointsOfAllFragments) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(3)).field<unsigned short>("FWFLength", {500, 10, 20});
  cloud.field<unsigned short>("FWFLength_hp", {7, 8, 900});
  cloud.fragment(std::vector<Point>(2)).field<unsigned short>("FWFLength", {30, 600});
  const TileRig rig(cloud.currentGrid(), {{"0", {1, 2}}, {"1", {0}}});
  const WaveformLengths lengths = scan(rig);
  EXPECT_EQ(lengths.maxWaveformLength, 30U);
  EXPECT_EQ(lengths.maxWaveformLengthHp, 900U);
}

TEST(ScanWaveformLengths, ZeroWithoutTheFields) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(2));
  const WaveformLengths lengths = scan(TileRig(cloud.currentGrid(), {{"0", {0, 1}}}));
  EXPECT_EQ(lengths.maxWaveformLength, 0U);
  EXPECT_EQ(lengths.maxWaveformLengthHp, 0U);
}

TEST(ScanWaveformLengths, FragmentsWithoutListOrLengthsCountNothing) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(1)).field<unsigned short>("FWFLength", {999});
  cloud.fragment(std::vector<Point>(1));
  cloud.fragment(std::vector<Point>(1)).field<double>("FWFLength", {888});
  cloud.fragment(std::vector<Point>(1)).field<unsigned short>("FWFLength", {5});
  const TileRig rig(cloud.currentGrid(), {{"1", {0}}, {"2", {0}}, {"3", {0}}});
  EXPECT_EQ(scan(rig).maxWaveformLength, 5U);
}

TEST(ScanWaveformLengths, PointsBeyondTheLengthsCountNothing) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(3)).field<unsigned short>("FWFLength", {5});
  EXPECT_EQ(scan(TileRig(cloud.currentGrid(), {{"0", {0, 1, 2}}})).maxWaveformLength, 5U);
}

TEST(ExpandWaveformIndices, LongerWaveformsAreCut) {
  const auto indices = expandWaveformIndices(listOf({2, 0}), 5, "Waveforms", {3, 0});
  EXPECT_EQ(elementsOf(indices.samples), (Indices{10, 11, 12, 0, 1, 2}));
  EXPECT_FALSE(indices.padding);
}

TEST(ExpandWaveformIndices, ShorterWaveformsArePadded) {
  const auto indices = expandWaveformIndices(listOf({2, 1}), 2, "Waveforms_hp", {9, 4});
  EXPECT_EQ(elementsOf(indices.samples), (Indices{4, 5, 0, 0, 2, 3, 0, 0}));
  EXPECT_EQ(elementsOf(indices.padding), (Indices{2, 3, 6, 7}));
}

TEST(ExpandWaveformIndices, EqualLengthsHaveAnEmptyPaddingList) {
  const auto indices = expandWaveformIndices(listOf({1}), 3, "Waveforms", {3, 0});
  EXPECT_EQ(elementsOf(indices.samples), (Indices{3, 4, 5}));
  EXPECT_EQ(elementsOf(indices.padding), Indices());
}

TEST(ExpandWaveformIndices, NothingWithoutPointsLengthOrKnownName) {
  for (const auto& indices : {expandWaveformIndices(nullptr, 3, "Waveforms", {3, 3}),
                              expandWaveformIndices(listOf({1}), 3, "Waveforms", {0, 3}),
                              expandWaveformIndices(listOf({1}), 3, "Waveforms_hp", {3, 0}),
                              expandWaveformIndices(listOf({1}), 3, "Spectra", {3, 3})}) {
    EXPECT_FALSE(indices.samples);
    EXPECT_FALSE(indices.padding);
  }
}

TEST(ExpandWaveformIndices, NoPointsGiveEmptyLists) {
  const auto indices = expandWaveformIndices(listOf({}), 2, "Waveforms", {3, 0});
  EXPECT_EQ(elementsOf(indices.samples), Indices());
  EXPECT_EQ(elementsOf(indices.padding), Indices());
}

TEST(ExpandWaveformIndices, SampleIndicesWrapAt32Bits) {
  const std::uint64_t samples = std::uint64_t{1} << 31;
  const auto indices = expandWaveformIndices(listOf({1, 2, 3}), samples, "Waveforms", {2, 0});
  EXPECT_EQ(elementsOf(indices.samples),
            (Indices{0x80000000U, 0x80000001U, 0, 1, 0x80000000U, 0x80000001U}));
}

TEST(ExpandWaveformIndices, TheirNumberWrapsAt32Bits) {
  // 4097 points of 2^20 samples are 2^32 + 2^20.
  const Indices points(4097, 3);
  const auto indices = expandWaveformIndices(listOf(points), 1, "Waveforms", {1U << 20, 0});
  ASSERT_EQ(indices.samples->size(), std::size_t{1} << 20);
  EXPECT_EQ((*indices.samples)[0], 3U);
  EXPECT_EQ(indices.padding->size(), (std::size_t{1} << 20) - 1);
}

/// What the index lists make of a fragment's waveforms; the judge of the copy by blocks.
template <class T>
StrongPtr<Chunk<T>> gatherPlainly(const StrongPtr<Chunk<T>>& input, const WaveformBlock& block,
                                  StrongPtr<Chunk<T>> output) {
  const auto points = listOf({block.points.begin(), block.points.end()});
  const auto indices =
      expandWaveformIndices(points, block.inputSamples, "Waveforms", {block.outputSamples, 0});
  for (std::size_t j = 0; j < indices.samples->size(); ++j) {
    (*output)[block.outputOffset + j] = (*input)[(*indices.samples)[j]];
  }
  if (!indices.padding) return output;
  for (const unsigned int p : *indices.padding) (*output)[block.outputOffset + p] = T{0};
  return output;
}

template <class T>
void expectBlocksLikeIndexLists(std::mt19937_64& random) {
  const std::uint64_t inputSamples = 1 + random() % 40;
  const auto outputSamples = static_cast<std::uint32_t>(1 + random() % 40);
  const unsigned int pointCount = 1 + static_cast<unsigned int>(random() % 50);
  auto input = makeStrong<Chunk<T>>(inputSamples * pointCount);
  for (T& sample : *input) sample = static_cast<T>(random());
  Indices points;
  for (unsigned int p = 0; p < pointCount; ++p) {
    if (points.empty() || random() % 3 != 0) points.push_back(p);
  }
  const auto offset = static_cast<std::uint32_t>(random() % 30);
  const WaveformBlock block{points, inputSamples, outputSamples, offset};
  const std::size_t room = offset + points.size() * outputSamples + random() % 5;
  const auto output = makeStrong<Chunk<T>>(room, T{77});
  EXPECT_TRUE(fitsIndices(block, input->size()));
  EXPECT_TRUE(copyWaveforms(*output, *input, block));
  const auto expected = gatherPlainly<T>(input, block, makeStrong<Chunk<T>>(room, T{77}));
  EXPECT_TRUE(std::equal(output->begin(), output->end(), expected->begin(), expected->end()));
}

TEST(CopyWaveforms, SameAsGatheringByIndexLists) {
  std::mt19937_64 random(testSeed());
  for (int repetition = 0; repetition < 200; ++repetition) {
    expectBlocksLikeIndexLists<unsigned short>(random);
    expectBlocksLikeIndexLists<unsigned char>(random);
    expectBlocksLikeIndexLists<double>(random);
  }
}

TEST(CopyWaveforms, NoInputSamplesGiveZeros) {
  Chunk<unsigned short> output(4, 77);
  EXPECT_TRUE(copyWaveforms(output, Chunk<unsigned short>(), {listOf({0, 5})->span(), 0, 2, 0}));
  EXPECT_EQ(Samples(output.begin(), output.end()), Samples(4, 0));
}

TEST(CopyWaveforms, RefusesWhatLiesOutside) {
  Chunk<unsigned short> output(10, 77);
  const Chunk<unsigned short> input(6, 1);
  EXPECT_FALSE(copyWaveforms(output, input, {listOf({0, 3})->span(), 2, 2, 0})) << "point";
  EXPECT_FALSE(copyWaveforms(output, input, {listOf({0, 1})->span(), 2, 5, 1})) << "block";
  EXPECT_FALSE(copyWaveforms(output, Chunk<float>(6), {listOf({0, 1})->span(), 2, 2, 0})) << "type";
  EXPECT_FALSE(copyWaveforms(output, input, {listOf({})->span(), 2, 2, 0})) << "no points";
  EXPECT_FALSE(copyWaveforms(output, output, {listOf({0, 1})->span(), 2, 2, 0})) << "same array";
  EXPECT_EQ(Samples(output.begin(), output.end()), Samples(10, 77));
}

TEST(CopyWaveforms, IndicesFitUpTo32Bits) {
  const Indices points(65536, 0);
  const WaveformBlock block{points, 4, 65535, 0};
  EXPECT_TRUE(fitsIndices(block, std::uint64_t{1} << 32));
  EXPECT_FALSE(fitsIndices(block, (std::uint64_t{1} << 32) + 1));
  const WaveformBlock longer{points, 4, 65536, 0};
  EXPECT_FALSE(fitsIndices(longer, 4));
}

}  // namespace
}  // namespace LidarLib
