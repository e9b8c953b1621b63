// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/Grid.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/datamodel/fiber/TestCreator.hpp"

namespace Fiber {
namespace {

using MemCore::makeStrong;
using MemCore::StrongPtr;

/// A grid with two points in one fragment.
StrongPtr<Grid> gridWithPoints() {
  auto grid = makeStrong<Grid>("scan");
  const auto positions = makeStrong<Field>(nullptr);
  positions->setPersistentData(arrayOf<Point>({{0, 0, 0}, {1, 1, 1}}),
                               positions->makeFragmentID("0"), nullptr, "");
  const GridWithCartesianVertices view(grid, positions);
  return grid;
}

TEST(Grid, NewGridHasNothing) {
  const Grid grid("scan");
  EXPECT_EQ(grid.name(), "scan");
  EXPECT_FALSE(grid.findCartesianChart(kCartesianChart));
  EXPECT_FALSE(grid.baseSpace(kCartesianChart));
  EXPECT_FALSE(grid.getCartesianRepresentation(""));
  EXPECT_FALSE(grid.CartesianPositions());
}

TEST(Grid, ChartIsMadeOnceAndFound) {
  Grid grid("scan");
  EXPECT_EQ(grid.makeCartesianChart("Other", 0)->name, "Other");
  const auto space = grid.baseSpace("Other");
  ASSERT_TRUE(space);
  grid.makeCartesianChart("Other", 0);
  EXPECT_EQ(grid.baseSpace("Other"), space);
  EXPECT_EQ(grid.findCartesianChart("Other")->name, "Other");
}

TEST(Grid, EmptyChartNameIsTheStandardChart) {
  Grid grid("scan");
  EXPECT_EQ(grid.makeCartesianChart("", 0)->name, kCartesianChart);
  EXPECT_TRUE(grid.findCartesianChart(kCartesianChart));
  EXPECT_EQ(grid.baseSpace(""), grid.baseSpace(kCartesianChart));
}

TEST(Grid, RepresentationOfTheVerticesIsMadeOnceAndFound) {
  Grid grid("scan");
  const auto made = grid.makeCartesianRepresentation(3, "", 0);
  ASSERT_TRUE(made);
  EXPECT_EQ(grid.makeCartesianRepresentation(3, kCartesianChart, 0), made);
  EXPECT_EQ(grid.getCartesianRepresentation(""), made);
  const auto vertices = grid.skeletons().findVertices(-1);
  ASSERT_TRUE(vertices);
  EXPECT_EQ(grid.getCartesianRepresentation(*vertices, kCartesianChart), made);
  EXPECT_EQ((*vertices)[grid.baseSpace("")], made);
}

TEST(Grid, RepresentationOfAnotherDimensionIsAnEmptyHandle) {
  Grid grid("scan");
  EXPECT_FALSE(grid.makeCartesianRepresentation(2, "", 0));
  EXPECT_FALSE(grid.skeletons().findVertices(-1));
}

TEST(Grid, PositionsAreFoundInTheStandardChartAlone) {
  const auto grid = gridWithPoints();
  EXPECT_TRUE(grid->CartesianPositions());
  Grid other("other");
  other.makeCartesianRepresentation(3, "Elsewhere", 0)->setPositions(makeStrong<Field>(nullptr));
  EXPECT_FALSE(other.CartesianPositions());
}

TEST(Grid, FieldIsFoundByChartNameAndSkeleton) {
  const auto grid = gridWithPoints();
  const auto chart = grid->findCartesianChart("");
  const auto vertices = grid->skeletons().findVertices(-1);
  EXPECT_EQ(grid->getField(chart, "Positions", vertices), grid->CartesianPositions());
  EXPECT_FALSE(grid->getField(chart, "Intensity", vertices));
  EXPECT_FALSE(grid->getField(nullptr, "Positions", vertices));
  EXPECT_FALSE(grid->getField(chart, "Positions", nullptr));
  EXPECT_FALSE(grid->getField(makeStrong<ChartID>(ChartID{"Elsewhere"}), "Positions", vertices));
}

TEST(Grid, HandleIsThatOfTheGridItself) {
  const auto grid = makeStrong<Grid>("scan");
  EXPECT_EQ(grid->handle(), grid);
  Grid onTheStack("scan");
  EXPECT_THROW((void)onTheStack.handle(), MemCore::SelfConstruction);
}

TEST(Grid, AttributesAndTheirNumberAreCopiedByValue) {
  Grid source("a");
  Grid target("b");
  MemCore::setTextAttribute(source.attributes(), "CRS", "EPSG:32605");
  source.propertyBits = 3;
  target.attributes() = source.attributes();
  target.propertyBits = source.propertyBits;
  EXPECT_EQ(MemCore::textAttribute(target.attributes(), "CRS"), "EPSG:32605");
  EXPECT_EQ(target.propertyBits, 3U);
}

TEST(Grid, ThreadsAskForTheChartAtOnce) {
  const auto grid = gridWithPoints();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        const auto chart = grid->makeCartesianChart(kCartesianChart, 0);
        ASSERT_TRUE(grid->getField(chart, "Positions", grid->skeletons().findVertices(-1)));
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST(GridWithCartesianVertices, InstallsThePositions) {
  const auto grid = makeStrong<Grid>("scan");
  const auto positions = makeStrong<Field>(nullptr);
  const GridWithCartesianVertices view(grid, positions);
  EXPECT_EQ(view.grid(), grid);
  EXPECT_EQ(grid->CartesianPositions(), positions);
}

TEST(GridWithCartesianVertices, EmptyHandlesInstallNothing) {
  const GridWithCartesianVertices nothing(nullptr, nullptr);
  EXPECT_FALSE(nothing.grid());
  const auto grid = makeStrong<Grid>("scan");
  const GridWithCartesianVertices skeletonAlone(grid, nullptr);
  EXPECT_TRUE(grid->skeletons().findVertices(-1));
  EXPECT_FALSE(grid->CartesianPositions());
}

TEST(FragmentedUniformGrid, ShowsRegularPositionsAsAnArray) {
  const auto grid = makeStrong<Grid>("tiles");
  const auto positions =
      makeStrong<RegularlyFragmentedField<3>>(MultiIndex<3>{{2, 3, 4}}, "tiles", nullptr);
  const GridWithCartesianVertices vertices(grid, positions);
  const FragmentedUniformGrid3D view(grid);
  EXPECT_TRUE(view.hasFragments());
  EXPECT_EQ(view.counts(), (MultiIndex<3>{{2, 3, 4}}));
  EXPECT_EQ(view.fragmentAt({{1, 2, 3}}), positions->fragmentAt({{1, 2, 3}}));
  EXPECT_FALSE(view.fragmentAt({{2, 0, 0}}));
}

TEST(FragmentedUniformGrid, HasNoArrayWithoutRegularPositions) {
  const StrongPtr<Grid> grids[] = {nullptr, makeStrong<Grid>("empty"), gridWithPoints()};
  for (const auto& grid : grids) {
    const FragmentedUniformGrid3D view(grid);
    EXPECT_FALSE(view.hasFragments());
    EXPECT_EQ(view.counts(), (MultiIndex<3>{}));
    EXPECT_FALSE(view.fragmentAt({{0, 0, 0}}));
  }
}

}  // namespace
}  // namespace Fiber
