// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/StoredName.hpp"

#include <gtest/gtest.h>

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <random>
#include <set>

namespace Fiber::Container {
namespace {

TEST(StoredName, OrdinaryNamesStayAsTheyAre) {
  for (const char* name : {"Positions", "with space", "[2x0x1]", "a.b", "..", "\xC3\xA9"}) {
    EXPECT_EQ(storedName(name), name);
    EXPECT_EQ(originalName(name), name);
  }
}

TEST(StoredName, BytesOfTheFormatAreEscaped) {
  EXPECT_EQ(storedName("a/b"), "a%2Fb");
  EXPECT_EQ(storedName("100%"), "100%25");
  EXPECT_EQ(storedName("x#1"), "x%231");
  EXPECT_EQ(storedName("."), "%2E");
  EXPECT_EQ(storedName(""), "%");
  EXPECT_EQ(storedName(std::string("a\0b", 3)), "a%00b");
}

TEST(StoredName, ReservedWordsAreEscaped) {
  constexpr std::array<std::string_view, 1> kWords = {"fragments"};
  EXPECT_EQ(storedName("fragments", kWords), "%66ragments");
  EXPECT_EQ(originalName("%66ragments"), "fragments");
  EXPECT_EQ(storedName("fragments2", kWords), "fragments2");
}

TEST(StoredName, EveryTextReturnsAndNoTwoMeet) {
  std::mt19937_64 random(1);
  std::set<std::string> originals;
  std::set<std::string> stored;
  for (int round = 0; round < 20000; ++round) {
    std::string name(random() % 5, '\0');
    for (char& c : name) c = "%/#.2Fa\x01\xFF"[random() % 9];
    EXPECT_EQ(originalName(storedName(name)), name);
    originals.insert(name);
    stored.insert(storedName(name));
  }
  EXPECT_EQ(originals.size(), stored.size());
}

TEST(StoredName, HalfEscapesStandForThemselves) {
  for (const char* name : {"%2", "a%", "%zz", "%-1"}) EXPECT_EQ(originalName(name), name);
}

TEST(StoredName, TimeTextsReadBackExactly) {
  EXPECT_EQ(timeText(0), "0");
  EXPECT_EQ(timeText(2.5), "2.5");
  EXPECT_EQ(timeText(-0.0), "-0");
  for (const double time : {0.1, 1e300, 123456789.123456789, 5e-324}) {
    const std::string text = timeText(time);
    double back = 0;
    std::from_chars(text.data(), text.data() + text.size(), back);
    EXPECT_EQ(back, time);
  }
}

}  // namespace
}  // namespace Fiber::Container
