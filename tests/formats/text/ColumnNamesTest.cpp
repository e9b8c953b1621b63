// SPDX-License-Identifier: Apache-2.0

#include "formats/text/ColumnNames.hpp"

#include <gmock/gmock.h>

namespace Formats {
namespace {

using Names = std::vector<std::string>;

/// What each column becomes: an axis' letter, a field's name, or "-".
Names shownRoles(const Names& names) {
  const auto roles = rolesOf(names);
  EXPECT_TRUE(roles.ok()) << roles.error();
  Names shown;
  if (!roles) return shown;
  for (const ColumnRole& role : *roles) {
    if (role.kind == ColumnRole::Kind::Axis) shown.emplace_back(1, "xyz"[role.axis]);
    if (role.kind == ColumnRole::Kind::Field) shown.push_back(role.field);
    if (role.kind == ColumnRole::Kind::Skipped) shown.emplace_back("-");
  }
  return shown;
}

}  // namespace

TEST(ColumnNames, FieldsThatLasKnowsGetItsNames) {
  EXPECT_EQ(shownRoles({"X", "Y", "Z", "r", "Green", "B", "GPS_Time", "return_number", "class",
                        "Number Of Returns", "point_source_ID"}),
            (Names{"x", "y", "z", "Red", "Green", "Blue", "GpsTime", "ReturnNumber",
                   "Classification", "NumberOfReturns", "PointSourceId"}));
}

TEST(ColumnNames, AxesHaveOtherNamesToo) {
  EXPECT_EQ(shownRoles({"Northing", "Easting", "Depth"}), (Names{"y", "x", "z"}));
  EXPECT_EQ(shownRoles({"lat", "lon", "Elevation [m]"}), (Names{"y", "x", "z"}));
}

TEST(ColumnNames, PlainAxesGoBeforeTheirOtherNames) {
  EXPECT_EQ(shownRoles({"x", "y", "z", "Depth", "Easting"}),
            (Names{"x", "y", "z", "Depth", "Easting"}));
}

TEST(ColumnNames, OtherNamesAreKeptAndMadeSafe) {
  EXPECT_EQ(shownRoles({"x", "y", "z", "TVU/m", ".hidden", "Echo[1]", "r[2]", ""}),
            (Names{"x", "y", "z", "TVU_m", "_hidden", "Echo[1]", "r[2]", "Unnamed"}));
}

TEST(ColumnNames, NamesThatAreTakenGetNumbers) {
  EXPECT_EQ(shownRoles({"x", "y", "z", "t", "gps time", "Positions", "q", "q", "q"}),
            (Names{"x", "y", "z", "GpsTime", "GpsTime_2", "Positions_2", "q", "q_2", "q_3"}));
}

TEST(ColumnNames, DashLeavesAColumnOut) {
  EXPECT_EQ(shownRoles({"-", "x", "y", "-", "z"}), (Names{"-", "x", "y", "-", "z"}));
}

TEST(ColumnNames, AxesThatAreMissingOrDoubledAreRefused) {
  EXPECT_EQ(rolesOf(Names{"x", "y", "foo"}).error(),
            "no column for z, found \"x y foo\", expected one of each of x, y and z");
  EXPECT_EQ(rolesOf(Names{"x", "X", "y", "z"}).error(),
            "several columns for x, found \"x X y z\", expected one of each of x, y and z");
  EXPECT_EQ(rolesOf(Names{}).error(),
            "no column for x, found \"\", expected one of each of x, y and z");
}

TEST(ColumnNames, KnownFieldsBringTheirTypes) {
  const auto roles = rolesOf(Names{"x", "y", "z", "Intensity", "ScanAngle", "other"});
  ASSERT_TRUE(roles.ok());
  EXPECT_THAT((*roles)[3].types, testing::ElementsAre(ElementType::UInt16));
  EXPECT_THAT((*roles)[4].types, testing::ElementsAre(ElementType::Int8, ElementType::Int16));
  EXPECT_TRUE((*roles)[5].types.empty());
}

TEST(ColumnNames, ColumnsWithoutNamesAreCounted) {
  EXPECT_EQ(defaultColumnNames(5), (Names{"x", "y", "z", "Column4", "Column5"}));
}

}  // namespace Formats
