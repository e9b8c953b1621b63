// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextRows.hpp"

#include <gtest/gtest.h>

#include <clocale>

#include "datamodel/eagle/PhysicalSpace.hpp"

namespace Formats {
namespace {

using Eagle::PhysicalSpace;

template <class T>
MemCore::StrongPtr<Fiber::MemBase> arrayOf(const std::vector<T>& values) {
  return Fiber::makeArray(MemCore::makeStrong<MemCore::Chunk<T>>(std::span<const T>(values)));
}

TextColumn positions() {
  return {"Positions",
          arrayOf<PhysicalSpace::point>({{1.5, -2, 3}, {4, 5.25, 1e300}}),
          {3, 2, kUnknownDecimals}};
}

template <class T>
TextColumn column(const std::string& name, const std::vector<T>& values) {
  return {name, arrayOf<T>(values), kNoDecimals};
}

std::string rowsOf(const std::vector<TextColumn>& columns, const RowStyle& style = {}) {
  const auto text = formatRows(columns, style);
  EXPECT_TRUE(text.ok()) << text.error();
  return text.ok() ? *text : text.error();
}

MemCore::Attributes hints(const std::vector<double>& scale, const std::vector<double>& offset) {
  MemCore::Attributes properties;
  properties.setAttribute(
      "GridScale", MemCore::makeStrong<MemCore::Chunk<double>>(std::span<const double>(scale)));
  properties.setAttribute(
      "GridOffset", MemCore::makeStrong<MemCore::Chunk<double>>(std::span<const double>(offset)));
  return properties;
}

}  // namespace

TEST(TextRows, EveryTypeHasItsText) {
  EXPECT_EQ(rowsOf({positions(), column<std::uint8_t>("a", {0, 255}),
                    column<std::int64_t>("b", {-9000000000, 1}), column<float>("c", {0.1F, 2}),
                    column<double>("d", {0.1, 1e-7})}),
            "1.500 -2.00 3 0 -9000000000 0.1 0.1\n4.000 5.25 1e+300 255 1 2 1e-07\n");
}

TEST(TextRows, StyleTellsTheDelimiter) {
  const std::vector<TextColumn> columns{positions(), column<std::int8_t>("a", {-1, 1})};
  EXPECT_EQ(rowsOf(columns, {Delimiter::Comma, false}), "1.500,-2.00,3,-1\n4.000,5.25,1e+300,1\n");
  EXPECT_EQ(rowsOf(columns, {Delimiter::Tab, false}),
            "1.500\t-2.00\t3\t-1\n4.000\t5.25\t1e+300\t1\n");
  EXPECT_EQ(headerLine(columns, {Delimiter::Semicolon, false}), "x;y;z;a\n");
}

TEST(TextRows, ListedRowsAreTakenInTheirOrder) {
  const std::vector<TextColumn> columns{column<std::int32_t>("a", {10, 11, 12, 13})};
  const std::vector<std::uint32_t> rows{3, 0, 3};
  EXPECT_EQ(*formatRows(columns, {}, rows), "13\n10\n13\n");
  EXPECT_EQ(*formatRows(columns, {}, std::span<const std::uint32_t>()), "");
  const std::vector<std::uint32_t> outside{4};
  EXPECT_EQ(formatRows(columns, {}, outside).error(),
            "field a: row is not there, found 4, expected below 4");
}

TEST(TextRows, HeaderNamesStayOneWord) {
  EXPECT_EQ(
      headerLine(std::vector<TextColumn>{positions(), column<double>("Scan Angle", {}),
                                         column<double>("a,b;c", {}), column<double>("X", {})},
                 {}),
      "x y z Scan_Angle a_b_c X_2\n");
}

TEST(TextRows, ColumnsThatAreNoRowsAreRefused) {
  EXPECT_EQ(formatRows({}, {}).error(), "text: no fields given");
  const std::vector<TextColumn> uneven{positions(), column<double>("q", {1})};
  EXPECT_EQ(formatRows(uneven, {}).error(),
            "field q: of another length than field Positions, found 1, expected 2");
  const std::vector<TextColumn> empty{{"q", nullptr, kNoDecimals}};
  EXPECT_EQ(formatRows(empty, {}).error(),
            "field q: cannot be written as text, expected one value per point");
  const auto samples =
      MemCore::makeStrong<Fiber::MemArray<2, std::uint16_t>>(std::array<std::uint64_t, 2>{3, 2});
  const std::vector<TextColumn> waveforms{{"Waveforms", samples, kNoDecimals}};
  EXPECT_EQ(formatRows(waveforms, {}).error(),
            "field Waveforms: cannot be written as text, expected one value per point");
}

TEST(TextRows, DecimalsComeFromTheProperties) {
  MemCore::Attributes said;
  said.setAttribute("Decimals", MemCore::makeStrong<MemCore::Chunk<std::uint64_t>>(
                                    std::initializer_list<std::uint64_t>{3, 0, 99}));
  EXPECT_EQ(decimalsOf(said), (Decimals{3, 0, kUnknownDecimals}));
  EXPECT_EQ(decimalsOf(hints({0.001, 0.01, 0.00025}, {455000, 0.125, 0})), (Decimals{3, 3, 5}));
  EXPECT_EQ(decimalsOf(hints({1.0 / 3.0, 1e-13, 0.0}, {0, 0, 0})),
            (Decimals{kUnknownDecimals, kUnknownDecimals, 0}));
  EXPECT_EQ(decimalsOf({}), kNoDecimals);
}

TEST(TextRows, DecimalPointIsOneInEveryLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "C"}) {
    if (std::setlocale(LC_ALL, name) == nullptr) continue;
    EXPECT_EQ(rowsOf({column<double>("a", {1234567.5})}), "1234567.5\n") << name;
  }
  std::setlocale(LC_ALL, before.c_str());
}

}  // namespace Formats
