// SPDX-License-Identifier: Apache-2.0
//
// Regularly fragmented fields: the tiles of an output grid as fragments addressed by index.

#include <gtest/gtest.h>

#include <omp.h>

#include <limits>
#include <vector>

#include "datamodel/fiber/Field.hpp"
#include "tests/datamodel/fiber/TestCreator.hpp"

namespace Fiber {
namespace {

using MemCore::makeStrong;

using RegularField = RegularlyFragmentedField<3>;

TEST(RegularField, FragmentHasIndexAsNameAndLinearPositionAsNumber) {
  RegularField field({{4, 5, 6}}, "tiles", nullptr);
  const auto fragment = field.fragmentAt({{3, 0, 2}});
  ASSERT_TRUE(fragment);
  EXPECT_EQ(fragment->name(), "[3x0x2]");
  EXPECT_EQ(fragment->number(), (5U * 2 + 0) * 4 + 3);
  EXPECT_EQ(fragment->collection(), field.getFragmentIDCollection());
}

TEST(RegularField, FragmentIsMadeOnceAndFoundByNameAndNumber) {
  RegularField field({{4, 5, 6}}, "tiles", nullptr);
  EXPECT_TRUE(field.getFragmentIDs().empty());
  const auto fragment = field.fragmentAt({{1, 1, 0}});
  EXPECT_EQ(field.fragmentAt({{1, 1, 0}}), fragment);
  EXPECT_EQ(field.getFragmentID("[1x1x0]"), fragment);
  EXPECT_EQ(field.getFragmentIDCollection()->findFragmentID(5U), fragment);
  EXPECT_EQ(field.getFragmentIDs().size(), 1U);
}

TEST(RegularField, IndexOutsideTheCountsHasNoFragment) {
  RegularField field({{4, 5, 6}}, "tiles", nullptr);
  EXPECT_TRUE(field.fragmentAt({{3, 4, 5}}));
  EXPECT_FALSE(field.fragmentAt({{4, 0, 0}}));
  EXPECT_FALSE(field.fragmentAt({{0, 5, 0}}));
  EXPECT_FALSE(field.fragmentAt({{0, 0, 6}}));
  field.setCreatorAt({{4, 0, 0}}, creatorOf<double>({1}));
  EXPECT_FALSE(field.getFirstCreator());
}

TEST(RegularField, PositionBeyond32BitsHasNoFragment) {
  constexpr std::uint64_t kHuge = std::numeric_limits<std::uint64_t>::max();
  RegularField flat({{std::uint64_t{1} << 33, 1, 1}}, "tiles", nullptr);
  EXPECT_TRUE(flat.fragmentAt({{4294967295U, 0, 0}}));
  EXPECT_FALSE(flat.fragmentAt({{4294967296U, 0, 0}}));
  RegularField huge({{kHuge, kHuge, kHuge}}, "tiles", nullptr);
  EXPECT_TRUE(huge.fragmentAt({{7, 0, 0}}));
  EXPECT_FALSE(huge.fragmentAt({{0, 1, 0}}));
  EXPECT_FALSE(huge.fragmentAt({{2, 3, 4}}));
}

TEST(RegularField, RowOfFragmentsIsThatOfTheSingleOnes) {
  const MultiIndex<3> counts{{50, 3, 2}};
  RegularField field(counts, "tiles", nullptr);
  field.fragmentAt({{7, 1, 1}});
  for (const MultiIndex<3>& first :
       {MultiIndex<3>{{0, 0, 0}}, MultiIndex<3>{{5, 1, 1}}, MultiIndex<3>{{49, 2, 1}},
        MultiIndex<3>{{50, 0, 0}}, MultiIndex<3>{{0, 3, 0}}}) {
    const auto row = field.fragmentsFrom(first, 4);
    ASSERT_EQ(row.size(), 4U);
    for (std::uint64_t n = 0; n < 4; ++n) {
      EXPECT_EQ(row[n], field.fragmentAt({{first[0] + n, first[1], first[2]}})) << n;
    }
  }
  EXPECT_EQ(field.fragmentsFrom({{0, 1, 0}}, 50).back()->name(), "[49x1x0]");
  RegularField flat({{std::uint64_t{1} << 33, 1, 1}}, "tiles", nullptr);
  const auto last = flat.fragmentsFrom({{4294967295U, 0, 0}}, 2);
  EXPECT_TRUE(last[0]);
  EXPECT_FALSE(last[1]);
}

TEST(RegularField, EmptyCopySharesTheFragmentsAndNoCreators) {
  RegularField field({{4, 5, 6}}, "tiles", nullptr);
  field.setCreatorAt({{1, 0, 0}}, creatorOf<double>({1}));
  const auto copy = field.emptyCopy();
  EXPECT_EQ(copy->counts(), field.counts());
  EXPECT_EQ(copy->creatorName(), "tiles");
  EXPECT_EQ(copy->fragmentAt({{1, 0, 0}}), field.fragmentAt({{1, 0, 0}}));
  EXPECT_FALSE(copy->getFirstCreator());
}

TEST(RegularField, CreatorIsStoredAtItsIndex) {
  RegularField field({{4, 5, 6}}, "tiles", nullptr);
  const auto creator = creatorOf<double>({1});
  field.setCreatorAt({{2, 2, 2}}, creator);
  EXPECT_EQ(field.getCreator(field.fragmentAt({{2, 2, 2}})), creator);
}

TEST(RegularField, ThreadsMakeEveryTileOnce) {
  RegularField field({{50, 40, 5}}, "tiles", nullptr);
#pragma omp parallel for num_threads(4) schedule(dynamic, 1)
  for (std::uint64_t tile = 0; tile < 20000; ++tile) {
    const std::uint64_t n = tile % 10000;
    field.setCreatorAt({{n % 50, n / 50 % 40, n / 2000}}, creatorOf<double>({double(n)}));
  }
  const auto fragments = field.getFragmentIDs();
  ASSERT_EQ(fragments.size(), 10000U);
  for (unsigned n = 0; n < 10000; ++n) {
    ASSERT_EQ(fragments[n]->number(), n);
    ASSERT_EQ(fragments[n]->name(), tileIndexText({{n % 50, n / 50 % 40, n / 2000}}));
    ASSERT_EQ(rangeOf(*field.getCreator(fragments[n])), (ValueRange{double(n), double(n)}));
  }
}

TEST(TileIndexText, HasNoLeadingZeros) {
  EXPECT_EQ(tileIndexText({{3, 0, 12}}), "[3x0x12]");
  EXPECT_EQ(tileIndexText({{18446744073709551615U, 0, 0}}), "[18446744073709551615x0x0]");
}

TEST(ParseTileIndex, ReadsBackWhatWasWritten) {
  for (const MultiIndex<3>& index : {MultiIndex<3>{{0, 0, 0}}, MultiIndex<3>{{3, 0, 12}},
                                     MultiIndex<3>{{18446744073709551615U, 1, 2}}}) {
    EXPECT_EQ(parseTileIndex(tileIndexText(index)), index);
  }
}

TEST(ParseTileIndex, RefusesEveryOtherText) {
  for (const char* text :
       {"", "[", "[1x2x3", "1x2x3]", "[1x2]", "[1x2x3x4]", "[1x2x3] ", "[-1x2x3]", "[01x2x3]",
        "[1x2x]", "[ 1x2x3]", "[18446744073709551616x0x0]", "[1X2X3]"}) {
    EXPECT_FALSE(parseTileIndex(text)) << text;
  }
}

}  // namespace
}  // namespace Fiber
