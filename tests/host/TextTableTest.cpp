// SPDX-License-Identifier: Apache-2.0

#include "host/TextTable.hpp"

#include <gtest/gtest.h>

namespace Host {
namespace {

TEST(TextTable, ColumnsAlign) {
  TextTable table({1});
  table.add({"Field", "Points", "Range"});
  table.add({"a", "1,000", "0 to 1"});
  table.add({"bcdefg", "7", ""});
  EXPECT_EQ(table.text(2),
            "  Field   Points  Range\n"
            "  a        1,000  0 to 1\n"
            "  bcdefg       7\n");
}

TEST(TextTable, CharactersBeyondAsciiCountOnce) {
  EXPECT_EQ(textWidth("Höhe"), 4U);
  TextTable table;
  table.add({"Höhe", "1"});
  table.add({"Weit", "2"});
  EXPECT_EQ(table.text(), "Höhe  1\nWeit  2\n");
}

TEST(TextTable, RowsMayDifferInLength) {
  TextTable table;
  table.add({"a"});
  table.add({"b", "c", "d"});
  EXPECT_EQ(table.text(), "a\nb  c  d\n");
}

}  // namespace
}  // namespace Host
