// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextFormat.hpp"

#include "tests/formats/text/TextTestFiles.hpp"

namespace Formats::TextTests {
namespace {

using Names = std::vector<std::string>;

MemCore::Outcome<TextFormat> formatOf(std::string_view text, const Names& given = {}) {
  const TempDir folder;
  return detectFormat(*openFile(writeText(folder / "a.xyz", text)), given);
}

/// The format of a text that has one; fails the test when it has none.
TextFormat goodFormat(std::string_view text, const Names& given = {}) {
  const auto format = formatOf(text, given);
  EXPECT_TRUE(format.ok()) << format.error();
  return format.ok() ? *format : TextFormat();
}

/// What is wrong, without the path.
std::string mistakeOf(std::string_view text, const Names& given = {}) {
  const auto format = formatOf(text, given);
  EXPECT_FALSE(format.ok());
  if (format) return {};
  return format.error().substr(format.error().find("a.xyz"));
}

}  // namespace

TEST(TextFormat, FirstLineOfPointsTellsTheDelimiter) {
  EXPECT_EQ(goodFormat("a, b, c d\n1 2 3\n1,2,3\n", {"x", "y", "z"}).delimiter, Delimiter::Blanks);
  EXPECT_EQ(goodFormat("x;y;z\r\n1;2;3\r\n").delimiter, Delimiter::Semicolon);
}

TEST(TextFormat, PointsWithoutNamesGetTheUsualOnes) {
  const TextFormat format = goodFormat("1 2 3 4\n");
  EXPECT_EQ(format.names, (Names{"x", "y", "z", "Column4"}));
  EXPECT_EQ(format.pointsBegin, 0U);
  EXPECT_EQ(format.firstLine, 1U);
}

TEST(TextFormat, HeaderNamesTheColumns) {
  const TextFormat format = goodFormat("\xEF\xBB\xBF\"X\";\"Scan Angle\";y;z;\r\n1;2;3;4;\r\n");
  EXPECT_EQ(format.names, (Names{"X", "Scan Angle", "y", "z"}));
  EXPECT_EQ(format.pointsBegin, 26U);
  EXPECT_EQ(format.firstLine, 2U);
}

TEST(TextFormat, CommentThatNamesAllColumnsIsAHeader) {
  EXPECT_EQ(goodFormat("//X,Y,Z,R\n1,2,3,4\n").names, (Names{"X", "Y", "Z", "R"}));
  EXPECT_EQ(goodFormat("# x y z i\n# made on Monday\n\n1 2 3 4\n").names,
            (Names{"x", "y", "z", "i"}));
  EXPECT_EQ(goodFormat("# x y z i j\n1 2 3 4\n").names, (Names{"x", "y", "z", "Column4"}));
  EXPECT_EQ(goodFormat("# by me in May\n1 2 3 4\n").names, (Names{"x", "y", "z", "Column4"}));
}

TEST(TextFormat, GivenNamesGoBeforeTheHeader) {
  const TextFormat format = goodFormat("a b c d e\n1 2 3 4\n", {"y", "x", "-", "z"});
  EXPECT_EQ(format.names, (Names{"y", "x", "-", "z"}));
  EXPECT_EQ(format.firstLine, 2U);
  EXPECT_EQ(mistakeOf("1 2 3 4\n", {"x", "y", "z"}),
            "a.xyz:1: names of the columns do not match, found 4 columns, expected 3");
}

TEST(TextFormat, FilesWithoutPointsHaveNoNames) {
  for (const char* text : {"", "\n\n", "# nothing\n", "x y z\n", "\xEF\xBB\xBF"}) {
    EXPECT_TRUE(goodFormat(text).names.empty()) << text;
  }
}

TEST(TextFormat, MistakesAreNamedWithTheirLine) {
  EXPECT_EQ(mistakeOf("# a\n1 2\n"),
            "a.xyz:2: too few columns, found 2 in \"1 2\", expected at least 3 (x, y, z)");
  EXPECT_EQ(mistakeOf("x,y,z\n1,2,3,4\n"),
            "a.xyz:1: names of the columns do not match line 2, found 3 names, expected 4");
}

TEST(TextFormat, DecimalCommasAreRefused) {
  const std::string expected =
      "a.xyz:1: decimal comma, found \"455583,12\", expected a decimal point";
  EXPECT_EQ(mistakeOf("455583,12;5427865,24;107,68\n"), expected);
  EXPECT_EQ(mistakeOf("455583,12 5427865,24 107,68\n"), expected);
  EXPECT_EQ(mistakeOf("455583,12\t5427865,24\t107,68\n"), expected);
}

TEST(TextFormat, TooManyColumnsAreRefused) {
  std::string line = "1";
  for (std::size_t i = 0; i < kMaxColumns; ++i) line += " 1";
  EXPECT_EQ(mistakeOf(line), "a.xyz:1: too many columns, found 1025, expected at most 1024");
}

}  // namespace Formats::TextTests
