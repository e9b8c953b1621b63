// SPDX-License-Identifier: Apache-2.0

#include "formats/text/ColumnFacts.hpp"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace Formats {
namespace {

NumberToken tokenOf(const std::string& text) {
  NumberToken number;
  EXPECT_NE(readNumber(text.data(), text.data() + text.size(), number), nullptr) << text;
  return number;
}

ColumnFacts factsOf(const std::vector<std::string>& numbers) {
  ColumnFacts facts;
  for (const std::string& text : numbers) facts.add(tokenOf(text));
  return facts;
}

ElementType typeOf(const std::vector<std::string>& numbers,
                   std::vector<ElementType> preferred = {}) {
  return chooseType(factsOf(numbers), preferred);
}

}  // namespace

TEST(ColumnFacts, WholeNumbersGetTheNarrowestUsualType) {
  EXPECT_EQ(typeOf({"0", "-2147483648", "2147483647"}), ElementType::Int32);
  EXPECT_EQ(typeOf({"2147483648"}), ElementType::Int64);
  EXPECT_EQ(typeOf({"-9223372036854775808"}), ElementType::Int64);
  EXPECT_EQ(typeOf({"9223372036854775808"}), ElementType::UInt64);
  EXPECT_EQ(typeOf({"9223372036854775808", "-1"}), ElementType::Float64);
  EXPECT_EQ(typeOf({"18446744073709551616"}), ElementType::Float64);
}

TEST(ColumnFacts, DecimalsMakeDoublesOfColumnsThatNobodyKnows) {
  EXPECT_EQ(typeOf({"1", "2.0"}), ElementType::Float64);
  EXPECT_EQ(typeOf({"1", "2e3"}), ElementType::Float64);
  EXPECT_EQ(typeOf({"1", "nan"}), ElementType::Float64);
  EXPECT_EQ(typeOf({"-0"}), ElementType::Float64);
}

TEST(ColumnFacts, PreferredTypesTakeWhatFitsThem) {
  EXPECT_EQ(typeOf({"2.000000", "5.0"}, {ElementType::UInt8}), ElementType::UInt8);
  EXPECT_EQ(typeOf({"255"}, {ElementType::UInt8}), ElementType::UInt8);
  EXPECT_EQ(typeOf({"256"}, {ElementType::UInt8}), ElementType::Int32);
  EXPECT_EQ(typeOf({"-1"}, {ElementType::UInt16}), ElementType::Int32);
  EXPECT_EQ(typeOf({"0.5"}, {ElementType::UInt16}), ElementType::Float64);
  EXPECT_EQ(typeOf({"-128"}, {ElementType::Int8, ElementType::Int16}), ElementType::Int8);
  EXPECT_EQ(typeOf({"-129"}, {ElementType::Int8, ElementType::Int16}), ElementType::Int16);
  EXPECT_EQ(typeOf({"7"}, {ElementType::Float64}), ElementType::Float64);
}

TEST(ColumnFacts, JoiningFactsIsAsAddingAllNumbers) {
  ColumnFacts joined = factsOf({"1", "70000"});
  joined.add(factsOf({"-5", "12.25"}));
  const ColumnFacts all = factsOf({"1", "70000", "-5", "12.25"});
  EXPECT_EQ(joined.isWhole, all.isWhole);
  EXPECT_EQ(joined.decimals, all.decimals);
  EXPECT_EQ(joined.decimals, 2);
  EXPECT_EQ(joined.highest, 70000U);
  EXPECT_EQ(joined.deepest, 5U);
}

TEST(ColumnFacts, BitsOfWholeNumbersAreTwosComplement) {
  EXPECT_EQ(wholeBits(tokenOf("-1")), ~std::uint64_t{0});
  EXPECT_EQ(wholeBits(tokenOf("3.00")), 3U);
  EXPECT_EQ(wholeBits(tokenOf("18446744073709551615")), 18446744073709551615U);
  EXPECT_EQ(wholeBits(tokenOf("1e300")), 0U);
}

}  // namespace Formats
