// SPDX-License-Identifier: Apache-2.0

#include "formats/las/SafeName.hpp"

#include <gtest/gtest.h>

namespace Formats {

TEST(SafeName, NamesOfPeopleAreKept) {
  EXPECT_EQ(safeName("Intensity"), "Intensity");
  EXPECT_EQ(safeName("Höhe über Grund [m]"), "Höhe über Grund [m]");
}

TEST(SafeName, WhatCannotStandInAPathIsReplaced) {
  EXPECT_EQ(safeName("a/b\\c\nd\x7f"), "a_b_c_d_");
  EXPECT_EQ(safeName(".."), "_.");
  EXPECT_EQ(safeName(""), "Unnamed");
}

TEST(SafeName, BytesThatAreNoTextAreReplacedOneByOne) {
  EXPECT_EQ(safeName("a\xff\xc3"), "a__");
  EXPECT_EQ(safeName("\xc0\x80"), "__");
}

}  // namespace Formats
