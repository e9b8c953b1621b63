// SPDX-License-Identifier: Apache-2.0

#include "host/export/TileNames.hpp"

#include <gmock/gmock.h>

namespace Host {
namespace {

using testing::HasSubstr;

TileNameFacts someTile() {
  TileNameFacts facts;
  facts.grid = "scan";
  facts.time = 2.5;
  facts.number = 7;
  facts.count = 1000;
  facts.index = {{3, 0, 12}};
  facts.counts = {{100, 1, 13}};
  facts.corner = {{770500.25, -0.5, 1e15}};
  return facts;
}

std::string nameOf(const std::string& wanted, const TileNameFacts& facts = someTile()) {
  const auto name = tileName(wanted, facts);
  EXPECT_TRUE(name.ok()) << name.stop().text;
  return name.ok() ? *name : "";
}

Stop refusalOf(const std::string& wanted, const TileNameFacts& facts = someTile()) {
  const auto name = tileName(wanted, facts);
  EXPECT_FALSE(name.ok()) << *name;
  return name.ok() ? Stop() : name.stop();
}

TEST(TileNames, UsualNameIsByIndexWhereThereIsOne) {
  EXPECT_EQ(nameOf(usualTileName(true)), "scan_03_0_12");
  EXPECT_EQ(nameOf(usualTileName(false)), "scan_007");
}

TEST(TileNames, EveryPlaceholderHasItsValue) {
  EXPECT_EQ(nameOf("{grid}-{time}-{i}.{j}.{k}-{n}"), "scan-2.500000-03.0.12-007");
  EXPECT_EQ(nameOf("x{xmin}y{ymin}z{zmin}"), "x770500y-1z1000000000000000");
}

TEST(TileNames, CornerAtZeroHasNoSign) {
  TileNameFacts facts = someTile();
  facts.corner = {{-0.0, 0.0, 0.9}};
  EXPECT_EQ(nameOf("{xmin}_{ymin}_{zmin}", facts), "0_0_0");
}

TEST(TileNames, WithoutCountsIndicesAreAsLongAsTheyAre) {
  TileNameFacts facts = someTile();
  facts.counts.reset();
  EXPECT_EQ(nameOf("{i}_{k}", facts), "3_12");
}

TEST(TileNames, TextAroundPlaceholdersIsKept) {
  EXPECT_EQ(nameOf("a b{n}c}"), "a b007c}");
  EXPECT_EQ(nameOf("{open"), "{open");
}

TEST(TileNames, UnknownPlaceholderIsAUsageMistake) {
  for (const char* wanted : {"{x}", "{}", "{I}", "{grid }", "{{n}}"}) {
    const Stop stop = refusalOf(wanted);
    EXPECT_EQ(stop.code, ExitCode::Usage) << wanted;
    EXPECT_THAT(stop.text, HasSubstr("--name: nothing is known for {"));
    EXPECT_THAT(stop.text, HasSubstr("expected some of {grid} {time} {i} {j} {k} {n} {xmin}"));
  }
}

TEST(TileNames, FragmentThatIsNoTileHasNoIndexAndMaybeNoCorner) {
  TileNameFacts facts = someTile();
  facts.index.reset();
  facts.corner.reset();
  EXPECT_THAT(refusalOf("{i}", facts).text, HasSubstr("nothing is known for {i}"));
  EXPECT_THAT(refusalOf("{zmin}", facts).text, HasSubstr("nothing is known for {zmin}"));
  EXPECT_EQ(nameOf("{n}", facts), "007");
}

TEST(TileNames, NameThatLeadsElsewhereIsAUsageMistake) {
  for (const char* wanted : {"", "a/{n}", "../{n}", ".{n}", "a\\{n}", "a\n{n}"}) {
    const Stop stop = refusalOf(wanted);
    EXPECT_EQ(stop.code, ExitCode::Usage) << wanted;
    EXPECT_THAT(stop.text, HasSubstr("--name: ")) << wanted;
  }
  TileNameFacts facts = someTile();
  facts.grid = "../../x";
  EXPECT_EQ(refusalOf("{grid}", facts).code, ExitCode::Usage);
}

}  // namespace
}  // namespace Host
