// SPDX-License-Identifier: Apache-2.0

#include "formats/las/PointTotals.hpp"

#include <gtest/gtest.h>

#include "formats/las/ByteStream.hpp"
#include "tests/formats/LasTestFiles.hpp"

namespace Formats {
namespace {

TEST(PointTotals, MergeInAnyOrderToThoseOfTheWhole) {
  for (const std::uint8_t format : {std::uint8_t{3}, std::uint8_t{8}}) {
    const std::vector<std::byte> records = surveyRecords(format, 2, 1000, 5);
    const std::size_t recordBytes = records.size() / 1000;
    const auto partOf = [&](std::size_t first, std::size_t count) {
      return totalsOf(std::span(records).subspan(first * recordBytes, count * recordBytes), format,
                      recordBytes);
    };
    PointTotals merged = partOf(600, 400);
    merged.merge(partOf(0, 0));
    merged.merge(partOf(0, 600));
    EXPECT_EQ(merged, partOf(0, 1000));
    EXPECT_EQ(merged.pointCount, 1000U);
  }
}

TEST(PointTotals, ReturnNumbersHaveTheWidthOfTheFormat) {
  std::vector<std::byte> record(30);
  record[14] = std::byte{0xFB};
  EXPECT_EQ(totalsOf(record, 6, 30).byReturn[0xB - 1], 1U);
  EXPECT_EQ(totalsOf(record, 1, 30).byReturn[3 - 1], 1U);
  record[14] = std::byte{0xF0};
  EXPECT_EQ(totalsOf(record, 6, 30).byReturn, PointTotals{}.byReturn);
}

TEST(PointTotals, NegativeScaleSwapsTheBounds) {
  std::vector<std::byte> records(60);
  storeValue(records.data(), std::int32_t{-3});
  storeValue(records.data() + 30, std::int32_t{5});
  LasHeader header;
  header.pointFormat = 6;
  header.scale = {-0.5, 1, 1};
  header.offset = {10, 0, 0};
  putTotals(totalsOf(records, 6, 30), header);
  EXPECT_EQ(header.minimum[0], 7.5);
  EXPECT_EQ(header.maximum[0], 11.5);
  EXPECT_EQ(header.legacyPointCount, 0U);
}

TEST(PointTotals, CountsBeyond32BitsLeaveTheOldCountsEmpty) {
  PointTotals totals;
  LasHeader header;
  header.pointFormat = 3;
  totals.pointCount = std::uint64_t{1} << 32U;
  totals.byReturn[0] = totals.pointCount;
  putTotals(totals, header);
  EXPECT_EQ(header.pointCount, totals.pointCount);
  EXPECT_EQ(header.legacyPointCount, 0U);
  EXPECT_EQ(header.legacyPointsByReturn[0], 0U);
  --totals.pointCount;
  putTotals(totals, header);
  EXPECT_EQ(header.legacyPointCount, 0xFFFFFFFFU);
}

}  // namespace
}  // namespace Formats
