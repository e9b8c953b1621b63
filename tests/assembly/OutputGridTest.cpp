// SPDX-License-Identifier: Apache-2.0

#include "assembly/OutputGrid.hpp"

#include <gtest/gtest.h>

#include "planning/TilingAttributes.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace LidarLib {
namespace {

using namespace TestSupport;
using Counts = Fiber::MultiIndex<3>;
using MemCore::chunkCast;
using MemCore::StrongPtr;

TilingLayout someLayout() {
  TilingLayout layout;
  layout.nx = 4;
  layout.ny = 3;
  layout.nz = 1;
  layout.fragmentLength = {{25.0, 25.0, 1000.0}};
  layout.normalizedOverlap = 0.1;
  return layout;
}

template <class T>
std::vector<T> attribute(const MemCore::Attributes& attributes, const std::string& name) {
  const auto chunk = chunkCast<T>(attributes.getAttribute(name));
  return chunk ? std::vector<T>(chunk->begin(), chunk->end()) : std::vector<T>();
}

void expectTilingAttributes(const Fiber::Grid& grid) {
  EXPECT_EQ(attribute<unsigned int>(grid.attributes(), "FragDims"),
            (std::vector<unsigned int>{4, 3, 1}));
  EXPECT_EQ(attribute<Point>(grid.attributes(), "FragLength"),
            (std::vector<Point>{{25.0, 25.0, 1000.0}}));
  EXPECT_EQ(attribute<double>(grid.attributes(), "NormalizeOverlap"), std::vector<double>{0.1});
}

/// An input grid, a bundle with an empty output grid, and what was built there.
class OutputGridTest : public testing::Test {
 protected:
  OutputGrid build() { return buildOutputGrid(*input_, *output_, someLayout(), message_); }

  StrongPtr<Fiber::Grid> input_ = CloudBuilder().fragment({{1, 2, 3}}).currentGrid();
  Fiber::Bundle bundle_;
  StrongPtr<Fiber::Grid> output_ = (*bundle_[0.0])["out"];
  std::string message_;
};

TEST_F(OutputGridTest, CarriesTheTilingAttributes) {
  build();
  expectTilingAttributes(*output_);
}

TEST_F(OutputGridTest, TileGridsCarryTheSameAttributes) {
  const auto tile = bundle_[0.0]->newGrid("tile");
  addTilingAttributes(someLayout(), *tile);
  expectTilingAttributes(*tile);
}

TEST_F(OutputGridTest, AttributesOfTheInputAreCopiedAndItsTilingReplaced) {
  input_->attributes().setAttribute("FragDims",
                                    MemCore::makeStrong<MemCore::Chunk<unsigned int>>(3, 99U));
  MemCore::setTextAttribute(input_->attributes(), "Sensor", "any");
  MemCore::setTextAttribute(output_->attributes(), "Old", "gone");
  input_->propertyBits = 0x123456789ABCDEFULL;
  build();
  expectTilingAttributes(*output_);
  EXPECT_EQ(MemCore::textAttribute(output_->attributes(), "Sensor"), "any");
  EXPECT_FALSE(output_->attributes().getAttribute("Old"));
  EXPECT_EQ(output_->propertyBits, 0x123456789ABCDEFULL);
  EXPECT_EQ(attribute<unsigned int>(input_->attributes(), "FragDims"),
            std::vector<unsigned int>(3, 99U));
}

TEST_F(OutputGridTest, TileCountsAreCutTo32Bits) {
  TilingLayout layout = someLayout();
  layout.nx = (std::uint64_t{1} << 32) + 7;
  addTilingAttributes(layout, *output_);
  EXPECT_EQ(attribute<unsigned int>(output_->attributes(), "FragDims"),
            (std::vector<unsigned int>{7, 3, 1}));
}

TEST_F(OutputGridTest, HasRegularPositionsInItsVertexRepresentation) {
  const OutputGrid built = build();
  EXPECT_EQ(message_, "");
  ASSERT_TRUE(built.positions);
  ASSERT_TRUE(built.representation);
  EXPECT_EQ(built.positions->counts(), (Counts{{4, 3, 1}}));
  EXPECT_EQ(built.positions->creatorName(), "RegularFragment");
  EXPECT_EQ(output_->CartesianPositions(), StrongPtr<Fiber::Field>(built.positions));
  EXPECT_EQ(output_->getCartesianRepresentation(""), built.representation);
  EXPECT_EQ(built.positions->getFragmentIDCollection(), built.representation->fragments());
  EXPECT_EQ(Fiber::FragmentedUniformGrid3D(output_).counts(), (Counts{{4, 3, 1}}));
}

TEST_F(OutputGridTest, FragmentsAreAddressedByTileIndex) {
  const auto fragment = build().positions->fragmentAt({{3, 2, 0}});
  ASSERT_TRUE(fragment);
  EXPECT_EQ(fragment->name(), "[3x2x0]");
  EXPECT_EQ(fragment->number(), 11U);
}

TEST_F(OutputGridTest, ASecondGridOfTheSameCountsReusesThePositions) {
  const OutputGrid first = build();
  const OutputGrid second = build();
  EXPECT_EQ(message_, "");
  EXPECT_EQ(second.positions, first.positions);
  EXPECT_EQ(second.representation, first.representation);
}

TEST_F(OutputGridTest, OtherCountsFailWithNoOutputPositions) {
  ASSERT_TRUE(makeRegularPositions(*output_, {{4, 3, 2}}));
  const OutputGrid built = build();
  EXPECT_EQ(message_, "no output positions");
  EXPECT_FALSE(built.positions);
  EXPECT_FALSE(built.representation);
}

TEST_F(OutputGridTest, PositionsOfAnotherKindFailWithNoOutputPositions) {
  const OutputGrid built = buildOutputGrid(*output_, *input_, someLayout(), message_);
  EXPECT_EQ(message_, "no output positions");
  EXPECT_FALSE(built.positions);
  EXPECT_FALSE(makeRegularPositions(*input_, {{1, 1, 1}}));
}

TEST(FinishTilePositions, CellSizeIsMinusOneWhateverItWas) {
  const auto positions = CloudBuilder().fragment({{1, 2, 3}, {4, 0, 9}}).positions();
  const auto creator = positions->getFirstCreator();
  setCellSizeAttribute(*creator, 0.5);
  finishTilePositions(creator, positions);
  EXPECT_EQ(attribute<double>(creator->attributes(), "CellSize"), std::vector<double>{-1.0});
}

TEST(FinishTilePositions, TheCreatorKnowsItsBox) {
  const auto positions = CloudBuilder().fragment({{1, 2, 3}, {4, 0, 9}}).positions();
  const auto creator = positions->getFirstCreator();
  finishTilePositions(creator, positions);
  const auto box = creator->facts().box;
  ASSERT_TRUE(box);
  EXPECT_EQ(box->min(), (Point{1, 0, 3}));
  EXPECT_EQ(box->max(), (Point{4, 2, 9}));
}

TEST(FinishTilePositions, NothingHappensWithoutACreator) {
  const auto positions = CloudBuilder().fragment({{1, 2, 3}}).positions();
  finishTilePositions(nullptr, positions);
  EXPECT_FALSE(positions->getFirstCreator()->facts().box);
}

TEST(FinishTilePositions, WithoutAFieldTheCellSizeIsStillMarked) {
  const auto creator = positionCreator({{1, 2, 3}});
  finishTilePositions(creator, nullptr);
  EXPECT_EQ(attribute<double>(creator->attributes(), "CellSize"), std::vector<double>{-1.0});
}

}  // namespace
}  // namespace LidarLib
