// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/ColumnTypes.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace Formats {

namespace {

constexpr std::array kAllTypes{ElementType::UInt8,  ElementType::Int8,   ElementType::UInt16,
                               ElementType::Int16,  ElementType::UInt32, ElementType::Int32,
                               ElementType::UInt64, ElementType::Int64,  ElementType::Float32,
                               ElementType::Float64};

template <class From, class To>
std::vector<To> convert(const ValueConversion& conversion, std::vector<From> values) {
  std::vector<To> converted(values.size());
  convertElements(conversion, std::as_bytes(std::span(values)),
                  std::as_writable_bytes(std::span(converted)));
  return converted;
}

}  // namespace

TEST(ColumnTypes, EveryElementTypeIsATypeOfTheDataModel) {
  for (const ElementType type : kAllTypes) {
    const auto found = fiberTypeOf(type);
    ASSERT_TRUE(bool(found)) << elementTypeName(type);
    EXPECT_EQ(found->elementBytes(), elementBytes(type));
    const auto column = makeColumn(type, 3);
    EXPECT_EQ(column->type(), found);
    EXPECT_EQ(column->size(), (Fiber::DynamicSize{3}));
  }
}

TEST(ColumnTypes, CommonTypeIsTheNarrowestThatHoldsBoth) {
  EXPECT_EQ(commonType(ElementType::UInt8, ElementType::UInt8), ElementType::UInt8);
  EXPECT_EQ(commonType(ElementType::UInt8, ElementType::Int8), ElementType::Int16);
  EXPECT_EQ(commonType(ElementType::UInt16, ElementType::UInt32), ElementType::UInt32);
  EXPECT_EQ(commonType(ElementType::Int16, ElementType::UInt32), ElementType::Int64);
  EXPECT_EQ(commonType(ElementType::UInt16, ElementType::Float32), ElementType::Float32);
  EXPECT_EQ(commonType(ElementType::Int32, ElementType::Float32), ElementType::Float64);
  EXPECT_EQ(commonType(ElementType::Float64, ElementType::UInt32), ElementType::Float64);
}

TEST(ColumnTypes, NoCommonTypeWhereValuesWouldBeLost) {
  EXPECT_FALSE(commonType(ElementType::Int64, ElementType::UInt64).has_value());
  EXPECT_FALSE(commonType(ElementType::UInt64, ElementType::Float64).has_value());
  EXPECT_FALSE(commonType(ElementType::Float32, ElementType::Int64).has_value());
}

TEST(ColumnTypes, CommonTypeDoesNotDependOnTheOrder) {
  for (const ElementType a : kAllTypes) {
    EXPECT_EQ(commonType(a, a), a);
    for (const ElementType b : kAllTypes) EXPECT_EQ(commonType(a, b), commonType(b, a));
  }
}

TEST(ColumnTypes, WideningKeepsTheExtremes) {
  const ValueConversion conversion{ElementType::Int8, ElementType::Int32, 1.0, 0.0};
  EXPECT_EQ((convert<std::int8_t, std::int32_t>(conversion, {-128, 0, 127})),
            (std::vector<std::int32_t>{-128, 0, 127}));
}

TEST(ColumnTypes, ScaledValuesGoToTheNearestInteger) {
  const ValueConversion conversion{ElementType::Int8, ElementType::Int16, 1.0 / 0.006, 0.0};
  EXPECT_EQ((convert<std::int8_t, std::int16_t>(conversion, {-90, -1, 0, 1, 3})),
            (std::vector<std::int16_t>{-15000, -167, 0, 167, 500}));
}

TEST(ColumnTypes, ScaledValuesOutOfReachStopAtTheBounds) {
  const ValueConversion conversion{ElementType::Float64, ElementType::Int8, 10.0, 0.0};
  const double nan = std::nan("");
  EXPECT_EQ((convert<double, std::int8_t>(conversion, {1e300, -1e300, 12.7, 12.8, nan})),
            (std::vector<std::int8_t>{127, -128, 127, 127, -128}));
  const ValueConversion wide{ElementType::Float64, ElementType::UInt64, 2.0, 0.0};
  EXPECT_EQ((convert<double, std::uint64_t>(wide, {9.3e18, -1.0})),
            (std::vector<std::uint64_t>{std::numeric_limits<std::uint64_t>::max(), 0}));
}

TEST(ColumnTypes, ScaleAndOffsetGiveWhatExtraBytesStandFor) {
  const ValueConversion conversion{ElementType::UInt16, ElementType::Float64, 0.5, 100.0};
  EXPECT_EQ((convert<std::uint16_t, double>(conversion, {0, 3, 65535})),
            (std::vector<double>{100.0, 101.5, 32867.5}));
}

}  // namespace Formats
