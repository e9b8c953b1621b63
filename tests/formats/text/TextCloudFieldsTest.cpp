// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextCloudFields.hpp"

#include <gmock/gmock.h>

namespace Formats {
namespace {

FileRoles rolesOfNames(const std::vector<std::string>& names) {
  auto roles = rolesOf(names);
  EXPECT_TRUE(roles.ok()) << roles.error();
  return *roles;
}

ColumnFacts wholeUpTo(std::uint64_t highest) {
  ColumnFacts facts;
  facts.highest = highest;
  return facts;
}

}  // namespace

TEST(TextCloudFields, ColumnsAreJoinedByName) {
  const std::vector<FileRoles> files{rolesOfNames({"x", "y", "z", "class", "q"}),
                                     {},
                                     rolesOfNames({"Classification", "z", "y", "x", "p"})};
  const auto fields = joinTextFields(files);
  ASSERT_EQ(fields.size(), 3U);
  EXPECT_EQ(fields[0].name, "Classification");
  EXPECT_EQ(fields[0].columns, (std::vector<std::optional<std::size_t>>{3, std::nullopt, 0}));
  EXPECT_EQ(fields[1].name, "q");
  EXPECT_EQ(fields[1].columns[2], std::nullopt);
  EXPECT_EQ(fields[2].name, "p");
}

TEST(TextCloudFields, TypesFitTheNumbersOfAllFiles) {
  const std::vector<FileRoles> files{rolesOfNames({"x", "y", "z", "q"}),
                                     rolesOfNames({"x", "y", "z", "q"})};
  auto fields = joinTextFields(files);
  addFacts(fields, 0, std::vector<ColumnFacts>{{}, {}, {}, wholeUpTo(5)});
  EXPECT_TRUE(settleTypes(fields));
  EXPECT_EQ(fields[0].type, ElementType::Int32);
  EXPECT_FALSE(settleTypes(fields));
  addFacts(fields, 1, std::vector<ColumnFacts>{{}, {}, {}, wholeUpTo(std::uint64_t{1} << 40U)});
  EXPECT_TRUE(settleTypes(fields));
  EXPECT_EQ(fields[0].type, ElementType::Int64);
}

TEST(TextCloudFields, PlanNumbersTheFieldsThatAFileHas) {
  const std::vector<FileRoles> files{rolesOfNames({"x", "y", "z", "a", "b"}),
                                     rolesOfNames({"b", "-", "x", "y", "z"})};
  const auto fields = joinTextFields(files);
  TextFile file;
  planColumns(file, 1, files[1], fields);
  EXPECT_EQ(file.fieldCount, 1U);
  EXPECT_EQ(file.columns[0].kind, ColumnRole::Kind::Field);
  EXPECT_EQ(file.columns[0].field, 0U);
  EXPECT_EQ(file.columns[1].kind, ColumnRole::Kind::Skipped);
  EXPECT_EQ(file.columns[4].axis, 2U);
}

TEST(TextCloudFields, NotesTellOfZerosAndOfTypesThatDoNotFit) {
  const std::vector<FileRoles> files{
      rolesOfNames({"x", "y", "z", "Intensity", "q"}), rolesOfNames({"x", "y", "z"}), {}};
  const std::vector<std::string> paths{"a.csv", "b.csv", "empty.csv"};
  auto fields = joinTextFields(files);
  fields[0].facts = wholeUpTo(70000);
  settleTypes(fields);
  EXPECT_THAT(
      fieldNotes(fields, paths, files),
      testing::ElementsAre("b.csv: has no fields Intensity, q: zeros are supplied",
                           "field Intensity: its numbers do not fit uint16: kept as int32"));
}

}  // namespace Formats
