// SPDX-License-Identifier: Apache-2.0
//
// Fields whose creators hand out parts of a fragment, so that its whole arrays are never made.

#include <gtest/gtest.h>

#include <cstring>

#include "assembly/FieldCopy.hpp"
#include "assembly/PointSelection.hpp"
#include "tests/assembly/TileRig.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace LidarLib {
namespace {

using namespace TestSupport;
using Doubles = std::vector<double>;
using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;
using MemCore::StrongPtr;
using Indices = std::span<const unsigned int>;

class PlainPart final : public Fiber::PointPart {
 public:
  using PointPart::PointPart;
};

/// Points on a line: point i stands at (i, 0, 0).
class LineReader final : public Fiber::PointPartReader {
 public:
  LineReader(std::uint64_t count, std::string readFailure, std::string gatherFailure)
      : count_(count),
        readFailure_(std::move(readFailure)),
        gatherFailure_(std::move(gatherFailure)) {
    for (std::uint64_t first = 0; first < count; first += Fiber::kBlockPoints) {
      const auto last = static_cast<double>(std::min(count, first + Fiber::kBlockPoints) - 1);
      boxes_.push_back({{static_cast<double>(first), 0, 0}, {last, 0, 0}});
    }
  }
  std::uint64_t pointCount() const override { return count_; }
  std::uint64_t bytesPerPoint() const override { return 40; }
  Outcome<std::span<const Fiber::PointBox>> blockBoxes() override {
    return std::span<const Fiber::PointBox>(boxes_);
  }
  Outcome<void> readPositions(std::uint64_t first, std::span<Point> out) override {
    if (!readFailure_.empty()) return Failure{readFailure_};
    for (Point& point : out) point = {static_cast<double>(first++), 0, 0};
    return {};
  }
  Outcome<StrongPtr<Fiber::PointPart>> gather(Indices points) override {
    if (!gatherFailure_.empty()) return Failure{gatherFailure_};
    return StrongPtr<Fiber::PointPart>(makeStrong<PlainPart>(points));
  }

 private:
  std::uint64_t count_;
  std::string readFailure_;
  std::string gatherFailure_;
  std::vector<Fiber::PointBox> boxes_;
};

/// A column that is only to be had in parts, or only as a whole.
template <class T, class Value>
class PartCreator final : public Fiber::CreativeArrayBase {
 public:
  PartCreator(std::uint64_t count, Value value, bool inParts = true)
      : CreativeArrayBase({Fiber::FiberTypeBase::find(typeid(T)), Fiber::DynamicSize{count},
                           nullptr, std::nullopt}),
        count_(count),
        value_(value),
        inParts_(inParts) {}
  std::string readFailure;
  std::string gatherFailure;

  StrongPtr<Fiber::PointPartReader> partReader() override {
    return makeStrong<LineReader>(count_, readFailure, gatherFailure);
  }
  bool copyPart(const Fiber::PointPart& part, std::span<std::byte> out) override {
    if (!inParts_) return false;
    for (const unsigned int i : part.points()) {
      const T value = value_(i);
      std::memcpy(out.data(), &value, sizeof value);
      out = out.subspan(sizeof value);
    }
    return true;
  }

 protected:
  Outcome<StrongPtr<Fiber::MemBase>> create() override {
    if (inParts_) return Failure{"whole arrays are not to be had"};
    const auto all = makeStrong<MemCore::Chunk<T>>(count_);
    for (std::size_t i = 0; i < count_; ++i) (*all)[i] = value_(static_cast<unsigned int>(i));
    return StrongPtr<Fiber::MemBase>(Fiber::makeArray(all));
  }

 private:
  std::uint64_t count_;
  Value value_;
  bool inParts_;
};

template <class T, class Value>
auto partCreator(std::uint64_t count, Value value, bool inParts = true) {
  return makeStrong<PartCreator<T, Value>>(count, value, inParts);
}

auto lineCreator(std::uint64_t count) {
  return partCreator<Point>(count, [](unsigned int i) { return Point{double(i), 0, 0}; });
}

auto doubledCreator(std::uint64_t count, bool inParts = true) {
  return partCreator<double>(
      count, [](unsigned int i) { return 2.0 * i; }, inParts);
}

/// A grid of one fragment of ten points, with the field "Twice".
struct LineGrid {
  CloudBuilder cloud;
  StrongPtr<Fiber::Grid> grid;

  explicit LineGrid(const StrongPtr<Fiber::CreativeArrayBase>& positions,
                    const StrongPtr<Fiber::CreativeArrayBase>& twice) {
    cloud.fragment(std::vector<Point>(10)).field<double>("Twice", Doubles(10));
    grid = cloud.currentGrid();
    put("Positions", positions);
    put("Twice", twice);
  }
  void put(const std::string& name, const StrongPtr<Fiber::CreativeArrayBase>& creator) {
    const auto field = grid->getCartesianRepresentation("")->findField(name);
    field->setCreator(field->getFragmentIDs().front(), creator);
  }
};

TEST(FieldCopyPart, ColumnsAreTakenInPartsAlone) {
  const LineGrid line(lineCreator(10), doubledCreator(10));
  TileRig rig(line.grid, {{"0", {1, 4, 5}}});
  rig.copyAll(CopyOrder::FragmentByFragment);
  EXPECT_EQ(rig.values<double>("Twice"), (Doubles{2, 8, 10}));
  EXPECT_EQ(rig.values<Point>("Positions"), (std::vector<Point>{{1, 0, 0}, {4, 0, 0}, {5, 0, 0}}));
}

TEST(FieldCopyPart, ColumnThatHasNoPartsIsCopiedFromItsWholeArray) {
  const LineGrid line(lineCreator(10), doubledCreator(10, false));
  TileRig rig(line.grid, {{"0", {0, 9}}});
  rig.copyAll(CopyOrder::FragmentByFragment);
  EXPECT_EQ(rig.values<double>("Twice"), (Doubles{0, 18}));
}

TEST(FieldCopyPart, IndicesThatDoNotAscendNeedTheWholeArrays) {
  const LineGrid line(lineCreator(10), doubledCreator(10, false));
  TileRig rig(line.grid, {{"0", {7, 3, 3}}});
  rig.copyAll(CopyOrder::FragmentByFragment);
  EXPECT_EQ(rig.values<double>("Twice"), (Doubles{14, 6, 6}));
}

TEST(FieldCopyPart, FragmentThatCannotBeReadIsRememberedByItsPositions) {
  const auto positions = lineCreator(10);
  positions->gatherFailure = "in.laz: points 0 to 9: damaged";
  const LineGrid line(positions, doubledCreator(10));
  TileRig rig(line.grid, {{"0", {1, 4}}});
  rig.copyAll(CopyOrder::FragmentByFragment);
  EXPECT_EQ(positions->failure(), "in.laz: points 0 to 9: damaged");
  EXPECT_TRUE(rig.values<double>("Twice").empty());
}

class PartSelection : public ::testing::Test {
 protected:
  static constexpr std::uint64_t kCount = 6154;

  /// The points of the line that lie in a tile from `low` to `high`.
  TileSelection select(const StrongPtr<Fiber::CreativeArrayBase>& creator, double low,
                       double high) {
    cloud_.fragment({{0, 0, 0}});
    const auto field = cloud_.currentGrid()->CartesianPositions();
    const auto fragment = field->getFragmentIDs().front();
    field->setCreator(fragment, creator);
    const auto box = makeStrong<Eagle::BoundingBox>(Point{low, -1, -1}, Point{high, 1, 1});
    return selectPointsInTile({fragment}, field, box, {{1, 1, 1}});
  }

 private:
  CloudBuilder cloud_;
};

TEST_F(PartSelection, WholeAndMixedBlocksGiveAscendingIndices) {
  const TileSelection selection = select(lineCreator(kCount), 2000, 6150);
  const auto& list = *(*selection.indexLists)[0];
  ASSERT_EQ(selection.pointCount, 4150U);
  for (std::size_t i = 0; i < list.size(); ++i) ASSERT_EQ(list[i], 2001 + i);
}

std::vector<unsigned int> indicesOf(const StrongPtr<Fiber::PointPart>& part) {
  return part ? std::vector(part->points().begin(), part->points().end())
              : std::vector<unsigned int>();
}

TEST_F(PartSelection, PointsOfMixedBlocksAreGatheredAtOnce) {
  const TileSelection selection = select(lineCreator(kCount), 2000, 2005);
  ASSERT_EQ(selection.parts.size(), 1U);
  EXPECT_EQ(indicesOf(selection.parts[0]),
            (std::vector<unsigned int>{2001, 2002, 2003, 2004, 2005}));
}

TEST_F(PartSelection, WholeBlocksAloneAreLeftToBeGathered) {
  const TileSelection selection = select(lineCreator(kCount), 511.5, 1023.5);
  EXPECT_EQ(selection.pointCount, 512U);
  EXPECT_FALSE(bool(selection.parts.at(0)));
}

TEST_F(PartSelection, ManyPointsAreLeftToBeGathered) {
  const std::uint64_t count = std::uint64_t{1} << 17U;
  const TileSelection selection = select(lineCreator(count), 2000, 80000);
  EXPECT_EQ(selection.pointCount, 78000U);
  EXPECT_FALSE(bool(selection.parts.at(0)));
}

TEST_F(PartSelection, PartThatCannotBeGatheredIsLeftToTheCopy) {
  const auto creator = lineCreator(kCount);
  creator->gatherFailure = "in.las: points 2000 to 2005: gone";
  const TileSelection selection = select(creator, 2000, 2005);
  EXPECT_EQ(selection.pointCount, 5U);
  EXPECT_FALSE(bool(selection.parts.at(0)));
  EXPECT_EQ(creator->failure(), "");
}

TEST(FieldCopyPart, PointsGatheredBeforeAreNotReadAgain) {
  const auto positions = lineCreator(10);
  const LineGrid line(positions, doubledCreator(10));
  TileRig rig(line.grid, {{"0", {1, 4}}});
  const auto& points = *(*rig.copy.selection.indexLists)[0];
  rig.copy.selection.parts = {makeStrong<PlainPart>(points.span())};
  positions->gatherFailure = "in.laz: gone";
  rig.copyAll(CopyOrder::FragmentByFragment);
  EXPECT_EQ(rig.values<double>("Twice"), (Doubles{2, 8}));
  EXPECT_EQ(positions->failure(), "");
}

TEST_F(PartSelection, UnreadablePositionsAreRememberedAndGiveNoList) {
  const auto creator = lineCreator(kCount);
  creator->readFailure = "in.laz: damaged";
  const TileSelection selection = select(creator, 100, 200);
  EXPECT_FALSE(bool((*selection.indexLists)[0]));
  EXPECT_EQ(creator->failure(), "in.laz: damaged");
}

}  // namespace
}  // namespace LidarLib
