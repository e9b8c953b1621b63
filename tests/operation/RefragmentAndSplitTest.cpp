// SPDX-License-Identifier: Apache-2.0

#include "operation/RefragmentAndSplit.hpp"

#include <gtest/gtest.h>

#include "planning/TilingAttributes.hpp"

namespace LidarLib {

namespace {

PointHandle pointHandle(double x, double y, double z) {
  return MemCore::makeStrong<MemCore::Chunk<Eagle::PhysicalSpace::point>>(
      1, Eagle::PhysicalSpace::point{x, y, z});
}

}  // namespace

TEST(PrintSecondary, WithoutPointsAndFlagHasThreeLinesEachEndingInABlank) {
  RefragmentAndSplit operation;
  operation.FragmentLength = {{100.0, 100.0, 50.0}};
  EXPECT_EQ(operation.printSecondary(),
            "\nFragmentLength: {100.000000,100.000000,50.000000} "
            "\nNormalizedOverlap: 0.000000 "
            "\nMinPointNumber :0 ");
}

TEST(PrintSecondary, OverlapHasSixDecimals) {
  RefragmentAndSplit operation;
  operation.NormalizedOverlap = 0.25;
  EXPECT_NE(operation.printSecondary().find("\nNormalizedOverlap: 0.250000 "), std::string::npos);
}

TEST(PrintSecondary, PointsAndFlagAddTheirLinesInOrder) {
  RefragmentAndSplit operation;
  operation.MinPointNumber = 4294967295U;
  operation.StartPoint = pointHandle(1, -2, 0.5);
  operation.EndPoint = pointHandle(3, 4, 5);
  operation.UpdateLinkedFiles = true;
  EXPECT_EQ(operation.printSecondary(),
            "\nFragmentLength: {0.000000,0.000000,0.000000} "
            "\nNormalizedOverlap: 0.000000 "
            "\nMinPointNumber :4294967295 "
            "\nHave start point:{1.000000,-2.000000,0.500000} "
            "\nHave end point:{3.000000,4.000000,5.000000} "
            "\nUpdate linked files! ");
}

TEST(PrintSecondary, EmptyHandleOmitsItsLine) {
  RefragmentAndSplit operation;
  operation.EndPoint = pointHandle(3, 4, 5);
  const std::string report = operation.printSecondary();
  EXPECT_EQ(report.find("start point"), std::string::npos);
  EXPECT_NE(report.find("\nHave end point:{3.000000,4.000000,5.000000} "), std::string::npos);
}

TEST(RefragmentAndSplit, OutputGridIsNamedMyGridUntilARunReplacesIt) {
  EXPECT_EQ(RefragmentAndSplit().outputGridName, "myGrid");
}

TEST(TilingAttributes, OverlapAttributeLacksTheD) {
  EXPECT_EQ(kFragLengthAttribute, "FragLength");
  EXPECT_EQ(kFragDimsAttribute, "FragDims");
  EXPECT_EQ(kOverlapAttribute, "NormalizeOverlap");
}

}  // namespace LidarLib
