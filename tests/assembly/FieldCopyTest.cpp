// SPDX-License-Identifier: Apache-2.0

#include "assembly/FieldCopy.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <complex>
#include <memory>
#include <numeric>

#include "assembly/OutputGrid.hpp"
#include "tests/assembly/TileRig.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/ConsoleCapture.hpp"

namespace LidarLib {
namespace {

using namespace TestSupport;
using MemCore::Chunk;
using MemCore::makeStrong;
using MemCore::StrongPtr;
using testing::ElementsAre;
using Doubles = std::vector<double>;
using Extents = std::vector<std::uint64_t>;
using Vector3 = Eagle::FixedArray<double, 3>;

/// Two fragments of four points each, numbered 10 to 13 and 20 to 23 in the field "Id".
CloudBuilder twoFragments() {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(4)).field<double>("Id", {10, 11, 12, 13});
  cloud.fragment(std::vector<Point>(4)).field<double>("Id", {20, 21, 22, 23});
  return cloud;
}

/// Three points of the first fragment and two of the second.
const TileRig::Selected kThreeAndTwo = {{"0", {0, 1, 3}}, {"1", {1, 2}}};

TEST(FieldCopy, FragmentsFollowEachOtherInOrderOfTheSet) {
  TileRig rig(twoFragments().currentGrid(), kThreeAndTwo);
  rig.copyAll();
  EXPECT_EQ(rig.extents("Id"), Extents{5});
  EXPECT_EQ(rig.values<double>("Id"), (Doubles{10, 11, 13, 21, 22}));
}

TEST(FieldCopy, PositionsAreCopiedLikeAnyField) {
  CloudBuilder cloud;
  cloud.fragment({{1, 2, 3}, {4, 5, 6}}).fragment({{7, 8, 9}});
  TileRig rig(cloud.currentGrid(), {{"0", {1}}, {"1", {0}}});
  rig.copyAll();
  EXPECT_EQ(rig.values<Point>("Positions"), (std::vector<Point>{{4, 5, 6}, {7, 8, 9}}));
}

TEST(FieldCopy, EveryElementTypeIsCopied) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(2));
  cloud.field<unsigned char>("uint8", {1, 2}).field<unsigned short>("uint16", {3, 4});
  cloud.field<unsigned int>("uint32", {5, 6}).field<float>("float", {7, 8});
  cloud.field<Vector3>("vector3", {Vector3{{1, 2, 3}}, Vector3{{4, 5, 6}}});
  cloud.field<std::int64_t>("int64", {-9, -10});
  TileRig rig(cloud.currentGrid(), {{"0", {1}}});
  rig.copyAll();
  EXPECT_THAT(rig.values<unsigned char>("uint8"), ElementsAre(2));
  EXPECT_THAT(rig.values<unsigned short>("uint16"), ElementsAre(4));
  EXPECT_THAT(rig.values<unsigned int>("uint32"), ElementsAre(6));
  EXPECT_THAT(rig.values<float>("float"), ElementsAre(8.0F));
  EXPECT_THAT(rig.values<Vector3>("vector3"), ElementsAre(Vector3{{4, 5, 6}}));
  EXPECT_THAT(rig.values<std::int64_t>("int64"), ElementsAre(-10));
}

TEST(FieldCopy, TheFragmentIsNamedAfterTheTile) {
  TileRig rig(twoFragments().currentGrid(), kThreeAndTwo);
  rig.copyAll();
  const auto ids = rig.field("Id")->getFragmentIDs();
  ASSERT_EQ(ids.size(), 1U);
  EXPECT_EQ(ids.front()->name(), "[3x0x12]");
  EXPECT_EQ(rig.field("Positions")->getFragmentIDs(), ids);
}

TEST(FieldCopy, AFieldThatIsNotWantedIsNotMade) {
  TileRig rig(twoFragments().currentGrid(), kThreeAndTwo);
  rig.operation.fieldFilter = {"Positions"};
  rig.copyAll();
  EXPECT_TRUE(rig.field("Positions"));
  EXPECT_FALSE(rig.field("Id"));
}

TEST(FieldCopy, PropertiesReplaceThoseOfTheOutput) {
  CloudBuilder cloud = twoFragments();
  const auto input = cloud.currentGrid()->getCartesianRepresentation("")->findField("Id");
  MemCore::setTextAttribute(input->properties(), "Unit", "seconds");
  input->propertyBits = 0xFEDCBA9876543210ULL;
  TileRig rig(cloud.currentGrid(), kThreeAndTwo);
  const StrongPtr<Fiber::Field> output =
      Fiber::FieldProxy(rig.copy.outputGrid->makeCartesianRepresentation(3, "", 0), "Id");
  MemCore::setTextAttribute(output->properties(), "Old", "gone");
  rig.copyAll();
  EXPECT_EQ(rig.field("Id"), output);
  EXPECT_EQ(MemCore::textAttribute(output->properties(), "Unit"), "seconds");
  EXPECT_FALSE(output->properties().getAttribute("Old"));
  EXPECT_EQ(output->propertyBits, 0xFEDCBA9876543210ULL);
}

TEST(FieldCopy, TheValueRangeIsKnownAfterwards) {
  TileRig rig(twoFragments().currentGrid(), kThreeAndTwo);
  rig.copyAll();
  const auto range = rig.field("Id")->getFirstCreator()->facts().range;
  EXPECT_EQ(range, (Fiber::ValueRange{10, 22}));
}

TEST(FieldCopy, ElementsThatNoFragmentFillsCountAsZerosInTheRange) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(4)).field<double>("Id", {10, 11, 12});
  cloud.fragment(std::vector<Point>(4)).field<double>("Id", {20, 21, 22, 23});
  TileRig rig(cloud.currentGrid(), kThreeAndTwo);
  const ConsoleCapture console;
  rig.copyAll();
  const auto range = rig.field("Id")->getFirstCreator()->facts().range;
  EXPECT_EQ(range, (Fiber::ValueRange{0, 22}));
}

// The last of many points lies outside, which shows when most of the fragment has been copied.
TEST(FieldCopy, FragmentThatFailsLateLeavesNothingBehind) {
  constexpr unsigned int kMany = 30000;
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(2)).field<double>("Id", {10, 11});
  cloud.fragment(std::vector<Point>(kMany)).field("Id", Doubles(kMany, 99.0));
  cloud.fragment(std::vector<Point>(2)).field<double>("Id", {20, 21});
  std::vector<unsigned int> many(kMany);
  std::iota(many.begin(), many.end(), 1);
  TileRig rig(cloud.currentGrid(), {{"0", {0, 1}}, {"1", many}, {"2", {1}}});
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_TRUE(console.contains("Field: Id Fragment: 1:"));
  Doubles expected(kMany + 3, 0.0);
  std::copy_n(Doubles{10, 11, 21}.begin(), 3, expected.begin());
  EXPECT_EQ(rig.values<double>("Id"), expected);
  EXPECT_EQ(rig.field("Id")->getFirstCreator()->facts().range, (Fiber::ValueRange{0, 21}));
}

TEST(FieldCopy, FieldsOfAnotherChartGoToTheSameChart) {
  CloudBuilder cloud = twoFragments();
  const auto input = cloud.currentGrid();
  const auto other = input->makeCartesianRepresentation(3, "OtherChart", 0);
  other->setField("Id2", input->getCartesianRepresentation("")->findField("Id"));
  const auto moved =
      makeStrong<Fiber::Field>(input->CartesianPositions()->getFragmentIDCollection());
  moved->setPersistentData(Fiber::makeArray(makeStrong<Chunk<double>>(4, 5.0)),
                           moved->getFragmentID("0"), nullptr, "");
  other->setField("Moved", moved);
  TileRig rig(input, {{"0", {2}}});
  rig.copyAll();
  EXPECT_FALSE(rig.field("Moved"));
  const auto output = rig.copy.outputGrid->getCartesianRepresentation("OtherChart");
  ASSERT_TRUE(output);
  EXPECT_TRUE(output->findField("Moved"));
}

TEST(FieldCopy, OtherLengthThanPositionsSkipsTheFragmentAndMovesTheRestUp) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(4)).field<double>("Id", {10, 11, 12});
  cloud.fragment(std::vector<Point>(4)).field<double>("Id", {20, 21, 22, 23});
  TileRig rig(cloud.currentGrid(), kThreeAndTwo);
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_EQ(console.only(),
            " Warning! Different Data Size: Field: Id Size: 3 BUT Positions have:4"
            " -> SKIP THIS FIELD");
  EXPECT_EQ(rig.extents("Id"), Extents{5});
  EXPECT_EQ(rig.values<double>("Id"), (Doubles{21, 22, 0, 0, 0}));
}

TEST(FieldCopy, FragmentByFragmentWarnsInTheSameOrderAsFieldByField) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(4)).field<double>("A", {1}).field<double>("B", {1, 2});
  cloud.fragment(std::vector<Point>(4)).field<double>("A", {1, 2, 3}).field<double>("B", {});
  std::vector<std::vector<std::string>> messages;
  for (const CopyOrder order : {CopyOrder::FieldByField, CopyOrder::FragmentByFragment}) {
    TileRig rig(cloud.currentGrid(), kThreeAndTwo);
    const ConsoleCapture console;
    rig.copyAll(order);
    messages.push_back(console.messages());
  }
  EXPECT_EQ(messages[0].size(), 4U);
  EXPECT_EQ(messages[0], messages[1]);
}

TEST(FieldCopy, OtherRanksHaveLengthZero) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(4));
  cloud.array("Cube",
              makeStrong<Fiber::MemArray<3, double>>(std::array<std::uint64_t, 3>{4, 1, 1}));
  TileRig rig(cloud.currentGrid(), {{"0", {0}}});
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_EQ(console.only(),
            " Warning! Different Data Size: Field: Cube Size: 0 BUT Positions have:4"
            " -> SKIP THIS FIELD");
  EXPECT_FALSE(rig.field("Cube"));
}

TEST(FieldCopy, OtherRanksAreRefusedWhenPositionsHaveNoLengthEither) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(4));
  cloud.array("Cube",
              makeStrong<Fiber::MemArray<3, double>>(std::array<std::uint64_t, 3>{4, 1, 1}));
  TileRig rig(cloud.currentGrid(), {{"0", {0}}});
  rig.operation.fieldFilter = {"Cube"};
  rig.copy.inputPositions = nullptr;
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_EQ(console.only(), "Warning! Dim is not 1D or 2D!");
  EXPECT_FALSE(rig.field("Cube"));
}

/// Knows its extents and cannot make its data.
class FailingCreator final : public Fiber::CreativeArrayBase {
 public:
  FailingCreator() : CreativeArrayBase({nullptr, Fiber::DynamicSize{4}, nullptr, std::nullopt}) {}

 protected:
  MemCore::Outcome<StrongPtr<Fiber::MemBase>> create() override {
    return MemCore::Failure{"points.las: cannot be read"};
  }
};

TEST(FieldCopy, MissingCreatorsAndDataAreSkippedSilently) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(4));
  cloud.fragment(std::vector<Point>(4));
  cloud.fragment(std::vector<Point>(4)).field<double>("Id", {20, 21, 22, 23});
  const auto id = cloud.currentGrid()->getCartesianRepresentation("")->findField("Id");
  id->setCreator(id->getFragmentID("1"), makeStrong<FailingCreator>());
  TileRig rig(cloud.currentGrid(), {{"0", {0}}, {"1", {0, 1}}, {"2", {1, 3}}});
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_THAT(console.messages(), ElementsAre());
  EXPECT_EQ(rig.values<double>("Id"), (Doubles{21, 23, 0, 0, 0}));
}

TEST(FieldCopy, FragmentsWithoutSelectedPointsAreLeftAlone) {
  CloudBuilder cloud = twoFragments();
  cloud.fragment(std::vector<Point>(1)).field<double>("Id", {30, 31});  // would be reported
  TileRig rig(cloud.currentGrid(), {{"1", {2}}, {"2", {}}});
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_THAT(console.messages(), ElementsAre());
  EXPECT_EQ(rig.values<double>("Id"), Doubles{22});
}

TEST(FieldCopy, AnotherElementSizeSkipsTheFragment) {
  CloudBuilder cloud = twoFragments();
  cloud.fragment(std::vector<Point>(1)).field<float>("Id", {30});
  TileRig rig(cloud.currentGrid(), {{"0", {0}}, {"1", {1}}, {"2", {0}}});
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_EQ(console.only(),
            " Warning! Field: Id Fragment: 2: float[1] does not fit the tile, expected double[3]"
            " from element 2 -> SKIP THIS FRAGMENT");
  EXPECT_EQ(rig.values<double>("Id"), (Doubles{10, 21, 0}));
}

TEST(FieldCopy, AnElementTypeThatNobodyRegisteredIsSkipped) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(1)).field<std::complex<float>>("Complex", {{1, 2}});
  TileRig rig(cloud.currentGrid(), {{"0", {0}}});
  const ConsoleCapture console;
  rig.copyAll();
  EXPECT_EQ(console.only(),
            " Warning! Field: Complex Fragment: 0: unknown type[1] no array can be made, expected a"
            " registered element type -> SKIP THIS FRAGMENT");
  EXPECT_FALSE(rig.field("Complex"));
}

TEST(FieldCopy, EmptyHandlesDoNothing) {
  TileRig rig(twoFragments().currentGrid(), kThreeAndTwo);
  const auto space = rig.input->baseSpace("");
  const auto id = rig.input->getCartesianRepresentation("")->findField("Id");
  EXPECT_TRUE(copyFieldIntoTile(rig.copy, {}, {"Id"}, id));
  EXPECT_TRUE(copyFieldIntoTile(rig.copy, space, {"Id"}, nullptr));
  FieldCopy incomplete = rig.copy;
  incomplete.selection.indexLists = nullptr;
  EXPECT_TRUE(copyFieldIntoTile(incomplete, space, {"Id"}, id));
  incomplete = rig.copy;
  incomplete.outputGrid = nullptr;
  EXPECT_TRUE(copyFieldIntoTile(incomplete, space, {"Id"}, id));
  EXPECT_FALSE(rig.field("Id"));
}

/// An output grid of 2 x 1 x 1 tiles and the field copies into it.
class CopyIntoOneGrid : public testing::Test {
 protected:
  std::unique_ptr<TileRig> tile(const StrongPtr<Fiber::Grid>& input, std::uint64_t i,
                                const TileRig::Selected& selected) {
    auto rig = std::make_unique<TileRig>(input, selected);
    rig->becomeFragmentOf(output_, positions_, {{i, 0, 0}});
    return rig;
  }
  Doubles idsOf(std::uint64_t i) const {
    const auto field = output_->getCartesianRepresentation("")->findField("Id");
    const auto data = field->getData(positions_->fragmentAt({{i, 0, 0}}));
    const auto chunk = data ? MemCore::chunkCast<double>(data->elements()) : nullptr;
    return chunk ? Doubles(chunk->begin(), chunk->end()) : Doubles();
  }

  StrongPtr<Fiber::Grid> input_ = twoFragments().currentGrid();
  Fiber::Bundle bundle_;
  StrongPtr<Fiber::Grid> output_ = (*bundle_[0.0])["out"];
  RegularPositions positions_ = makeRegularPositions(*output_, {{2, 1, 1}});
};

TEST_F(CopyIntoOneGrid, EveryTileIsAFragmentOfTheSameFields) {
  tile(input_, 0, {{"0", {0, 1}}})->copyAll();
  tile(input_, 1, {{"0", {2}}, {"1", {3}}})->copyAll();
  EXPECT_EQ(idsOf(0), (Doubles{10, 11}));
  EXPECT_EQ(idsOf(1), (Doubles{12, 23}));
  EXPECT_TRUE(positions_->getCreator(positions_->fragmentAt({{1, 0, 0}})));
}

TEST_F(CopyIntoOneGrid, FieldsShareTheFragmentationOfTheTemplate) {
  tile(input_, 1, {{"0", {0}}})->copyAll();
  const auto field = MemCore::handleCast<Fiber::RegularlyFragmentedField<3>>(
      output_->getCartesianRepresentation("")->findField("Id"));
  ASSERT_TRUE(field);
  EXPECT_EQ(field->counts(), positions_->counts());
  EXPECT_EQ(field->getFragmentIDCollection(), positions_->getFragmentIDCollection());
  EXPECT_FALSE(field->getCreator(positions_->fragmentAt({{0, 0, 0}})));
}

TEST_F(CopyIntoOneGrid, DataOfAnEarlierCopyAreWrittenOver) {
  tile(input_, 0, {{"0", {0, 1, 2}}})->copyAll();
  const auto field = output_->getCartesianRepresentation("")->findField("Id");
  const auto creator = field->getCreator(positions_->fragmentAt({{0, 0, 0}}));
  tile(input_, 0, {{"1", {2, 3}}})->copyAll();
  EXPECT_EQ(field->getCreator(positions_->fragmentAt({{0, 0, 0}})), creator);
  EXPECT_EQ(idsOf(0), (Doubles{22, 23, 12}));
  EXPECT_EQ(creator->facts().range, (Fiber::ValueRange{12, 23}));
}

TEST_F(CopyIntoOneGrid, DataOfAnEarlierCopyThatAreTooSmallStayAsTheyWere) {
  tile(input_, 0, {{"0", {0}}})->copyAll();
  const auto again = tile(input_, 0, {{"1", {2, 3}}});
  again->operation.fieldFilter = {"Id"};
  const ConsoleCapture console;
  again->copyAll();
  EXPECT_EQ(console.only(),
            " Warning! Field: Id Fragment: 1: double[4] does not fit the tile, expected double[1]"
            " from element 0 -> SKIP THIS FRAGMENT");
  EXPECT_EQ(idsOf(0), Doubles{10});
}

}  // namespace
}  // namespace LidarLib
