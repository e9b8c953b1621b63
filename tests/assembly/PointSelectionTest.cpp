// SPDX-License-Identifier: Apache-2.0

#include "assembly/PointSelection.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <limits>

#include "assembly/PointBlockBoxes.hpp"
#include "tests/assembly/PlainSelection.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib {
namespace {

using namespace TestSupport;
using MemCore::makeStrong;
using MemCore::StrongPtr;
using testing::Test;
using Lists = std::vector<std::vector<unsigned int>>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kBlock = Fiber::kBlockPoints;

StrongPtr<Eagle::BoundingBox> boxHandle(const Point& min, const Point& max) {
  return makeStrong<Eagle::BoundingBox>(min, max);
}

FragmentSet allFragments(const Fiber::Field& positions) {
  const auto ids = positions.getFragmentIDs();
  return {ids.begin(), ids.end()};
}

/// Selected indices of one fragment, with and without the table of block boxes.
std::vector<unsigned int> select(const std::vector<Point>& points, const Eagle::BoundingBox& box,
                                 const Index3& index) {
  const auto array = positionsOf(points);
  const auto withoutTable = elementsOf(selectPointsInBox(*array, box, index));
  PointBlockBoxes::attachTo(*array);
  auto withTable = elementsOf(selectPointsInBox(*array, box, index));
  EXPECT_EQ(withoutTable, withTable);
  return withTable;
}

/// The lists of a selection; an absent one fails the test.
Lists listsOf(const TileSelection& selection) {
  Lists lists;
  for (const auto& list : *selection.indexLists) lists.push_back(elementsOf(list));
  return lists;
}

/// Restores the number of threads.
class ThreadCount {
 public:
  explicit ThreadCount(int count) : former_(omp_get_max_threads()) { omp_set_num_threads(count); }
  ~ThreadCount() { omp_set_num_threads(former_); }
  ThreadCount(const ThreadCount&) = delete;
  ThreadCount& operator=(const ThreadCount&) = delete;

 private:
  int former_;
};

/// Makes one point and notes the size of the team that asked for it.
class TeamWitness final : public Fiber::CreativeArrayBase {
 public:
  explicit TeamWitness(std::atomic<int>& teamSize) : CreativeArrayBase({}), teamSize_(teamSize) {}

 protected:
  MemCore::Outcome<StrongPtr<Fiber::MemBase>> create() override {
    teamSize_ = omp_get_num_threads();
    return StrongPtr<Fiber::MemBase>(positionsOf({{1, 1, 1}}));
  }

 private:
  std::atomic<int>& teamSize_;
};

/// Cannot make its data, as an unreadable file cannot.
class FailingCreator final : public Fiber::CreativeArrayBase {
 public:
  FailingCreator() : CreativeArrayBase({}) {}

 protected:
  MemCore::Outcome<StrongPtr<Fiber::MemBase>> create() override {
    return MemCore::Failure{"points.las: cannot be read"};
  }
};

/// Runs out of memory in a way that the creator does not catch.
class ThrowingCreator final : public Fiber::CreativeArrayBase {
 public:
  ThrowingCreator() : CreativeArrayBase({}) {}

 protected:
  MemCore::Outcome<StrongPtr<Fiber::MemBase>> create() override { throw std::length_error("x"); }
};

TEST(PointSelection, PointOnSharedFaceBelongsToLowerTile) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    Point onFace{5, 5, 5};
    onFace[axis] = 10;
    Point lowerMax{10, 10, 10};
    Point upperMin{0, 0, 0};
    Point upperMax{10, 10, 10};
    upperMin[axis] = 10;
    upperMax[axis] = 20;
    Index3 upper;
    upper[axis] = 1;
    EXPECT_EQ(select({onFace}, {{0, 0, 0}, lowerMax}, Index3{}).size(), 1U) << "axis " << axis;
    EXPECT_EQ(select({onFace}, {upperMin, upperMax}, upper).size(), 0U) << "axis " << axis;
  }
}

TEST(PointSelection, PointOnMinimumOfWholeTilingBelongsToTileZero) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    Point onMinimum{5, 5, 5};
    onMinimum[axis] = 0;
    Index3 elsewhereLater{{3, 3, 3}};
    elsewhereLater[axis] = 0;
    const Eagle::BoundingBox box({0, 0, 0}, {10, 10, 10});
    EXPECT_EQ(select({onMinimum}, box, elsewhereLater).size(), 1U) << "axis " << axis;
    Index3 laterHereAlone;
    laterHereAlone[axis] = 3;
    EXPECT_EQ(select({onMinimum}, box, laterHereAlone).size(), 0U) << "axis " << axis;
  }
}

TEST(PointSelection, PointsInOverlappingMarginsBelongToBothTiles) {
  const std::vector<Point> inMargin = {{10, 5, 5}};
  EXPECT_EQ(select(inMargin, {{-1, -1, -1}, {11, 11, 11}}, Index3{}).size(), 1U);
  EXPECT_EQ(select(inMargin, {{9, -1, -1}, {21, 11, 11}}, Index3{{1, 0, 0}}).size(), 1U);
}

TEST(PointSelection, NaNIsNeverSelected) {
  std::vector<Point> points;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    points.push_back({5, 5, 5});
    points.back()[axis] = kNaN;
  }
  points.push_back({5, 5, 5});
  const Eagle::BoundingBox everything({-kInfinity, -kInfinity, -kInfinity},
                                      {kInfinity, kInfinity, kInfinity});
  EXPECT_EQ(select(points, everything, Index3{}), std::vector<unsigned int>{3});
}

TEST(PointSelection, NaNInAWholeBlockInsideTheTileIsLeftOut) {
  std::vector<Point> points(3 * kBlock, Point{5, 5, 5});
  points[kBlock + 17].y = kNaN;
  const auto selected = select(points, {{0, 0, 0}, {10, 10, 10}}, Index3{{1, 1, 1}});
  EXPECT_EQ(selected.size(), points.size() - 1);
  EXPECT_FALSE(std::binary_search(selected.begin(), selected.end(), kBlock + 17));
}

TEST(PointSelection, InfinitiesCompareAsTheyDo) {
  const std::vector<Point> points = {{kInfinity, 1, 1}, {-kInfinity, 1, 1}, {1, 1, 1}};
  const Point low{-kInfinity, 0, 0};
  const Point high{kInfinity, 2, 2};
  EXPECT_EQ(select(points, {low, high}, Index3{}), (std::vector<unsigned int>{0, 1, 2}));
  EXPECT_EQ(select(points, {low, high}, Index3{{1, 0, 0}}), (std::vector<unsigned int>{0, 2}));
}

TEST(PointSelection, ListsAreAscending) {
  std::mt19937_64 random(testSeed());
  const Eagle::BoundingBox box({-1, -1, -1}, {1, 1, 1});
  const auto selected = select(nastyCloud(random, 5 * kBlock + 11, box), box, Index3{});
  EXPECT_FALSE(selected.empty());
  EXPECT_TRUE(std::is_sorted(selected.begin(), selected.end()));
}

TEST(PointSelection, AgreesWithThePlainTestOnAnyCloudAndBox) {
  std::mt19937_64 random(testSeed());
  for (int repetition = 0; repetition < 60; ++repetition) {
    const auto box = nastyBox(random);
    const auto index = someIndex(random);
    const auto points = nastyCloud(random, random() % (6 * kBlock), box);
    EXPECT_EQ(select(points, box, index), selectPlainly(points, box, index))
        << "repetition " << repetition;
  }
}

TEST(PointSelection, EveryPointIsInExactlyOneTileOfATiling) {
  std::mt19937_64 random(testSeed());
  std::uniform_int_distribution<int> lattice(0, 8);  // half the coordinates lie on faces
  std::vector<Point> points(3 * kBlock);
  for (Point& p : points) {
    for (std::size_t axis = 0; axis < 3; ++axis) p[axis] = 0.5 * lattice(random);
  }
  std::vector<int> timesSelected(points.size());
  for (std::uint64_t t = 0; t < 64; ++t) {
    const Index3 index{{t % 4, t / 4 % 4, t / 16}};
    Point low;
    for (std::size_t axis = 0; axis < 3; ++axis) low[axis] = static_cast<double>(index[axis]);
    const Eagle::BoundingBox box(low, {low.x + 1, low.y + 1, low.z + 1});
    for (const unsigned int i : select(points, box, index)) ++timesSelected[i];
  }
  EXPECT_EQ(timesSelected, std::vector<int>(points.size(), 1));
}

TEST(PointSelection, FragmentsWithoutPositionsYieldOneEmptyHandleEach) {
  auto other = makeStrong<Fiber::MemArray<1, double>>(std::array<std::uint64_t, 1>{3});
  auto raster = makeStrong<Fiber::UniformCartesianArray>(
      std::array<std::uint64_t, 3>{2, 2, 1}, Point{}, Eagle::FixedArray<double, 3>{{1, 1, 1}});
  CloudBuilder cloud;
  cloud.fragment({{1, 1, 1}})
      .fragmentOf(nullptr)
      .fragmentOf(makeStrong<FailingCreator>())
      .fragmentOf(makeStrong<Fiber::MemoryCreator>(StrongPtr<Fiber::MemBase>(other)))
      .fragmentOf(makeStrong<Fiber::MemoryCreator>(StrongPtr<Fiber::MemBase>(raster)));
  const auto positions = cloud.positions();
  FragmentSet withoutPositions = allFragments(*positions);
  withoutPositions.erase(positions->getFragmentID("0"));
  const auto selection =
      selectPointsInTile(withoutPositions, positions, boxHandle({0, 0, 0}, {2, 2, 2}), Index3{});
  EXPECT_EQ(selection.pointCount, 0U);
  ASSERT_EQ(selection.indexLists->size(), 4U);
  for (const auto& list : *selection.indexLists) EXPECT_FALSE(list);
}

TEST(PointSelection, FragmentWithoutPointsInsideYieldsAnEmptyList) {
  const auto positions = CloudBuilder().fragment({{50, 50, 50}}).fragment({}).positions();
  const auto selection = selectPointsInTile(allFragments(*positions), positions,
                                            boxHandle({0, 0, 0}, {2, 2, 2}), Index3{});
  EXPECT_EQ(selection.pointCount, 0U);
  EXPECT_EQ(listsOf(selection), Lists(2));
}

TEST(PointSelection, OneEntryPerMemberOfTheSetInItsOrder) {
  CloudBuilder cloud;
  for (int f = 0; f < 40; ++f) {
    cloud.fragment(std::vector<Point>(static_cast<std::size_t>(f), Point{1, 1, 1}));
  }
  const auto positions = cloud.positions();
  const FragmentSet fragments = allFragments(*positions);
  const auto selection =
      selectPointsInTile(fragments, positions, boxHandle({0, 0, 0}, {2, 2, 2}), Index3{});
  ASSERT_EQ(selection.indexLists->size(), fragments.size());
  std::size_t k = 0;
  for (const auto& fragment : fragments) {
    EXPECT_EQ((*selection.indexLists)[k++]->size(), fragment->number());
  }
  EXPECT_EQ(selection.pointCount, 39U * 40U / 2U);
}

TEST(PointSelection, EmptySetFieldOrBoxSelectsNothing) {
  const auto positions = CloudBuilder().fragment({{1, 1, 1}}).positions();
  const auto box = boxHandle({0, 0, 0}, {2, 2, 2});
  EXPECT_EQ(selectPointsInTile({}, positions, box, Index3{}).indexLists->size(), 0U);
  const FragmentSet one = allFragments(*positions);
  for (const auto& selection : {selectPointsInTile(one, nullptr, box, Index3{}),
                                selectPointsInTile(one, positions, nullptr, Index3{})}) {
    EXPECT_EQ(selection.pointCount, 0U);
    ASSERT_EQ(selection.indexLists->size(), 1U);
    EXPECT_FALSE((*selection.indexLists)[0]);
  }
}

TEST(PointSelection, TheTableIsAttachedOnFirstUse) {
  const auto array = positionsOf({{1, 1, 1}});
  const auto positions =
      CloudBuilder()
          .fragmentOf(makeStrong<Fiber::MemoryCreator>(StrongPtr<Fiber::MemBase>(array)))
          .positions();
  EXPECT_FALSE(array->findInterface<PointBlockBoxes>());
  selectPointsInTile(allFragments(*positions), positions, boxHandle({0, 0, 0}, {2, 2, 2}),
                     Index3{});
  EXPECT_TRUE(array->findInterface<PointBlockBoxes>());
}

/// Fragments of a nasty cloud and a box through the middle of it.
class ThreadedSelection : public Test {
 protected:
  void SetUp() override {
    std::mt19937_64 random(testSeed());
    const Eagle::BoundingBox box({-1, -1, -1}, {1, 1, 1});
    CloudBuilder cloud;
    for (int f = 0; f < 12; ++f) {
      points_.push_back(nastyCloud(random, random() % (3 * kBlock), box));
      cloud.fragment(points_.back());
    }
    positions_ = cloud.positions();
    fragments_ = allFragments(*positions_);
    for (const auto& fragment : fragments_) {
      expected_.push_back(selectPlainly(points_[fragment->number()], box, kIndex));
    }
  }
  Lists selectAll() const {
    return listsOf(
        selectPointsInTile(fragments_, positions_, boxHandle({-1, -1, -1}, {1, 1, 1}), kIndex));
  }

  const Index3 kIndex{{1, 0, 1}};
  std::vector<std::vector<Point>> points_;
  StrongPtr<Fiber::Field> positions_;
  FragmentSet fragments_;
  Lists expected_;
};

TEST_F(ThreadedSelection, TheSameForAnyNumberOfThreads) {
  for (const int threads : {1, 2, 8}) {
    const ThreadCount count(threads);
    EXPECT_EQ(selectAll(), expected_) << threads << " threads";
  }
}

TEST_F(ThreadedSelection, TheSameInsideAParallelRegion) {
  std::vector<Lists> results(16);
#pragma omp parallel for num_threads(8) schedule(dynamic, 1)
  for (std::size_t tile = 0; tile < results.size(); ++tile) results[tile] = selectAll();
  for (const Lists& result : results) EXPECT_EQ(result, expected_);
}

TEST(PointSelection, ThreadsShareTheFragmentsOutsideAParallelRegionOnly) {
  const ThreadCount count(3);
  const auto box = boxHandle({0, 0, 0}, {2, 2, 2});
  std::atomic<int> outside = 0;
  const auto shared = CloudBuilder()
                          .fragmentOf(makeStrong<TeamWitness>(outside))
                          .fragmentOf(makeStrong<TeamWitness>(outside))
                          .positions();
  selectPointsInTile(allFragments(*shared), shared, box, Index3{});
  EXPECT_EQ(outside, 3);

  std::atomic<int> inside = 0;
  const auto nested = CloudBuilder()
                          .fragmentOf(makeStrong<TeamWitness>(inside))
                          .fragmentOf(makeStrong<TeamWitness>(inside))
                          .positions();
#pragma omp parallel for num_threads(2)
  for (int tile = 0; tile < 2; ++tile) {
    selectPointsInTile(allFragments(*nested), nested, box, Index3{});
  }
  EXPECT_EQ(inside, 2);
}

TEST(PointSelection, AnExceptionLeavesOnTheCallingThread) {
  const ThreadCount count(2);
  const auto positions = CloudBuilder()
                             .fragmentOf(makeStrong<ThrowingCreator>())
                             .fragmentOf(makeStrong<ThrowingCreator>())
                             .positions();
  EXPECT_THROW(selectPointsInTile(allFragments(*positions), positions,
                                  boxHandle({0, 0, 0}, {2, 2, 2}), Index3{}),
               std::length_error);
}

}  // namespace
}  // namespace LidarLib
