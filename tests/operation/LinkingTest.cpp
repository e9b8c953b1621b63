// SPDX-License-Identifier: Apache-2.0

#include "operation/Linking.hpp"

#include "tests/operation/SplitFixture.hpp"

namespace LidarLib::TestSupport {

namespace {

class LinkingTest : public SplitFixture {
 protected:
  void save(CloudBuilder& cloud, const std::string& name) const {
    const auto saved = cloud.bundle()->save(folder / name, nullptr, nullptr);
    ASSERT_TRUE(saved.ok()) << saved.error();
  }

  /// An output grid of 2 x 2 x 1 tiles.
  MemCore::StrongPtr<Fiber::Grid> grid = MemCore::makeStrong<Fiber::Grid>("out");
  RegularPositions positions = makeRegularPositions(*grid, {{2, 2, 1}});
  std::uint64_t points = 0;
};

MemCore::StrongPtr<Fiber::Field> fieldOf(const Fiber::Grid& grid, const std::string& name) {
  return grid.getCartesianRepresentation("")->findField(name);
}

}  // namespace

TEST_F(LinkingTest, LinksEveryFieldAtTheTileIndexAndCountsThePoints) {
  CloudBuilder cloud;
  cloud.grid("g").fragment({{1, 2, 3}, {4, 5, 6}}).field<double>("GpsTime", {7, 8});
  save(cloud, "tile.f5");
  copyCreators(folder / "tile.f5", *grid, positions, {{1, 1, 0}}, points);
  EXPECT_EQ(points, 2U);
  const auto fragment = positions->fragmentAt({{1, 1, 0}});
  EXPECT_TRUE(positions->getCreator(fragment));
  const auto times = fieldOf(*grid, "GpsTime");
  ASSERT_TRUE(times);
  const auto data = MemCore::handleCast<Fiber::MemArray<1, double>>(times->getData(fragment));
  ASSERT_TRUE(data);
  EXPECT_EQ((*data)[1], 8.0);
}

TEST_F(LinkingTest, AbsentFileContributesNothing) {
  copyCreators(folder / "absent.f5", *grid, positions, {{0, 0, 0}}, points);
  EXPECT_EQ(points, 0U);
  EXPECT_TRUE(console.messages().empty());
  EXPECT_FALSE(positions->getFirstCreator());
}

TEST_F(LinkingTest, SeveralFragmentsAreRefusedPerFieldWithTheirNumber) {
  CloudBuilder cloud;
  cloud.grid("g").fragment({{1, 2, 3}}).fragment({{4, 5, 6}});
  save(cloud, "tile.f5");
  copyCreators(folder / "tile.f5", *grid, positions, {{0, 0, 0}}, points);
  EXPECT_EQ(console.only(), "copyCreators: Have no ID !?!: 2");
  EXPECT_EQ(points, 0U);
}

TEST_F(LinkingTest, FieldWithoutCreatorIsSkippedWithAWarning) {
  CloudBuilder cloud;
  cloud.grid("g").fragmentOf(nullptr).field<double>("GpsTime", {7, 8});
  save(cloud, "tile.f5");
  copyCreators(folder / "tile.f5", *grid, positions, {{0, 0, 0}}, points);
  EXPECT_EQ(console.only(), "WARNING HAVE NO CREATOR TO COPY!");
  EXPECT_EQ(points, 0U) << "a kept fragment without positions adds nothing";
  EXPECT_TRUE(fieldOf(*grid, "GpsTime"));
}

TEST_F(LinkingTest, GridWithoutVerticesIsSkippedSilently) {
  CloudBuilder cloud;
  cloud.grid("bare").grid("g").fragment({{1, 2, 3}});
  save(cloud, "tile.f5");
  copyCreators(folder / "tile.f5", *grid, positions, {{0, 0, 0}}, points);
  EXPECT_EQ(points, 1U);
  EXPECT_TRUE(console.messages().empty());
}

TEST(FieldAttributes, GridWithoutVerticesIsLeftAlone) {
  const auto grid = MemCore::makeStrong<Fiber::Grid>("bare");
  addFieldAttributes(*grid);
  EXPECT_FALSE(grid->skeletons().findVertices(-1));
}

TEST(FieldAttributes, NumbersGetTheirRangeAndPositionsTheirBox) {
  CloudBuilder cloud;
  cloud.grid("g").fragment({{1, 2, 3}, {4, 0, 6}}).field<double>("GpsTime", {8, 7});
  const auto grid = cloud.currentGrid();
  addFieldAttributes(*grid);
  const auto range = fieldOf(*grid, "GpsTime")->findInterface<Fiber::DataRangeBase>();
  ASSERT_TRUE(range);
  EXPECT_EQ(range->range(), (Fiber::ValueRange{7, 8}));
  const auto box = fieldOf(*grid, "Positions")->findInterface<Eagle::BoundingBox>();
  ASSERT_TRUE(box);
  EXPECT_EQ(box->max(), (Point{4, 2, 6}));
}

TEST(FieldAttributes, FieldInTwoRepresentationsIsVisitedOnce) {
  // A creator that counts how often its range has to be computed would hide a second visit behind
  // the remembered answer, so the walk itself is counted: the set remembers each field once.
  CloudBuilder cloud;
  cloud.grid("g").fragment({{1, 2, 3}}).field<double>("GpsTime", {7});
  const auto grid = cloud.currentGrid();
  const auto shared = fieldOf(*grid, "GpsTime");
  grid->makeCartesianRepresentation(3, "AnotherChart", 0)->setField("GpsTime", shared);
  std::size_t visits = 0;
  std::unordered_set<unsigned long long> visited;
  grid->skeletons().findVertices(-1)->iterate_fields(
      [&](const auto&, auto&, const Fiber::FieldID&, const auto& field) {
        if (field == shared) ++visits;
        return true;
      },
      visited);
  EXPECT_EQ(visits, 1U);
  addFieldAttributes(*grid);
  EXPECT_TRUE(shared->findInterface<Fiber::DataRangeBase>());
}

}  // namespace LidarLib::TestSupport
