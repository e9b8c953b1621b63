// SPDX-License-Identifier: Apache-2.0
//
// Random clouds through selection and field copy, judged by brute force. Every value is a hash of
// its point's number, so that any lost, doubled, shuffled or shifted value shows.

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <memory>
#include <random>

#include "assembly/FieldCopy.hpp"
#include "tests/assembly/PlainSelection.hpp"
#include "tests/assembly/TileRig.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib {
namespace {

using namespace TestSupport;
using MemCore::StrongPtr;

std::uint64_t hashOf(std::uint64_t pointNumber, std::uint64_t salt) {
  std::uint64_t h = (pointNumber + 1) * 0x9E3779B97F4A7C15ULL + salt * 0xC2B2AE3D27D4EB4FULL;
  h ^= h >> 29;
  h *= 0xBF58476D1CE4E5B9ULL;
  return h ^ (h >> 32);
}

template <class T>
T valueOf(std::uint64_t pointNumber, std::uint64_t salt) {
  return static_cast<T>(hashOf(pointNumber, salt) >> 11);
}

/// One fragment: its points, the number of its first point, its samples per point (0: none).
struct Fragment {
  std::vector<Point> points;
  std::uint64_t firstNumber = 0;
  unsigned samples = 0;
};

/// The fields of one point number, made the same way for input and expectation.
struct Expected {
  std::vector<std::uint64_t> numbers;
  std::vector<double> gps;
  std::vector<std::uint8_t> classes;
  std::vector<std::uint32_t> colours;
  std::vector<std::uint16_t> lengths;

  void add(std::uint64_t number) {
    numbers.push_back(number);
    gps.push_back(valueOf<double>(number, 1));
    classes.push_back(valueOf<std::uint8_t>(number, 2));
    colours.push_back(valueOf<std::uint32_t>(number, 3));
    lengths.push_back(static_cast<std::uint16_t>(hashOf(number, 4) % 12));
  }
};

void addToCloud(CloudBuilder& cloud, const Fragment& fragment) {
  Expected all;
  std::vector<std::uint16_t> samples;
  for (std::uint64_t i = 0; i < fragment.points.size(); ++i) {
    const std::uint64_t number = fragment.firstNumber + i;
    all.add(number);
    for (unsigned s = 0; s < fragment.samples; ++s) {
      samples.push_back(valueOf<std::uint16_t>(number, 100 + s));
    }
  }
  cloud.fragment(fragment.points).field("Number", all.numbers).field("GpsTime", all.gps);
  cloud.field("Class", all.classes).field("Colour", all.colours).field("FWFLength", all.lengths);
  if (fragment.samples != 0) cloud.waveforms("Waveforms", fragment.samples, samples);
}

/// A cloud of fragments and one tile through it.
class RandomTile {
 public:
  explicit RandomTile(std::mt19937_64& random) : box_({-1, -1, -1}, {1, 1, 1}) {
    index_ = someIndex(random);
    std::uint64_t number = 0;
    const std::size_t fragmentCount = 1 + random() % 6;
    for (std::size_t f = 0; f < fragmentCount; ++f) {
      fragments_.push_back({nastyCloud(random, 1 + random() % (f == 0 ? 30000 : 3000), box_),
                            number,
                            random() % 4 == 0 ? 0U : 1U + static_cast<unsigned>(random() % 16)});
      number += fragments_.back().points.size();
      addToCloud(cloud_, fragments_.back());
    }
  }

  /// Copies the tile and compares every field with brute force.
  void check() {
    check(CopyOrder::FieldByField);
    check(CopyOrder::FragmentByFragment);
  }

 private:
  void check(CopyOrder order) {
    TileRig rig(cloud_.currentGrid(), {});
    rig.copy.selection = selectPointsInTile(rig.copy.fragments, rig.copy.inputPositions,
                                            MemCore::makeStrong<Eagle::BoundingBox>(box_), index_);
    rig.copyAll(order);
    const Expected expected = expectedFields(rig);
    ASSERT_EQ(rig.copy.selection.pointCount, expected.numbers.size());
    expectField(rig, "Number", expected.numbers);
    expectField(rig, "GpsTime", expected.gps);
    expectField(rig, "Class", expected.classes);
    expectField(rig, "Colour", expected.colours);
    expectField(rig, "FWFLength", expected.lengths);
    expectField(rig, "Waveforms", expectedSamples(rig, expected.lengths));
  }

  /// The values of the tile's field, and that their range is known.
  template <class T>
  static void expectField(const TileRig& rig, const char* name, const std::vector<T>& expected) {
    EXPECT_EQ(rig.values<T>(name), expected) << name;
    if (expected.empty()) return;
    const auto [low, high] = std::minmax_element(expected.begin(), expected.end());
    const Fiber::ValueRange range{static_cast<double>(*low), static_cast<double>(*high)};
    ASSERT_TRUE(rig.field(name)) << name;
    EXPECT_EQ(rig.field(name)->getFirstCreator()->facts().range, range) << name;
  }

  Expected expectedFields(const TileRig& rig) const {
    Expected expected;
    for (const auto& id : rig.copy.fragments) {
      const Fragment& fragment = fragments_[id->number()];
      for (const unsigned int i : selectPlainly(fragment.points, box_, index_)) {
        expected.add(fragment.firstNumber + i);
      }
    }
    return expected;
  }

  /// Fragments without waveforms leave no gap: the samples of the others move up.
  std::vector<std::uint16_t> expectedSamples(const TileRig& rig,
                                             const std::vector<std::uint16_t>& lengths) const {
    const unsigned longest =
        lengths.empty() ? 0 : *std::max_element(lengths.begin(), lengths.end());
    std::vector<std::uint16_t> samples;
    for (const auto& id : rig.copy.fragments) {
      const Fragment& fragment = fragments_[id->number()];
      if (fragment.samples == 0) continue;
      for (const unsigned int i : selectPlainly(fragment.points, box_, index_)) {
        for (unsigned s = 0; s < longest; ++s) {
          samples.push_back(s < fragment.samples
                                ? valueOf<std::uint16_t>(fragment.firstNumber + i, 100 + s)
                                : std::uint16_t{0});
        }
      }
    }
    if (!samples.empty()) samples.resize(lengths.size() * longest, 0);
    return samples;
  }

  Eagle::BoundingBox box_;
  Index3 index_;
  std::vector<Fragment> fragments_;
  CloudBuilder cloud_;
};

TEST(FieldCopyProperty, RandomTilesAgreeWithBruteForce) {
  std::mt19937_64 random(testSeed());
  for (int repetition = 0; repetition < 40; ++repetition) RandomTile(random).check();
}

TEST(FieldCopyProperty, TilesOfOneCloudMayBeCopiedAtOnce) {
  std::mt19937_64 random(testSeed());
  RandomTile tile(random);
#pragma omp parallel for num_threads(8) schedule(dynamic, 1)
  for (int repetition = 0; repetition < 24; ++repetition) tile.check();
}

}  // namespace
}  // namespace LidarLib
