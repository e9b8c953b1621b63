// SPDX-License-Identifier: Apache-2.0

#include "linked/FragmentIndex.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace LidarLib {
namespace {

using Fiber::MultiIndex;

std::optional<MultiIndex<3>> index(std::uint64_t i, std::uint64_t j, std::uint64_t k) {
  return MultiIndex<3>{{i, j, k}};
}

TEST(FragmentIndex, IsReadBehindTheFirstCharacter) {
  EXPECT_EQ(parseFragmentIndex("F2x0x1T"), index(2, 0, 1));
  EXPECT_EQ(parseFragmentIndex("F12x345x6T0.000000Gscan"), index(12, 345, 6));
  EXPECT_EQ(parseFragmentIndex("Z0x0x0Txyz"), index(0, 0, 0)) << "any first character";
}

TEST(FragmentIndex, TextBeforeTheFirstNumberIsNoNumber) {
  try {
    parseFragmentIndex("out_2x0x1T0");
    FAIL() << "nothing was thrown";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "stoi");
  }
}

TEST(FragmentIndex, MissingLettersAreToldFromBadNumbers) {
  EXPECT_EQ(parseFragmentIndex(""), std::nullopt);
  EXPECT_EQ(parseFragmentIndex("F"), std::nullopt);
  EXPECT_EQ(parseFragmentIndex("survey"), std::nullopt);
  EXPECT_EQ(parseFragmentIndex("F1x2"), std::nullopt);
  EXPECT_EQ(parseFragmentIndex("F1x2x3"), std::nullopt) << "the T is missing";
  EXPECT_EQ(parseFragmentIndex("F1x2x3t0"), std::nullopt) << "a small t is none";
}

TEST(FragmentIndex, FieldWithoutDigitsAndOutOfRangeThrowAsStoi) {
  EXPECT_THROW(parseFragmentIndex("Fx0x0T"), std::invalid_argument);
  EXPECT_THROW(parseFragmentIndex("F1xx0T"), std::invalid_argument);
  EXPECT_THROW(parseFragmentIndex("F2147483648x0x0T"), std::out_of_range);
}

TEST(FragmentIndex, BlanksAndSignsAreReadAsStoiReadsThem) {
  EXPECT_EQ(parseFragmentIndex("F 1x+2x3 T"), index(1, 2, 3));
  EXPECT_EQ(parseFragmentIndex("F-1x0x0T"), index(std::numeric_limits<std::uint64_t>::max(), 0, 0));
}

}  // namespace
}  // namespace LidarLib
