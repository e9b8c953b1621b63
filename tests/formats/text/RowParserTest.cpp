// SPDX-License-Identifier: Apache-2.0

#include "formats/text/RowParser.hpp"

#include <gtest/gtest.h>

namespace Formats {
namespace {

using Kind = ColumnRole::Kind;

/// x, y and z, then fields of doubles.
std::vector<PlannedColumn> planOf(std::size_t columns) {
  std::vector<PlannedColumn> plan;
  for (std::size_t i = 0; i < columns; ++i) {
    plan.push_back(i < 3 ? PlannedColumn{Kind::Axis, i, 0, ElementType::Float64}
                         : PlannedColumn{Kind::Field, 0, i - 3, ElementType::Float64});
  }
  return plan;
}

struct Parsed {
  std::size_t rows = 0;
  std::vector<double> values;  ///< Of all rows: x, y, z and the first field, if there is one.
  std::string mistake;         ///< "line: text", or empty.
};

Parsed parseText(std::string_view lines, Delimiter delimiter, std::vector<PlannedColumn> plan) {
  TextFormat format;
  format.delimiter = delimiter;
  for (std::size_t i = 0; i < plan.size(); ++i) format.names.push_back("c" + std::to_string(i + 1));
  RowParser parser(format, plan);
  RowBlock block(plan.size());
  const auto failure = parser.parse(lines, block);
  Parsed parsed;
  parsed.rows = block.rowCount;
  for (std::size_t row = 0; row < block.rowCount; ++row) {
    const auto& p = block.positions[row];
    parsed.values.insert(parsed.values.end(), {p.x, p.y, p.z});
    if (plan.size() > 3) parsed.values.push_back(std::bit_cast<double>(block.slots(0)[row]));
  }
  if (failure) parsed.mistake = std::to_string(failure->line) + ": " + failure->text;
  return parsed;
}

std::string mistakeOf(std::string_view lines, Delimiter delimiter, std::size_t columns = 3) {
  return parseText(lines, delimiter, planOf(columns)).mistake;
}

}  // namespace

TEST(RowParser, EveryDelimiterSeparates) {
  const std::vector<double> expected{1, 2.5, -3, 4, 5, 6, 7, 8};
  const auto plan = planOf(4);
  EXPECT_EQ(parseText("1 2.5 -3 4\n5 6 7 8\n", Delimiter::Blanks, plan).values, expected);
  EXPECT_EQ(parseText("1,2.5,-3,4\n5,6,7,8", Delimiter::Comma, plan).values, expected);
  EXPECT_EQ(parseText("1;2.5;-3;4\r\n5;6;7;8\r\n", Delimiter::Semicolon, plan).values, expected);
  EXPECT_EQ(parseText("1\t2.5\t-3\t4\n5\t6\t7\t8\n", Delimiter::Tab, plan).values, expected);
}

TEST(RowParser, BlanksAroundNumbersDoNotMatter) {
  const std::vector<double> expected{1, 2, 3};
  EXPECT_EQ(parseText("  1 \t  2\t3 \t\n", Delimiter::Blanks, planOf(3)).values, expected);
  EXPECT_EQ(parseText("\t1 ,\t 2 ,3 ,  \n", Delimiter::Comma, planOf(3)).values, expected);
  EXPECT_EQ(parseText(" 1 \t 2\t3\t\n", Delimiter::Tab, planOf(3)).values, expected);
}

TEST(RowParser, CommentsAndBlankLinesGiveNoRow) {
  const Parsed parsed =
      parseText("# a\n1 2 3\n\n  \r\n // b\n4 5 6\n", Delimiter::Blanks, planOf(3));
  EXPECT_EQ(parsed.rows, 2U);
  EXPECT_EQ(parsed.mistake, "");
}

TEST(RowParser, ColumnsThatAreLeftOutMayHoldAnything) {
  auto plan = planOf(4);
  plan.insert(plan.begin() + 1, PlannedColumn{});
  const std::vector<double> expected{1, 2, 3, 4};
  EXPECT_EQ(parseText("1,A-17 b,2,3,4\n", Delimiter::Comma, plan).values, expected);
  EXPECT_EQ(parseText("1,,2,3,4\n", Delimiter::Comma, plan).values, expected);
  EXPECT_EQ(parseText("1 A-17 2 3 4\n", Delimiter::Blanks, plan).values, expected);
}

TEST(RowParser, OtherNumbersOfColumnsAreNamed) {
  EXPECT_EQ(mistakeOf("1 2 3\n1 2\n", Delimiter::Blanks),
            "1: wrong number of columns, found 2, expected 3");
  EXPECT_EQ(mistakeOf("1,2,3,4\n", Delimiter::Comma),
            "0: wrong number of columns, found 4, expected 3");
  EXPECT_EQ(mistakeOf("1,2,3,,\n", Delimiter::Comma),
            "0: wrong number of columns, found 4, expected 3");
  EXPECT_EQ(mistakeOf("1;2;3\n", Delimiter::Comma),
            "0: wrong number of columns, found 1, expected 3");
}

TEST(RowParser, WhatIsNoNumberIsNamed) {
  EXPECT_EQ(mistakeOf("# c\n1 2 abc\n", Delimiter::Blanks),
            "1: column 3 (c3): no number, found \"abc\"");
  EXPECT_EQ(mistakeOf("1,,3\n", Delimiter::Comma), "0: column 2 (c2): no number, found \"\"");
  EXPECT_EQ(mistakeOf("1,2 2,3\n", Delimiter::Comma), "0: column 2 (c2): no number, found \"2 2\"");
  EXPECT_EQ(mistakeOf("1 2 3x\n", Delimiter::Blanks), "0: column 3 (c3): no number, found \"3x\"");
  EXPECT_EQ(mistakeOf(std::string_view("1 2 3\0\n", 7), Delimiter::Blanks),
            "0: column 3 (c3): no number, found \"3?\"");
}

TEST(RowParser, CoordinatesMustBeFiniteAndFieldsNeedNot) {
  EXPECT_EQ(mistakeOf("1 nan 3\n", Delimiter::Blanks),
            "0: column 2 (c2): not a finite number, found \"nan\"");
  EXPECT_EQ(mistakeOf("1 2 -inf\n", Delimiter::Blanks),
            "0: column 3 (c3): not a finite number, found \"-inf\"");
  EXPECT_EQ(mistakeOf("1 2 3 nan\n", Delimiter::Blanks, 4), "");
}

TEST(RowParser, LineThatIsTooLongIsRefused) {
  const std::string line = "1 2 " + std::string(kMaxLineBytes, '3') + "\n";
  EXPECT_EQ(mistakeOf("1 2 3\n" + line, Delimiter::Blanks),
            "1: line is too long, found more than 1048576 bytes, expected numbers");
}

TEST(RowParser, FullBlockLeavesTheRestOfTheLines) {
  std::string text;
  for (std::size_t i = 0; i < RowBlock::kMostRows + 5; ++i) text += "1 2 3\n";
  TextFormat format;
  const auto plan = planOf(3);
  RowParser parser(format, plan);
  RowBlock block(0);
  std::string_view lines = text;
  ASSERT_FALSE(parser.parse(lines, block).has_value());
  EXPECT_EQ(block.rowCount, RowBlock::kMostRows);
  EXPECT_EQ(lines.size(), 5U * 6U);
  block.rowCount = 0;
  ASSERT_FALSE(parser.parse(lines, block).has_value());
  EXPECT_EQ(block.rowCount, 5U);
  EXPECT_EQ(parser.lineCount(), RowBlock::kMostRows + 5);
}

TEST(RowParser, FactsAreOfTheColumnsTheyComeFrom) {
  TextFormat format;
  const auto plan = planOf(5);
  RowParser parser(format, plan);
  RowBlock block(2);
  std::string_view lines = "1 2.25 3 7 0.5\n1.5 2 3 -9 0.125\n";
  ASSERT_FALSE(parser.parse(lines, block).has_value());
  EXPECT_EQ(parser.facts()[0].decimals, 1);
  EXPECT_EQ(parser.facts()[1].decimals, 2);
  EXPECT_TRUE(parser.facts()[3].isWhole);
  EXPECT_EQ(parser.facts()[3].deepest, 9U);
  EXPECT_FALSE(parser.facts()[4].isWhole);
  EXPECT_EQ(parser.facts()[4].decimals, 3);
}

}  // namespace Formats
