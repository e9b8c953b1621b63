// SPDX-License-Identifier: Apache-2.0

#include "formats/export/ColumnFit.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "formats/cloud/ColumnTypes.hpp"
#include "formats/las/ByteStream.hpp"

namespace Formats {

namespace {

/// Holds every value of every type exactly (80 bits on the machines that we build for).
using Exact = long double;
static_assert(std::numeric_limits<Exact>::digits >= 64);

constexpr std::array kAllTypes{ElementType::UInt8,  ElementType::Int8,   ElementType::UInt16,
                               ElementType::Int16,  ElementType::UInt32, ElementType::Int32,
                               ElementType::UInt64, ElementType::Int64,  ElementType::Float32,
                               ElementType::Float64};

template <class T>
std::vector<std::byte> bytesOf(const std::vector<T>& values) {
  const auto bytes = std::as_bytes(std::span(values));
  return {bytes.begin(), bytes.end()};
}

template <class T>
std::vector<T> valuesOf(const std::vector<std::byte>& bytes) {
  std::vector<T> values(bytes.size() / sizeof(T));
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = loadValue<T>(&bytes[i * sizeof(T)]);
  return values;
}

PointField fieldOf(ElementType type, std::uint8_t bitCount = 0) {
  PointField field;
  field.type = type;
  field.bitCount = bitCount;
  return field;
}

/// The ends of every type, and their neighbours, as far as T has them.
template <class T>
std::vector<T> edgeValues() {
  std::vector<T> values{std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max()};
  for (const int bits : {0, 1, 2, 7, 8, 15, 16, 24, 31, 32, 53, 63, 64}) {
    for (const Exact sign : {-1.0L, 1.0L}) {
      for (const Exact step : {-1.0L, -0.5L, 0.0L, 0.5L, 1.0L}) {
        const Exact value = sign * std::ldexp(1.0L, bits) + step;
        if (value < std::numeric_limits<T>::lowest() || value > std::numeric_limits<T>::max()) {
          continue;
        }
        values.push_back(static_cast<T>(value));
      }
    }
  }
  return values;
}

/// What one value becomes, and whether it is the same: the plain version.
template <class To>
std::pair<To, bool> plainFit(Exact value, Exact low, Exact high) {
  if constexpr (std::is_floating_point_v<To>) {
    const auto fitted = static_cast<To>(value);
    return {fitted, static_cast<Exact>(fitted) == value};
  } else {
    const Exact nearest = std::min(std::max(std::round(value), low), high);
    return {static_cast<To>(nearest), nearest == value};
  }
}

template <class From, class To>
void compareWithPlain(ElementType from, ElementType to, std::uint8_t bitCount) {
  const Exact low = std::numeric_limits<To>::lowest();
  const Exact high = bitCount == 0 ? static_cast<Exact>(std::numeric_limits<To>::max())
                                   : std::ldexp(1.0L, bitCount) - 1;
  for (const From value : edgeValues<From>()) {
    const FittedColumn fitted = fitColumn({bytesOf<From>({value}), from}, fieldOf(to, bitCount));
    const auto [expected, isSame] = plainFit<To>(static_cast<Exact>(value), low, high);
    EXPECT_EQ(valuesOf<To>(fitted.elements), std::vector<To>{expected})
        << elementTypeName(from) << " " << +value << " as " << elementTypeName(to);
    EXPECT_EQ(fitted.misfit.has_value(), !isSame)
        << elementTypeName(from) << " " << +value << " as " << elementTypeName(to);
  }
}

}  // namespace

TEST(ColumnFit, EveryPairOfTypesAgreesWithThePlainVersionAtTheEdges) {
  for (const ElementType from : kAllTypes) {
    for (const ElementType to : kAllTypes) {
      withElementType(from, [&]<class From>(std::type_identity<From>) {
        withElementType(
            to, [&]<class To>(std::type_identity<To>) { compareWithPlain<From, To>(from, to, 0); });
      });
    }
  }
}

TEST(ColumnFit, BitFieldsHoldAsMuchAsTheirBits) {
  for (const ElementType from : kAllTypes) {
    for (std::uint8_t bits = 1; bits < 8; ++bits) {
      withElementType(from, [&]<class From>(std::type_identity<From>) {
        compareWithPlain<From, std::uint8_t>(from, ElementType::UInt8, bits);
      });
    }
  }
}

TEST(ColumnFit, NothingIsANumberButInFloatingFields) {
  const auto nan = std::numeric_limits<double>::quiet_NaN();
  const auto values = bytesOf<double>({nan});
  const FittedColumn whole = fitColumn({values, ElementType::Float64}, fieldOf(ElementType::Int16));
  EXPECT_EQ(valuesOf<std::int16_t>(whole.elements), std::vector<std::int16_t>{0});
  EXPECT_EQ(whole.misfit, "nan");
  const FittedColumn real =
      fitColumn({values, ElementType::Float64}, fieldOf(ElementType::Float32));
  EXPECT_TRUE(std::isnan(valuesOf<float>(real.elements).front()));
  EXPECT_FALSE(real.misfit.has_value());
}

TEST(ColumnFit, InfinitiesBecomeTheEndsOfIntegers) {
  const double far = std::numeric_limits<double>::infinity();
  const auto values = bytesOf<double>({-far, far});
  const FittedColumn whole = fitColumn({values, ElementType::Float64}, fieldOf(ElementType::Int64));
  EXPECT_EQ(valuesOf<std::int64_t>(whole.elements),
            (std::vector<std::int64_t>{std::numeric_limits<std::int64_t>::min(),
                                       std::numeric_limits<std::int64_t>::max()}));
  EXPECT_EQ(whole.misfit, "-inf");
}

TEST(ColumnFit, TheFirstMisfitIsTold) {
  const auto values = bytesOf<std::int16_t>({3, 300, -1, 255});
  const FittedColumn fitted = fitColumn({values, ElementType::Int16}, fieldOf(ElementType::UInt8));
  EXPECT_EQ(fitted.misfit, "300");
  EXPECT_EQ(valuesOf<std::uint8_t>(fitted.elements), (std::vector<std::uint8_t>{3, 255, 0, 255}));
}

TEST(ColumnFit, OneComponentOfSeveralIsTaken) {
  const auto values = bytesOf<float>({1, 2, 3, 4, 5, 6});
  const ColumnView view{values, ElementType::Float32, 3, 1};
  EXPECT_FALSE(fitsAsItStands(view, fieldOf(ElementType::Float32)));
  const FittedColumn fitted = fitColumn(view, fieldOf(ElementType::Float32));
  EXPECT_EQ(valuesOf<float>(fitted.elements), (std::vector<float>{2, 5}));
  EXPECT_FALSE(fitted.misfit.has_value());
}

TEST(ColumnFit, EveryWholeDegreeCanBeToldFromItsSteps) {
  std::vector<std::int8_t> degrees;
  for (int degree = -128; degree < 128; ++degree) {
    degrees.push_back(static_cast<std::int8_t>(degree));
  }
  const auto values = bytesOf(degrees);
  const FittedColumn fitted =
      fitColumn({values, ElementType::Int8, 1, 0, 1.0 / 0.006}, fieldOf(ElementType::Int16));
  EXPECT_FALSE(fitted.misfit.has_value());
  const auto steps = valuesOf<std::int16_t>(fitted.elements);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    EXPECT_NEAR(steps[i] * 0.006, degrees[i], 0.003 + 1e-9);
  }
}

TEST(ColumnFit, StepsBetweenDegreesAreRoundedAndTold) {
  const auto fit = [](std::int16_t steps) {
    const auto values = bytesOf<std::int16_t>({steps});
    return fitColumn({values, ElementType::Int16, 1, 0, 0.006}, fieldOf(ElementType::Int8));
  };
  EXPECT_FALSE(fit(0).misfit.has_value());
  EXPECT_FALSE(fit(500).misfit.has_value());  // 3 degrees
  EXPECT_EQ(valuesOf<std::int8_t>(fit(500).elements).front(), 3);
  EXPECT_EQ(fit(600).misfit, "600");
  EXPECT_EQ(valuesOf<std::int8_t>(fit(600).elements).front(), 4);
  EXPECT_EQ(fit(-30000).misfit, "-30000");
  EXPECT_EQ(valuesOf<std::int8_t>(fit(-30000).elements).front(), -128);
}

TEST(ColumnFit, OnlyColumnsOfTheSameTypeThatFitAreCopied) {
  const PointField field = fieldOf(ElementType::UInt8);
  EXPECT_TRUE(fitsAsItStands({{}, ElementType::UInt8}, field));
  EXPECT_FALSE(fitsAsItStands({{}, ElementType::Int8}, field));
  EXPECT_FALSE(fitsAsItStands({{}, ElementType::UInt8, 2, 0}, field));
  EXPECT_FALSE(fitsAsItStands({{}, ElementType::UInt8, 1, 0, 2.0}, field));
  const auto values = bytesOf<std::uint8_t>({3, 8, 0});
  EXPECT_TRUE(fitsAsItStands({values, ElementType::UInt8}, fieldOf(ElementType::UInt8, 4)));
  EXPECT_FALSE(fitsAsItStands({values, ElementType::UInt8}, fieldOf(ElementType::UInt8, 3)));
}

TEST(ColumnFit, NoValuesGiveNone) {
  const FittedColumn fitted = fitColumn({{}, ElementType::Int8}, fieldOf(ElementType::Float64));
  EXPECT_TRUE(fitted.elements.empty());
  EXPECT_FALSE(fitted.misfit.has_value());
}

}  // namespace Formats
