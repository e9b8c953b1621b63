// SPDX-License-Identifier: Apache-2.0

#include "formats/export/OriginalOrder.hpp"

#include <gmock/gmock.h>

#include <random>
#include <set>

#include "tests/formats/export/ExportTestGrids.hpp"
#include "tests/support/Seed.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using testing::ElementsAre;
using testing::HasSubstr;

using Files = std::vector<std::uint32_t>;
using Indices = std::vector<std::uint64_t>;

CloudBuilder& addFragment(CloudBuilder& cloud, const Files& files, const Indices& indices) {
  return cloud.fragment(std::vector<Point>(files.size()))
      .field("SourceFile", files)
      .field("SourceIndex", indices);
}

MemCore::Outcome<OriginalOrder> readOrder(const ExportSource& source,
                                          const PointChooser& choose = everyPoint()) {
  return OriginalOrder::read(source, source.fragments, {choose, {}});
}

/// Places of the chosen points of all fragments, in the order of the fragments.
std::vector<std::uint64_t> placesIn(const ExportSource& source,
                                    const PointChooser& choose = everyPoint()) {
  const auto order = readOrder(source, choose);
  EXPECT_TRUE(order.ok()) << order.error();
  if (!order) return {};
  const auto loaded =
      loadFragments(source, source.fragments, {{order->fileField(), order->indexField()}}, choose);
  EXPECT_TRUE(loaded.ok()) << loaded.error();
  std::vector<std::uint64_t> all;
  for (const FragmentColumns& fragment : *loaded) {
    std::vector<std::uint64_t> places(fragment.choice.countOf(*fragment.fragment));
    order->placesOf(fragment, 0, places);
    all.insert(all.end(), places.begin(), places.end());
  }
  EXPECT_EQ(order->pointCount(), all.size());
  return all;
}

}  // namespace

TEST(RankedBits, AgreeWithAPlainSet) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  for (const std::uint64_t limit : {1ULL, 63ULL, 64ULL, 4096ULL, 70000ULL, 1ULL << 38U}) {
    RankedBits bits;
    std::set<std::uint64_t> plain;
    for (int i = 0; i < 3000; ++i) {
      const std::uint64_t number = random() % limit;
      ASSERT_EQ(bits.set(number), plain.insert(number).second) << number;
    }
    bits.count();
    ASSERT_EQ(bits.size(), plain.size());
    std::uint64_t rank = 0;
    for (const std::uint64_t number : plain) ASSERT_EQ(bits.rank(number), rank++) << number;
  }
}

TEST(RankedBits, RunsAcrossPagesHaveNoGaps) {
  RankedBits bits;
  for (std::uint64_t number = 10000; number-- > 4000;) ASSERT_TRUE(bits.set(number));
  bits.count();
  for (std::uint64_t number = 4000; number < 10000; ++number) {
    ASSERT_EQ(bits.rank(number), number - 4000);
  }
}

TEST(OriginalOrder, FilesComeOneAfterTheOther) {
  CloudBuilder cloud;
  addFragment(cloud, {1, 0, 1}, {0, 1, 2});
  addFragment(cloud, {0, 1, 0}, {0, 1, 2});
  EXPECT_THAT(placesIn(sourceOf(cloud)), ElementsAre(3, 1, 5, 0, 4, 2));
}

TEST(OriginalOrder, MissingPointsLeaveNoGap) {
  CloudBuilder cloud;
  addFragment(cloud, {9, 2, 9}, {500, 1U << 20U, 7});
  EXPECT_THAT(placesIn(sourceOf(cloud)), ElementsAre(2, 0, 1));
}

TEST(OriginalOrder, IsKeptAsLongAsNoPointComesAfterALaterOne) {
  const auto isKept = [](const Files& first, const Indices& from, const Files& second,
                         const Indices& then) {
    CloudBuilder cloud;
    addFragment(cloud, first, from);
    addFragment(cloud, second, then);
    const auto order = readOrder(sourceOf(cloud));
    EXPECT_TRUE(order.ok()) << order.error();
    return order.ok() && order->isKept();
  };
  EXPECT_TRUE(isKept({0, 0}, {0, 1}, {0, 2}, {5, 0}));
  EXPECT_FALSE(isKept({0, 0}, {1, 0}, {0, 0}, {2, 3}));
  EXPECT_FALSE(isKept({0, 0}, {2, 3}, {0, 0}, {0, 1}));
  EXPECT_FALSE(isKept({1}, {0}, {0}, {5}));
}

TEST(OriginalOrder, OnlyChosenPointsCount) {
  CloudBuilder cloud;
  addFragment(cloud, {0, 0, 0, 0}, {3, 3, 1, 2});
  EXPECT_THAT(placesIn(sourceOf(cloud), onlyRows({1, 2})), ElementsAre(1, 0));
}

TEST(OriginalOrder, PointThatOccursTwiceIsNamed) {
  CloudBuilder cloud;
  addFragment(cloud, {0, 3}, {1, 5});
  addFragment(cloud, {3, 0}, {5, 2});
  const auto order = readOrder(sourceOf(cloud));
  ASSERT_FALSE(order.ok());
  EXPECT_EQ(order.error(),
            "fragment 1: point 5 of file 3 occurs twice: its former order cannot be restored");
}

TEST(OriginalOrder, ImpossibleNumberIsRefused) {
  CloudBuilder cloud;
  addFragment(cloud, {0}, {std::uint64_t{1} << 38U});
  const auto order = readOrder(sourceOf(cloud));
  ASSERT_FALSE(order.ok());
  EXPECT_THAT(order.error(),
              HasSubstr("impossible SourceIndex, found 274877906944, expected less"));
}

TEST(OriginalOrder, LargeNumbersTakeNoMoreRoomThanTheirPoints) {
  CloudBuilder cloud;
  addFragment(cloud, {0, 4000000000U, 7}, {(std::uint64_t{1} << 38U) - 1, 1ULL << 37U, 0});
  EXPECT_THAT(placesIn(sourceOf(cloud)), ElementsAre(0, 2, 1));
}

TEST(OriginalOrder, IsKnownByBothFieldsInTheirTypes) {
  CloudBuilder both;
  addFragment(both, {0}, {0});
  EXPECT_TRUE(OriginalOrder::isKnown(sourceOf(both)));
  CloudBuilder one;
  one.fragment({{0, 0, 0}}).field<std::uint32_t>("SourceFile", {0});
  EXPECT_FALSE(OriginalOrder::isKnown(sourceOf(one)));
  CloudBuilder other;
  other.fragment({{0, 0, 0}}).field<std::uint32_t>("SourceFile", {0});
  other.field<std::int64_t>("SourceIndex", {0});
  EXPECT_FALSE(OriginalOrder::isKnown(sourceOf(other)));
}

TEST(OriginalOrder, FragmentWithoutTheFieldsIsNamed) {
  CloudBuilder cloud;
  addFragment(cloud, {0}, {0}).fragment({{1, 1, 1}}).field<std::uint32_t>("SourceFile", {0});
  const auto order = readOrder(sourceOf(cloud));
  ASSERT_FALSE(order.ok());
  EXPECT_EQ(order.error(), "fragment 1: does not tell where its points come from");
}

}  // namespace Formats
