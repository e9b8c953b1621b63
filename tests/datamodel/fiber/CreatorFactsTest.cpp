// SPDX-License-Identifier: Apache-2.0
//
// What creators know of their data: extents, boxes and ranges, with and without making the data.

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "datamodel/fiber/CreativeArrayBase.hpp"
#include "tests/datamodel/fiber/TestCreator.hpp"

namespace Fiber {
namespace {

using Eagle::BoundingBox;
using MemCore::makeStrong;
using MemCore::StrongPtr;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

ArrayFacts factsOfThreePoints() {
  return {FiberTypeBase::find("point"), DynamicSize{3},
          makeStrong<BoundingBox>(Point{0, 0, 0}, Point{9, 9, 9}), std::nullopt};
}

TEST(GetSize, KnownExtentsNeedNoData) {
  const auto creator = makerOf<Point>({{1, 2, 3}}, factsOfThreePoints());
  EXPECT_EQ(getSize(*creator), (DynamicSize{3}));
  EXPECT_EQ(pointCountOf(*creator), 3U);
  EXPECT_EQ(creator->timesMade(), 0);
}

TEST(GetSize, UnknownExtentsComeFromTheData) {
  const auto creator = makerOf<double>({1, 2, 3, 4});
  EXPECT_EQ(pointCountOf(*creator), 4U);
  EXPECT_EQ(creator->facts().size, (DynamicSize{4}));
}

TEST(PointCount, IsProductOfExtentsOneWithoutDimensionsZeroWithoutExtents) {
  const auto withSize = [](std::optional<DynamicSize> size) {
    const auto creator =
        makeStrong<TestCreator>([] { return MadeData(MemCore::Failure{"nothing there"}); },
                                ArrayFacts{nullptr, size, nullptr, std::nullopt});
    return pointCountOf(*creator);
  };
  EXPECT_EQ(withSize(DynamicSize{120, 7}), 840U);
  EXPECT_EQ(withSize(DynamicSize{}), 1U);
  EXPECT_EQ(withSize(std::nullopt), 0U);
}

TEST(ExpandBBox, EmptyHandleBecomesTheFragmentsBox) {
  StrongPtr<BoundingBox> box;
  const auto creator = creatorOf<Point>({{1, 5, -2}, {3, 4, 0}});
  EXPECT_TRUE(ExpandBBox(box, *creator, DataCreationMode::KnownOrCreate));
  ASSERT_TRUE(box);
  EXPECT_EQ(box->min(), (Point{1, 4, -2}));
  EXPECT_EQ(box->max(), (Point{3, 5, 0}));
}

TEST(ExpandBBox, GrowsABoxInPlace) {
  const auto box = makeStrong<BoundingBox>(Point{0, 0, 0}, Point{1, 1, 1});
  StrongPtr<BoundingBox> grown = box;
  EXPECT_TRUE(
      ExpandBBox(grown, *creatorOf<Point>({{-1, 0.5, 2}}), DataCreationMode::KnownOrCreate));
  EXPECT_EQ(grown, box);
  EXPECT_EQ(box->min(), (Point{-1, 0, 0}));
  EXPECT_EQ(box->max(), (Point{1, 1, 2}));
}

TEST(ExpandBBox, KnownBoxNeedsNoDataAndStaysUnshared) {
  const auto creator = makerOf<Point>({{1, 2, 3}}, factsOfThreePoints());
  StrongPtr<BoundingBox> box;
  EXPECT_TRUE(ExpandBBox(box, *creator, DataCreationMode::KnownOnly));
  EXPECT_EQ(creator->timesMade(), 0);
  box->expand(BoundingBox({-5, -5, -5}, {20, 20, 20}));
  EXPECT_EQ(creator->facts().box->max(), (Point{9, 9, 9}));
}

TEST(ExpandBBox, KnownOnlyNeverMakesData) {
  const auto creator = makerOf<Point>({{1, 2, 3}});
  StrongPtr<BoundingBox> box;
  EXPECT_FALSE(ExpandBBox(box, *creator, DataCreationMode::KnownOnly));
  EXPECT_FALSE(box);
  EXPECT_EQ(creator->timesMade(), 0);
}

TEST(ExpandBBox, ComputedBoxIsRemembered) {
  const auto creator = makerOf<Point>({{1, 2, 3}});
  StrongPtr<BoundingBox> box;
  ASSERT_TRUE(ExpandBBox(box, *creator, DataCreationMode::KnownOrCreate));
  MemCore::Cache::MemCache()->clear();
  ASSERT_TRUE(ExpandBBox(box, *creator, DataCreationMode::KnownOrCreate));
  EXPECT_EQ(creator->timesMade(), 1);
}

TEST(ExpandBBox, LeavesNaNOutAndKeepsInfinity) {
  StrongPtr<BoundingBox> box;
  const auto creator = creatorOf<Point>({{kNaN, 1, -kInfinity}, {2, kNaN, 3}, {1, 0, kNaN}});
  ASSERT_TRUE(ExpandBBox(box, *creator, DataCreationMode::KnownOrCreate));
  EXPECT_EQ(box->min(), (Point{1, 0, -kInfinity}));
  EXPECT_EQ(box->max(), (Point{2, 1, 3}));
}

TEST(ExpandBBox, AxisOfInfinityAloneIsABox) {
  StrongPtr<BoundingBox> box;
  const auto creator = creatorOf<Point>({{kInfinity, -kInfinity, 0}});
  ASSERT_TRUE(ExpandBBox(box, *creator, DataCreationMode::KnownOrCreate));
  EXPECT_EQ(box->min(), (Point{kInfinity, -kInfinity, 0}));
  EXPECT_EQ(box->max(), (Point{kInfinity, -kInfinity, 0}));
}

TEST(ExpandBBox, NothingToGrowByLeavesTheBoxAlone) {
  StrongPtr<BoundingBox> box;
  for (const auto& creator :
       {creatorOf<Point>({}), creatorOf<Point>({{1, 2, kNaN}}), creatorOf<double>({1, 2})}) {
    EXPECT_FALSE(ExpandBBox(box, *creator, DataCreationMode::KnownOrCreate));
    EXPECT_FALSE(box);
  }
}

TEST(Touch, ForgetsFactsComputedFromTheData) {
  const auto array = makeArray<Point>(makeStrong<MemCore::Chunk<Point>>(2));
  const auto creator = makeStrong<MemoryCreator>(array);
  StrongPtr<BoundingBox> box;
  ASSERT_TRUE(ExpandBBox(box, *creator, DataCreationMode::KnownOrCreate));
  (*array)[1] = {7, 7, 7};
  creator->touch();
  EXPECT_FALSE(creator->facts().box);
  box.reset();
  ASSERT_TRUE(ExpandBBox(box, *creator, DataCreationMode::KnownOrCreate));
  EXPECT_EQ(box->max(), (Point{7, 7, 7}));
}

TEST(Touch, ForgetsTheRangeToo) {
  const auto array = makeArray<double>(makeStrong<MemCore::Chunk<double>>(2));
  const auto creator = makeStrong<MemoryCreator>(array);
  ASSERT_EQ(rangeOf(*creator), (ValueRange{0, 0}));
  (*array)[0] = -4;
  EXPECT_EQ(rangeOf(*creator), (ValueRange{0, 0})) << "known until touched";
  creator->touch();
  EXPECT_EQ(rangeOf(*creator), (ValueRange{-4, 0}));
}

TEST(Touch, WithoutDataInMemoryTheSourcesFactsStay) {
  const auto creator = makerOf<Point>({{1, 2, 3}}, factsOfThreePoints());
  creator->touch();
  EXPECT_TRUE(creator->facts().box);
  EXPECT_EQ(creator->timesMade(), 0);
}

template <class T>
class RangeOfType : public testing::Test {};
using NumberTypes =
    testing::Types<double, float, std::int8_t, std::uint8_t, std::int16_t, std::uint16_t,
                   std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>;
TYPED_TEST_SUITE(RangeOfType, NumberTypes);

TYPED_TEST(RangeOfType, IsSmallestAndLargest) {
  using Limits = std::numeric_limits<TypeParam>;
  EXPECT_EQ(rangeOf(*creatorOf<TypeParam>({7, 3, 9, 3})), (ValueRange{3, 9}));
  EXPECT_EQ(
      rangeOf(*creatorOf<TypeParam>({Limits::max(), Limits::lowest()})),
      (ValueRange{static_cast<double>(Limits::lowest()), static_cast<double>(Limits::max())}));
  EXPECT_FALSE(rangeOf(*creatorOf<TypeParam>({})));
}

TEST(RangeOf, LeavesNaNOutWhereverItStands) {
  EXPECT_EQ(rangeOf(*creatorOf<double>({kNaN, 4, kNaN, -1, kNaN})), (ValueRange{-1, 4}));
  EXPECT_FALSE(rangeOf(*creatorOf<double>({kNaN, kNaN})));
}

TEST(RangeOf, KnownRangeAndVectorsNeedNoData) {
  const auto known = makerOf<double>({1}, {nullptr, std::nullopt, nullptr, ValueRange{-2, 8}});
  EXPECT_EQ(rangeOf(*known), (ValueRange{-2, 8}));
  EXPECT_EQ(known->timesMade(), 0);
  const auto points = makerOf<Point>({{1, 2, 3}}, factsOfThreePoints());
  EXPECT_FALSE(rangeOf(*points));
  EXPECT_EQ(points->timesMade(), 0);
}

TEST(ComputeRange, AsksTheDataWhateverIsKnown) {
  const auto creator = makerOf<double>({1, 3}, {nullptr, std::nullopt, nullptr, ValueRange{-2, 8}});
  EXPECT_EQ(computeRange(*creator), (ValueRange{1, 3}));
  EXPECT_EQ(creator->facts().range, (ValueRange{1, 3}));
}

}  // namespace
}  // namespace Fiber
