// SPDX-License-Identifier: Apache-2.0

#include "host/NameRules.hpp"

#include <gtest/gtest.h>

namespace Host {
namespace {

TEST(NameRules, OrdinaryNamesPass) {
  for (const char* name : {"points", "LinkedGrid", "flight 7", "Straße", "a.b"}) {
    EXPECT_TRUE(checkGridName(name).ok()) << name;
  }
  EXPECT_TRUE(checkGridName(std::string(100, 'x')).ok());
}

TEST(NameRules, NamesThatLeadElsewhereAreRefused) {
  for (const char* name : {"", ".", "..", ".hidden", "a/b", "/etc", "a\\b", "a\nb", "\x7f"}) {
    EXPECT_FALSE(checkGridName(name).ok()) << name;
  }
  EXPECT_FALSE(checkGridName(std::string(101, 'x')).ok());
  EXPECT_FALSE(checkGridName(std::string("a\0b", 3)).ok());
}

TEST(NameRules, ComplaintShowsControlCharacters) {
  EXPECT_EQ(checkGridName("a\nb").error(), "grid name \"a\\x0ab\": holds a control character");
}

TEST(NameRules, TheOperationsPlaceholderIsNoOutputName) {
  EXPECT_TRUE(checkGridName("myGrid").ok());
  EXPECT_FALSE(checkOutputGridName("myGrid").ok());
  EXPECT_TRUE(checkOutputGridName("points").ok());
}

}  // namespace
}  // namespace Host
