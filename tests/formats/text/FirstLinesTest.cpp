// SPDX-License-Identifier: Apache-2.0

#include "formats/text/FirstLines.hpp"

#include "formats/text/TextLines.hpp"
#include "tests/formats/text/TextTestFiles.hpp"

namespace Formats::TextTests {
namespace {

MemCore::Outcome<FirstLines> linesOf(std::string_view text,
                                     const std::vector<std::string>& given = {}) {
  const TempDir folder;
  return readFirstLines(*openFile(writeText(folder / "a.xyz", text)), given);
}

std::string mistakeOf(std::string_view text) {
  const auto lines = linesOf(text);
  EXPECT_FALSE(lines.ok());
  return lines.ok() ? std::string() : lines.error().substr(lines.error().find("a.xyz"));
}

}  // namespace

TEST(FirstLines, EverythingBeforeThePointsIsCounted) {
  const auto lines = linesOf("# one\r\n\r\n// three\r\n x y z\r\n\n1 2 3\n4 5 6\n");
  ASSERT_TRUE(lines.ok()) << lines.error();
  EXPECT_EQ(lines->points->number, 6U);
  EXPECT_EQ(lines->points->text, "1 2 3");
  EXPECT_EQ(lines->pointsBegin, 28U);
  EXPECT_EQ(lines->header->text, "x y z");
  EXPECT_EQ(lines->header->number, 4U);
  ASSERT_EQ(lines->comments.size(), 2U);
  EXPECT_EQ(lines->comments[1].text, "three");
}

TEST(FirstLines, SecondLineOfWordsIsNoHeader) {
  const auto lines = linesOf("x y z\n1 2 abc\n4 5 6\n");
  ASSERT_TRUE(lines.ok()) << lines.error();
  EXPECT_EQ(lines->points->number, 2U);
}

TEST(FirstLines, WordsInColumnsThatAreLeftOutMakeNoHeader) {
  const auto lines = linesOf("1 A7 2 3\n", {"x", "-", "y", "z"});
  ASSERT_TRUE(lines.ok()) << lines.error();
  EXPECT_FALSE(lines->header.has_value());
  EXPECT_TRUE(lines->points.has_value());
}

TEST(FirstLines, LinesThatCannotBeOnesAreNamed) {
  EXPECT_EQ(mistakeOf("1 2 3\r4 5 6\r"), "a.xyz:1: lines end in CR alone, expected LF or CR LF");
  EXPECT_EQ(mistakeOf("# c\r1 2 3\r"), "a.xyz:1: lines end in CR alone, expected LF or CR LF");
  EXPECT_EQ(mistakeOf("# c\nx y z\r4 5 6\r"),
            "a.xyz:2: lines end in CR alone, expected LF or CR LF");
  EXPECT_EQ(mistakeOf("# c\n" + std::string(2 * kMaxLineBytes, '1')),
            "a.xyz:2: line is too long, found more than 1048576 bytes, expected numbers");
}

TEST(FirstLines, PointsMustBeginNearTheStart) {
  const std::string comments = "# " + std::string(100000, 'c') + "\n";
  std::string text;
  while (text.size() < 5000000) text += comments;
  EXPECT_EQ(mistakeOf(text + "1 2 3\n"), "a.xyz: no line of points in the first 4194304 bytes");
}

TEST(FirstLines, FileOfCommentsAloneHasNoPoints) {
  const auto lines = linesOf("# a\n# b");
  ASSERT_TRUE(lines.ok()) << lines.error();
  EXPECT_FALSE(lines->points.has_value());
  EXPECT_EQ(lines->comments.size(), 2U);
}

}  // namespace Formats::TextTests
