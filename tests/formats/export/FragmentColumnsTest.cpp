// SPDX-License-Identifier: Apache-2.0

#include "formats/export/FragmentColumns.hpp"

#include <gmock/gmock.h>

#include <numeric>

#include "formats/las/ByteStream.hpp"
#include "tests/formats/export/ExportTestGrids.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<FragmentColumns> load(const ExportSource& source, const ColumnNeeds& needs,
                                  const PointChooser& choose = everyPoint()) {
  auto loaded = loadFragments(source, source.fragments, needs, choose);
  EXPECT_TRUE(loaded.ok()) << loaded.error();
  return loaded ? std::move(*loaded) : std::vector<FragmentColumns>();
}

std::string failureOf(const ExportSource& source, const ColumnNeeds& needs) {
  const auto loaded = loadFragments(source, source.fragments, needs, everyPoint());
  EXPECT_FALSE(loaded.ok());
  return loaded ? "" : loaded.error();
}

template <class T>
std::vector<T> elements(const FragmentColumns& fragment, const Fiber::MemBase& column,
                        std::size_t first, std::size_t count) {
  const std::span<const std::byte> all(column.elements()->bytes(), column.elements()->byteCount());
  const ChosenElements chosen(all, fragment, first, count);
  std::vector<T> values(chosen.bytes().size() / sizeof(T));
  std::copy(chosen.bytes().begin(), chosen.bytes().end(),
            reinterpret_cast<std::byte*>(values.data()));
  return values;
}

}  // namespace

TEST(FragmentColumns, OnlyWhatIsNeededIsLoaded) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}, {1, 0, 0}}).field<int>("A", {1, 2}).field<int>("B", {3, 4});
  const ExportSource source = sourceOf(cloud);
  const auto loaded = load(source, {{1}});
  ASSERT_EQ(loaded.size(), 1U);
  EXPECT_EQ(loaded[0].positions->count(), 2U);
  EXPECT_FALSE(bool(loaded[0].fields[0]));
  EXPECT_THAT(elements<int>(loaded[0], *loaded[0].fields[1], 0, 2), ElementsAre(3, 4));
  EXPECT_FALSE(bool(loaded[0].samples));
}

TEST(FragmentColumns, FieldThatIsNeededTwiceIsLoadedOnce) {
  CloudBuilder cloud;
  // So many points that several threads load.
  const std::size_t points = 100000;
  cloud.fragment(std::vector<Point>(points))
      .waveforms<float>("N", 3, std::vector<float>(3 * points));
  const ExportSource source = sourceOf(cloud);
  const std::vector<std::size_t> often(100, 0);
  const auto loaded = load(source, {often});
  EXPECT_EQ(loaded[0].fields[0]->byteCount(), 3 * points * sizeof(float));
}

TEST(FragmentColumns, FieldThatAFragmentLacksStaysEmpty) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<int>("A", {1}).fragment({{1, 0, 0}});
  const auto loaded = load(sourceOf(cloud), {{0}});
  EXPECT_TRUE(bool(loaded[0].fields[0]));
  EXPECT_FALSE(bool(loaded[1].fields[0]));
}

TEST(FragmentColumns, FragmentOfAnotherTypeIsNamed) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::int32_t>("A", {1});
  cloud.fragment({{1, 0, 0}}).field<float>("A", {1});
  EXPECT_EQ(failureOf(sourceOf(cloud), {{0}}),
            "field A: fragment 1: another type than in other fragments");
}

TEST(FragmentColumns, FragmentOfOtherComponentsIsNamed) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<float>("A", {1});
  cloud.fragment({{1, 0, 0}}).waveforms<float>("A", 2, {1, 2});
  EXPECT_THAT(failureOf(sourceOf(cloud), {{0}}), HasSubstr("fragment 1: another type than in"));
}

TEST(FragmentColumns, ColumnOfOtherLengthIsNamed) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<int>("A", {1});
  cloud.fragment({{1, 0, 0}, {2, 0, 0}}).field<int>("A", {1, 2, 3});
  EXPECT_EQ(failureOf(sourceOf(cloud), {{0}}),
            "field A: fragment 1: no values for its points, found 3, expected 2");
}

TEST(FragmentColumns, WaveformsThatAreMissingAreNamed) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}}).field<std::uint16_t>("FWFLength", {1});
  cloud.waveforms<std::uint16_t>("Waveforms", 1, {5});
  cloud.fragment({{1, 0, 0}}).field<std::uint16_t>("FWFLength", {1});
  EXPECT_EQ(failureOf(sourceOf(cloud), {{}, true, true}),
            "field Waveforms: fragment 1: no values for its points");
}

TEST(FragmentColumns, ChooserSeesTheColumnsThatItNeeds) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}).field<std::uint8_t>("A", {7, 8, 7});
  const auto choose = [](const FragmentColumns& fragment) {
    PointChoice choice;
    choice.takesAll = false;
    const auto values = MemCore::chunkCast<std::uint8_t>(fragment.fields[0]->elements());
    for (std::uint32_t i = 0; i < values->size(); ++i) {
      if ((*values)[i] == 7) choice.rows.push_back(i);
    }
    return choice;
  };
  const auto loaded = load(sourceOf(cloud), {{0}}, choose);
  EXPECT_THAT(loaded[0].choice.rows, ElementsAre(0, 2));
  EXPECT_EQ(loaded[0].choice.countOf(*loaded[0].fragment), 2U);
}

TEST(ChosenElements, AllPointsAreAWindow) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(5)).field<int>("A", {1, 2, 3, 4, 5});
  const ExportSource source = sourceOf(cloud);
  const auto loaded = load(source, {{0}});
  EXPECT_THAT(elements<int>(loaded[0], *loaded[0].fields[0], 1, 3), ElementsAre(2, 3, 4));
  EXPECT_EQ(chosenRow(loaded[0], 3), 3U);
}

TEST(ChosenElements, SomePointsAreGathered) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(4)).waveforms<std::uint16_t>("A", 2, {1, 2, 3, 4, 5, 6, 7, 8});
  const ExportSource source = sourceOf(cloud);
  const auto loaded = load(source, {{0}}, onlyRows({0, 2, 3}));
  EXPECT_THAT(elements<std::uint16_t>(loaded[0], *loaded[0].fields[0], 1, 2),
              ElementsAre(5, 6, 7, 8));
  EXPECT_EQ(chosenRow(loaded[0], 1), 2U);
}

}  // namespace Formats
