// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/CatalogDescription.hpp"

#include <gtest/gtest.h>

namespace Formats {
namespace {

TEST(CatalogDescription, DimensionsAreAxesAndFields) {
  const auto layout = PointLayout::make(6, 31, {});
  ASSERT_TRUE(layout.ok());
  const auto dimensions = dimensionsOf(*layout);
  ASSERT_EQ(dimensions.size(), 3 + layout->fields().size());
  EXPECT_EQ(dimensions[0], (CatalogDimension{"X", NumberKind::Floating, 8}));
  const auto has = [&](const CatalogDimension& wanted) {
    return std::find(dimensions.begin(), dimensions.end(), wanted) != dimensions.end();
  };
  EXPECT_TRUE(has({"Intensity", NumberKind::Unsigned, 2}));
  EXPECT_TRUE(has({"ScanAngle", NumberKind::Signed, 2}));
  EXPECT_TRUE(has({"GpsTime", NumberKind::Floating, 8}));
  EXPECT_TRUE(has({"ExtraBytes[0]", NumberKind::Unsigned, 1}));
}

TEST(CatalogDescription, DayOfYearBecomesADate) {
  const auto dateOf = [](std::uint16_t year, std::uint16_t day) {
    LasHeader header;
    header.creationYear = year;
    header.creationDayOfYear = day;
    return datetimeOf(header);
  };
  EXPECT_EQ(dateOf(2023, 165), "2023-06-14T00:00:00Z");
  EXPECT_EQ(dateOf(2024, 366), "2024-12-31T00:00:00Z");
  EXPECT_EQ(dateOf(2023, 366), std::nullopt);
  EXPECT_EQ(dateOf(2023, 0), std::nullopt);
  EXPECT_EQ(dateOf(0, 1), std::nullopt);
  EXPECT_EQ(dateOf(65535, 1), std::nullopt);
}

}  // namespace
}  // namespace Formats
