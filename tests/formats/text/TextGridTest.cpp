// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextGrid.hpp"

#include <gmock/gmock.h>

#include "tests/formats/text/TextTestFiles.hpp"

namespace Formats::TextTests {
namespace {

using testing::ElementsAre;

template <class T>
std::vector<T> propertyOf(const Fiber::Field& field, const std::string& name) {
  const auto chunk = MemCore::chunkCast<T>(field.properties().getAttribute(name));
  return chunk ? std::vector<T>(chunk->begin(), chunk->end()) : std::vector<T>();
}

TestCloud cloudOf(std::string_view text) {
  const TempDir folder;
  return readCloud({writeText(folder / "a.xyz", text)});
}

}  // namespace

TEST(TextGrid, DecimalsGiveTheGridOfTheCoordinates) {
  const auto positions =
      cloudOf("455583.123 5427865.2 -12\n455999.9 5427999.25 7\n").field("Positions");
  EXPECT_THAT(propertyOf<double>(*positions, "GridScale"), ElementsAre(0.001, 0.01, 1.0));
  EXPECT_THAT(propertyOf<double>(*positions, "GridOffset"), ElementsAre(455000, 5427000, -100));
  EXPECT_THAT(propertyOf<std::uint64_t>(*positions, "Decimals"), ElementsAre(3, 2, 0));
}

TEST(TextGrid, CoordinatesBeyond32BitsHaveNoGrid) {
  const auto positions = cloudOf("0.000000001 0 0\n100.5 1 1\n").field("Positions");
  EXPECT_TRUE(propertyOf<double>(*positions, "GridScale").empty());
  EXPECT_THAT(propertyOf<std::uint64_t>(*positions, "Decimals"), ElementsAre(9, 0, 0));
}

TEST(TextGrid, CoordinatesWithExponentsHaveNeitherGridNorDecimals) {
  const auto positions = cloudOf("1e3 0 0\n").field("Positions");
  EXPECT_TRUE(propertyOf<double>(*positions, "GridScale").empty());
  EXPECT_TRUE(propertyOf<std::uint64_t>(*positions, "Decimals").empty());
}

TEST(TextGrid, FieldsOfDoublesKnowTheirDecimals) {
  const TestCloud cloud = cloudOf("x y z p q s\n1 2 3 0.25 7 1e5\n1 2 3 4.5 8 1\n");
  EXPECT_THAT(propertyOf<std::uint64_t>(*cloud.field("p"), "Decimals"), ElementsAre(2));
  EXPECT_TRUE(propertyOf<std::uint64_t>(*cloud.field("q"), "Decimals").empty());
  EXPECT_TRUE(propertyOf<std::uint64_t>(*cloud.field("s"), "Decimals").empty());
}

TEST(TextGrid, CountsAndBoxesAreKnownWithoutData) {
  const CacheBudget budget(0);
  const auto creator = cloudOf("1 2 3\n4 5 6\n").field("Positions")->getFirstCreator();
  EXPECT_EQ(creator->facts().size->elementCount(), 2U);
  EXPECT_EQ(creator->facts().box->max(), (Eagle::PhysicalSpace::point{4, 5, 6}));
  EXPECT_FALSE(bool(creator->dataIfPresent()));
}

}  // namespace Formats::TextTests
