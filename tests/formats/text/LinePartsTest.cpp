// SPDX-License-Identifier: Apache-2.0

#include "formats/text/LineParts.hpp"

#include <gtest/gtest.h>

namespace Formats {

TEST(LineParts, LineTellsItsDelimiter) {
  EXPECT_EQ(delimiterOf("1 2 3"), Delimiter::Blanks);
  EXPECT_EQ(delimiterOf("1   2 \t 3"), Delimiter::Blanks);
  EXPECT_EQ(delimiterOf("1,2,3"), Delimiter::Comma);
  EXPECT_EQ(delimiterOf("1, 2, 3"), Delimiter::Comma);
  EXPECT_EQ(delimiterOf("1; 2; 3"), Delimiter::Semicolon);
  EXPECT_EQ(delimiterOf("1,5;2,5;3"), Delimiter::Semicolon);
  EXPECT_EQ(delimiterOf("1\t2\t3"), Delimiter::Tab);
  EXPECT_EQ(delimiterOf("1\t\t2\t3"), Delimiter::Blanks);
  EXPECT_EQ(delimiterOf("1,5 2,5 3,5"), Delimiter::Blanks);
}

TEST(LineParts, LinesAreSplitWithoutTheirPadding) {
  EXPECT_EQ(splitLine(" 1 ,, 2,", Delimiter::Comma), (std::vector<std::string_view>{"1", "", "2"}));
  EXPECT_EQ(splitLine("1 \t 2 ", Delimiter::Blanks), (std::vector<std::string_view>{"1", "2"}));
}

TEST(LineParts, TextInMessagesIsShortAndPrintable) {
  EXPECT_EQ(shownText("a\tb\x80"), "a?b?");
  EXPECT_EQ(shownText(std::string(50, 'a')), std::string(40, 'a') + "...");
}

TEST(LineParts, DecimalCommasAreTold) {
  EXPECT_TRUE(hasDecimalComma("-12,5"));
  for (const char* text : {"12.5", "12,", ",5", "a,b", "1,2,3", ""}) {
    EXPECT_FALSE(hasDecimalComma(text)) << text;
  }
}

TEST(LineParts, WordsAreWhatIsNoNumber) {
  EXPECT_FALSE(hasWord("1, 2;nan\t-1e5"));
  EXPECT_TRUE(hasWord("1 2 3m"));
  EXPECT_TRUE(isNumber("1e5"));
  EXPECT_FALSE(isNumber(""));
}

}  // namespace Formats
