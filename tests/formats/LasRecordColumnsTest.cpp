// SPDX-License-Identifier: Apache-2.0

#include "formats/las/RecordColumns.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "formats/las/ByteStream.hpp"
#include "tests/support/Seed.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::testSeed;

std::vector<std::byte> randomBytes(std::size_t count, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<std::byte> bytes(count);
  for (std::byte& byte : bytes) byte = static_cast<std::byte>(random());
  return bytes;
}

std::size_t widthOf(const PointField& field) {
  return elementBytes(field.type) * field.componentCount;
}

/// All fields of a format with 5 extra bytes, and a column for each.
struct AllColumns {
  AllColumns(std::uint8_t format, std::size_t count)
      : layout(*PointLayout::make(
            format, static_cast<std::uint16_t>(standardRecordBytes(format) + 5), {})) {
    fields.push_back(&layout.position());
    for (const PointField& field : layout.fields()) fields.push_back(&field);
    for (const PointField* field : fields) columns.emplace_back(widthOf(*field) * count);
  }

  std::vector<ColumnOutput> outputs() {
    std::vector<ColumnOutput> list;
    for (std::size_t at = 0; at < fields.size(); ++at) list.push_back({fields[at], columns[at]});
    return list;
  }

  std::vector<ColumnInput> inputs() const {
    std::vector<ColumnInput> list;
    for (std::size_t at = 0; at < fields.size(); ++at) list.push_back({fields[at], columns[at]});
    return list;
  }

  PointLayout layout;
  std::vector<const PointField*> fields;
  std::vector<std::vector<std::byte>> columns;
};

class RecordColumnsOfFormat : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(All, RecordColumnsOfFormat, testing::Range(0, 11));

TEST_P(RecordColumnsOfFormat, ExtractsWhatOneRecordAtATimeGives) {
  constexpr std::size_t kCount = 2500;
  AllColumns all(static_cast<std::uint8_t>(GetParam()), kCount);
  const std::size_t recordBytes = all.layout.recordBytes();
  const std::vector<std::byte> records = randomBytes(kCount * recordBytes, testSeed());
  extractColumns(records, recordBytes, all.outputs());
  for (std::size_t at = 0; at < all.fields.size(); ++at) {
    const PointField& field = *all.fields[at];
    const std::size_t width = widthOf(field);
    std::vector<std::byte> expected(width * kCount);
    for (std::size_t point = 0; point < kCount; ++point) {
      const std::byte* from = records.data() + point * recordBytes + field.byteOffset;
      std::memcpy(expected.data() + point * width, from, width);
      if (field.bitCount == 0) continue;
      const unsigned value = static_cast<unsigned>(*from) >> field.bitShift;
      expected[point] = static_cast<std::byte>(value % (1U << field.bitCount));
    }
    EXPECT_TRUE(all.columns[at] == expected) << field.name;
  }
}

TEST_P(RecordColumnsOfFormat, InsertUndoesExtract) {
  constexpr std::size_t kCount = 1500;
  AllColumns all(static_cast<std::uint8_t>(GetParam()), kCount);
  const std::size_t recordBytes = all.layout.recordBytes();
  const std::vector<std::byte> records = randomBytes(kCount * recordBytes, testSeed());
  extractColumns(records, recordBytes, all.outputs());
  std::vector<std::byte> rebuilt(records.size(), std::byte{0xFF});
  insertColumns(rebuilt, recordBytes, all.inputs());
  EXPECT_TRUE(rebuilt == records);
}

TEST_P(RecordColumnsOfFormat, FillSetsAllElseToZero) {
  constexpr std::size_t kCount = 1500;
  AllColumns all(static_cast<std::uint8_t>(GetParam()), kCount);
  const std::size_t recordBytes = all.layout.recordBytes();
  const std::vector<std::byte> records = randomBytes(kCount * recordBytes, testSeed());
  extractColumns(records, recordBytes, all.outputs());
  for (const std::size_t left : {std::size_t{0}, all.fields.size() / 2, all.fields.size()}) {
    const auto inputs = all.inputs();
    const auto some = std::span(inputs).first(left);
    std::vector<std::byte> expected(records.size());
    insertColumns(expected, recordBytes, some);
    std::vector<std::byte> filled = records;
    fillRecords(filled, recordBytes, some);
    EXPECT_TRUE(filled == expected) << left;
  }
}

TEST(RecordColumns, InsertLeavesOtherBitsAlone) {
  const auto layout = PointLayout::make(6, 30, {});
  std::vector<std::byte> record(30, std::byte{0xFF});
  const std::byte channel{0xF1};
  const ColumnInput input{layout->find("ScanChannel"), {&channel, 1}};
  insertColumns(record, 30, {&input, 1});
  EXPECT_EQ(record[15], std::byte{0xDF});
  EXPECT_EQ(record[14], std::byte{0xFF});
  EXPECT_EQ(record[16], std::byte{0xFF});
}

TEST(RecordColumns, NoRecordsGiveNothing) {
  const auto layout = PointLayout::make(0, 20, {});
  const ColumnOutput output{&layout->position(), {}};
  extractColumns({}, 20, {&output, 1});
  extractPositions({}, 20, {}, {});
}

TEST(RecordColumns, PositionsAreRawTimesScalePlusOffset) {
  constexpr std::size_t kCount = 1000;
  const std::vector<std::byte> records = randomBytes(kCount * 20, testSeed());
  const CoordinateScaling scaling{{0.01, 1e-7, 1.16451e-06}, {202500, -123.5, 0.1}};
  std::vector<double> positions(kCount * 3);
  extractPositions(records, 20, scaling, positions);
  for (std::size_t at = 0; at < positions.size(); ++at) {
    const std::size_t axis = at % 3;
    const auto raw = loadValue<std::int32_t>(records.data() + at / 3 * 20 + axis * 4);
    const volatile double product = raw * scaling.scale[axis];
    ASSERT_EQ(positions[at], product + scaling.offset[axis]);
  }
}

TEST(RecordColumns, BoundsAreThoseOfThePositions) {
  constexpr std::size_t kCount = 1000;
  const std::vector<std::byte> records = randomBytes(kCount * 20, testSeed());
  const CoordinateScaling scaling{{0.01, -1e-7, 1.16451e-06}, {202500, -123.5, 0.1}};
  std::vector<double> positions(kCount * 3);
  extractPositions(records, 20, scaling, positions);
  const PositionBounds bounds = boundsOfPositions(records, 20, scaling);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    double low = positions[axis];
    double high = low;
    for (std::size_t at = axis; at < positions.size(); at += 3) {
      low = std::min(low, positions[at]);
      high = std::max(high, positions[at]);
    }
    EXPECT_EQ(bounds.min[axis], low);
    EXPECT_EQ(bounds.max[axis], high);
  }
}

}  // namespace
}  // namespace Formats
