// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/CoordinateSystem.hpp"

#include <gtest/gtest.h>

#include "tests/formats/catalog/CatalogTestRecords.hpp"

namespace Formats {
namespace {

std::optional<CoordinateSystem> systemOf(const std::vector<VariableRecord>& records) {
  return coordinateSystemOf(records);
}

CoordinateSystem coded(std::uint16_t epsg, std::optional<std::uint16_t> heights = {}) {
  return {"", epsg, heights};
}

TEST(CoordinateSystem, NoRecordSaysNothing) {
  EXPECT_EQ(systemOf({}), std::nullopt);
  VariableRecord other = wktRecord(kUtm32Wkt);
  other.userId = "someone";
  EXPECT_EQ(systemOf({other}), std::nullopt);
}

TEST(CoordinateSystem, TextIsTakenWithoutItsPadding) {
  const std::string text = std::string(" \r\n") + kUtm32Wkt + " \n" + std::string(5, '\0') + "x";
  const auto system = systemOf({geoKeyRecord({}), wktRecord(text)});
  ASSERT_TRUE(system.has_value());
  EXPECT_EQ(system->wkt, kUtm32Wkt);
}

TEST(CoordinateSystem, EmptyTextLeavesItToTheKeys) {
  const auto keys = geoKeyRecord({{1024, 0, 1, 1}, {3072, 0, 1, 25832}});
  EXPECT_EQ(systemOf({wktRecord(std::string(9, '\0')), keys}), coded(25832));
  EXPECT_EQ(systemOf({wktRecord(""), keys}), coded(25832));
}

TEST(CoordinateSystem, KeysNameProjectionAndHeights) {
  EXPECT_EQ(systemOf({geoKeyRecord(
                {{1024, 0, 1, 1}, {2048, 0, 1, 4258}, {3072, 0, 1, 25832}, {4096, 0, 1, 7837}})}),
            coded(25832, std::uint16_t{7837}));
}

TEST(CoordinateSystem, GeographicKeyCountsWithoutAProjection) {
  EXPECT_EQ(systemOf({geoKeyRecord({{1024, 0, 1, 2}, {2048, 0, 1, 4326}})}), coded(4326));
  EXPECT_EQ(systemOf({geoKeyRecord({{2048, 0, 1, 4326}})}), coded(4326));
}

TEST(CoordinateSystem, ProjectionByParametersIsNotItsGeographicBase) {
  EXPECT_EQ(systemOf({geoKeyRecord({{2048, 0, 1, 4326}, {3072, 0, 1, 32767}})}), std::nullopt);
  EXPECT_EQ(systemOf({geoKeyRecord({{1024, 0, 1, 1}, {2048, 0, 1, 4326}})}), std::nullopt);
}

TEST(CoordinateSystem, WhatIsNoCodeIsLeftOut) {
  EXPECT_EQ(systemOf({geoKeyRecord({{3072, 0, 1, 0}})}), std::nullopt);
  EXPECT_EQ(systemOf({geoKeyRecord({{3072, 34736, 1, 0}})}), std::nullopt);
  EXPECT_EQ(systemOf({geoKeyRecord({{3072, 0, 1, 25832}, {4096, 0, 1, 32767}})}), coded(25832));
}

TEST(CoordinateSystem, KeysCutOffAnywhereDoNoHarm) {
  const VariableRecord whole = geoKeyRecord({{1024, 0, 1, 1}, {3072, 0, 1, 25832}});
  for (std::size_t length = 0; length < whole.payload.size(); ++length) {
    VariableRecord record = whole;
    record.payload.resize(length);
    EXPECT_EQ(systemOf({record}), std::nullopt) << length;
  }
  VariableRecord boastful = whole;
  boastful.payload[6] = std::byte{0xFF};
  boastful.payload[7] = std::byte{0xFF};
  EXPECT_EQ(systemOf({boastful}), coded(25832));
}

}  // namespace
}  // namespace Formats
