// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FieldEncoder.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace Fiber::Container {
namespace {

using MemCore::Chunk;
using MemCore::makeStrong;
using Point = Eagle::PhysicalSpace::point;

StoredField fieldOf(const char* type, std::uint64_t rows, std::uint64_t columns,
                    std::size_t rank = 1) {
  StoredField field;
  field.name = "Positions";
  field.type = FiberTypeBase::find(std::string(type));
  field.rows = rows;
  field.columns = columns;
  field.rank = rank;
  return field;
}

FieldPiece pieceOf(std::uint64_t start, std::uint64_t rows, std::uint16_t value) {
  return {start, rows, 1, makeArray(makeStrong<Chunk<std::uint16_t>>(rows, value)), {}};
}

/// The plain numbers of a chunk.
std::vector<std::uint16_t> numbersOf(const FieldEncoder& encoder, const ChunkRange& range) {
  ChunkEncoder chunkEncoder;
  ChunkDecoder decoder;
  const auto chunk = encoder.encode(range, chunkEncoder);
  std::vector<std::uint16_t> numbers(encoder.chunkRows() * encoder.chunkColumns());
  EXPECT_TRUE(chunk.ok() && decoder
                                .decode({chunk->bytes, 0}, 2, encoder.filter(),
                                        std::as_writable_bytes(std::span(numbers)))
                                .ok());
  return numbers;
}

TEST(FieldEncoder, EncodingFollowsFieldAndStorage) {
  const StoredField points = fieldOf("point", 10, 3);
  EXPECT_EQ(encodingFor(points, StorageKind::Grid, false), Encoding::kGridColumns);
  EXPECT_EQ(encodingFor(points, StorageKind::Grid, true), Encoding::kColumns);
  EXPECT_EQ(encodingFor(points, StorageKind::Deflate, false), Encoding::kColumns);
  EXPECT_EQ(encodingFor(points, StorageKind::Raw, false), Encoding::kPiece);
  EXPECT_EQ(encodingFor(fieldOf("vector3", 10, 3), StorageKind::Grid, false), Encoding::kColumns);
  EXPECT_EQ(encodingFor(fieldOf("double", 10, 1), StorageKind::Grid, false), Encoding::kRows);
  EXPECT_EQ(encodingFor(fieldOf("point", 0, 3), StorageKind::Grid, false), Encoding::kPiece);
}

TEST(FieldEncoder, ChunksStayHandyForWideRowsAndSmallFields) {
  EXPECT_EQ(FieldEncoder(fieldOf("uint8", 1000000, 1), Encoding::kRows).chunkRows(), 65536U);
  EXPECT_EQ(FieldEncoder(fieldOf("uint8", 77, 1), Encoding::kRows).chunkRows(), 77U);
  const StoredField waveforms = fieldOf("uint16", 1000000, 200, 2);
  const FieldEncoder wide(waveforms, Encoding::kRows);
  EXPECT_EQ(wide.chunkRows(), 2048U);
  EXPECT_EQ(wide.chunkColumns(), 200U);
  const StoredField extreme = fieldOf("double", 10, 10000000, 2);
  const FieldEncoder widest(extreme, Encoding::kRows);
  EXPECT_EQ(widest.chunkRows(), 2U);
  EXPECT_EQ(widest.chunkColumns(), 65536U);
}

TEST(FieldEncoder, ChunksAreEqualPartsOfFragmentsThatAreAlike) {
  const auto rowsFor = [](std::uint64_t fragmentRows) {
    return FieldEncoder(fieldOf("uint8", 1000000, 1), Encoding::kRows, fragmentRows).chunkRows();
  };
  EXPECT_EQ(rowsFor(250000), 62500U);
  EXPECT_EQ(rowsFor(65536), 65536U);
  EXPECT_EQ(rowsFor(50000), 50000U);
  EXPECT_EQ(rowsFor(131101), 65536U) << "a prime number has no equal parts";
  EXPECT_EQ(rowsFor(100), 65536U) << "too small to matter";
}

TEST(FieldEncoder, BytesAreNotShuffled) {
  EXPECT_FALSE(FieldEncoder(fieldOf("uint8", 10, 1), Encoding::kRows).filter().shuffle);
  EXPECT_TRUE(FieldEncoder(fieldOf("uint16", 10, 1), Encoding::kRows).filter().shuffle);
}

TEST(FieldEncoder, ChunkRunsAcrossFragmentsAndGaps) {
  const StoredField field = fieldOf("uint16", 100000, 1);
  FieldEncoder encoder(field, Encoding::kRows);
  encoder.add(pieceOf(0, 30000, 1));
  EXPECT_TRUE(encoder.takeComplete(30000).empty());
  encoder.add(pieceOf(40000, 30000, 2));  // nobody has data for the rows between
  const auto first = encoder.takeComplete(70000);
  ASSERT_EQ(first.size(), 1U);
  const auto numbers = numbersOf(encoder, first[0]);
  EXPECT_EQ(numbers[29999], 1);
  EXPECT_EQ(numbers[30000], 0);
  EXPECT_EQ(numbers[40000], 2);
  EXPECT_EQ(numbers[65535], 2);
  encoder.dropEncoded();
  encoder.add(pieceOf(70000, 30000, 3));
  const auto last = encoder.takeComplete(100000);
  ASSERT_EQ(last.size(), 1U);
  const auto rest = numbersOf(encoder, last[0]);
  EXPECT_EQ(rest[0], 2);
  EXPECT_EQ(rest[70000 - 65536], 3);
  EXPECT_EQ(rest[100000 - 65536], 0) << "behind the last row";
}

TEST(FieldEncoder, FirstRowsDecideAboutShuffle) {
  std::mt19937_64 random(3);
  const StoredField field = fieldOf("point", 20000, 3);
  const auto settled = [&](const auto& value) {
    auto points = makeStrong<Chunk<Point>>(20000);
    for (Point& p : points->span()) p = {value(), value(), value()};
    FieldEncoder encoder(field, Encoding::kColumns);
    encoder.add({0, 20000, 3, makeArray(points), {}});
    ChunkEncoder chunkEncoder;
    EXPECT_TRUE(encoder.settleFilter(chunkEncoder).ok());
    return encoder.filter().shuffle;
  };
  EXPECT_FALSE(settled([&] { return static_cast<double>(random() % 300) * 0.01; }));
  EXPECT_TRUE(settled([&] { return 500000 + std::sqrt(static_cast<double>(random() % 1000000)); }));
}

}  // namespace
}  // namespace Fiber::Container
