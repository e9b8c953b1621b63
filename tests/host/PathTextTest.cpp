// SPDX-License-Identifier: Apache-2.0

#include "host/PathText.hpp"

#include <gtest/gtest.h>

namespace Host {
namespace {

TEST(PathText, PathsBelowTheBaseAreShortened) {
  EXPECT_EQ(withShortPaths("/data/a.las: broken, beside /data/b.las", "/data"),
            "a.las: broken, beside b.las");
  EXPECT_EQ(withShortPaths("'/data/a b.las'", "/data"), "'a b.las'");
}

TEST(PathText, OtherPathsStay) {
  EXPECT_EQ(withShortPaths("/other/data/a.las", "/data"), "/other/data/a.las");
  EXPECT_EQ(withShortPaths("/database/a.las", "/data"), "/database/a.las");
  EXPECT_EQ(withShortPaths("/data", "/data"), "/data");
  EXPECT_EQ(withShortPaths("/data/a", ""), "/data/a");
}

TEST(PathText, WordsForTheShellAreQuotedWhereNeeded) {
  EXPECT_EQ(shellWord("out/a-1_b.f5"), "out/a-1_b.f5");
  EXPECT_EQ(shellWord("my out.f5"), "'my out.f5'");
  EXPECT_EQ(shellWord("it's"), "'it'\\''s'");
  EXPECT_EQ(shellWord(""), "''");
}

}  // namespace
}  // namespace Host
