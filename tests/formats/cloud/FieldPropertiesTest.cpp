// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/FieldProperties.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace Formats {

namespace {

PointField fieldOf(ExtraBytesDescriptor descriptor, std::uint16_t component = 0) {
  PointField field;
  field.name = "Height";
  field.type = descriptor.type;
  field.component = component;
  field.meaning = std::make_shared<const ExtraBytesDescriptor>(std::move(descriptor));
  return field;
}

template <class T>
T numberOf(const MemCore::Attributes& properties, const char* name) {
  const auto chunk = MemCore::chunkCast<T>(properties.getAttribute(name));
  EXPECT_TRUE(chunk && chunk->size() == 1) << name;
  return chunk ? (*chunk)[0] : T{};
}

ExtraBytesDescriptor pairOfHeights() {
  ExtraBytesDescriptor descriptor =
      describeExtraBytes("Height", ElementType::Int16, "above the ground");
  descriptor.componentCount = 2;
  descriptor.scale = {{0.5, 0.25, 0}};
  descriptor.offset = {{10, 20, 0}};
  descriptor.noData = {{std::int64_t{-9999}, std::int64_t{-1}, std::int64_t{0}}};
  return descriptor;
}

}  // namespace

TEST(FieldProperties, FieldOfThePointFormatHasNone) {
  EXPECT_TRUE(describeField(PointField{}).all().empty());
  EXPECT_EQ(scalingOf(PointField{}), FieldScaling{});
}

TEST(FieldProperties, EachComponentTellsItsOwnScaleOffsetAndNoData) {
  const auto properties = describeField(fieldOf(pairOfHeights(), 1));
  EXPECT_EQ(MemCore::textAttribute(properties, "ExtraBytesName"), "Height");
  EXPECT_EQ(MemCore::textAttribute(properties, "Description"), "above the ground");
  EXPECT_EQ(numberOf<std::uint64_t>(properties, "ExtraBytesComponent"), 1U);
  EXPECT_EQ(numberOf<double>(properties, "Scale"), 0.25);
  EXPECT_EQ(numberOf<double>(properties, "Offset"), 20.0);
  EXPECT_EQ(numberOf<std::int64_t>(properties, "NoData"), -1);
}

TEST(FieldProperties, WhatIsLeftOpenIsAbsent) {
  const auto properties = describeField(fieldOf(describeExtraBytes("Height", ElementType::UInt8)));
  EXPECT_EQ(properties.all().size(), 2U);
}

TEST(FieldProperties, UndocumentedByteBeyondTheThirdIsDescribedToo) {
  ExtraBytesDescriptor bytes;
  bytes.name = "blob";
  bytes.componentCount = 200;
  const auto properties = describeField(fieldOf(bytes, 199));
  EXPECT_EQ(numberOf<std::uint64_t>(properties, "ExtraBytesComponent"), 199U);
}

TEST(FieldProperties, UnusableScaleCountsAsNone) {
  ExtraBytesDescriptor descriptor = pairOfHeights();
  descriptor.scale = {{0.0, std::numeric_limits<double>::quiet_NaN(), 0.0}};
  EXPECT_EQ(scalingOf(fieldOf(descriptor, 0)), (FieldScaling{1.0, 10.0}));
  EXPECT_EQ(scalingOf(fieldOf(descriptor, 1)), (FieldScaling{1.0, 20.0}));
}

TEST(FieldProperties, StoredUnitsAreForgottenButNotTheDescription) {
  auto properties = describeField(fieldOf(pairOfHeights()));
  forgetStoredUnits(properties);
  for (const char* name : {"Scale", "Offset", "NoData"}) {
    EXPECT_FALSE(bool(properties.getAttribute(name))) << name;
  }
  EXPECT_TRUE(bool(properties.getAttribute("Description")));
}

}  // namespace Formats
