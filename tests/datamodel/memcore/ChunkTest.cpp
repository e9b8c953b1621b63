// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Chunk.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace MemCore {
namespace {

using testing::ElementsAre;

TEST(Chunk, CountedElementsAreZero) {
  const Chunk<double> chunk(3);
  EXPECT_THAT(chunk.span(), ElementsAre(0.0, 0.0, 0.0));
}

TEST(Chunk, ValueIsRepeatedAndListIsTaken) {
  EXPECT_THAT(Chunk<int>(2, 7).span(), ElementsAre(7, 7));
  EXPECT_THAT((Chunk<int>{2, 7}).span(), ElementsAre(2, 7));
}

TEST(Chunk, EmptyChunkHasNoElements) {
  const Chunk<int> chunk;
  EXPECT_TRUE(chunk.empty());
  EXPECT_EQ(chunk.size(), 0U);
  EXPECT_EQ(chunk.byteCount(), 0U);
}

TEST(Chunk, SeenWithoutItsTypeItTellsTypeAndBytes) {
  Chunk<std::uint16_t> chunk{1, 2, 3};
  const ChunkBase& base = chunk;
  EXPECT_EQ(base.elementType(), typeid(std::uint16_t));
  EXPECT_EQ(base.elementSize(), 2U);
  EXPECT_EQ(base.byteCount(), 6U);
  EXPECT_EQ(static_cast<const void*>(base.bytes()), chunk.data());
}

TEST(Chunk, OnlyElementsThatAreBytesArePlain) {
  EXPECT_TRUE(Chunk<double>().isPlain());
  EXPECT_FALSE(Chunk<std::string>().isPlain());
}

TEST(Chunk, GrowsByAppendGrowAndPushBack) {
  Chunk<int> chunk{1};
  const int more[] = {2, 3};
  chunk.append(more);
  int* added = chunk.grow(2);
  added[0] = 4;
  added[1] = 5;
  chunk.push_back(6);
  EXPECT_THAT(chunk.span(), ElementsAre(1, 2, 3, 4, 5, 6));
}

TEST(Chunk, TruncateShortensAndNeverGrows) {
  Chunk<int> chunk{1, 2, 3};
  chunk.truncate(2);
  EXPECT_THAT(chunk.span(), ElementsAre(1, 2));
  chunk.truncate(10);
  EXPECT_THAT(chunk.span(), ElementsAre(1, 2));
}

TEST(Chunk, ElementsAreAlignedToCacheLines) {
  const auto chunk = Chunk<std::uint8_t>::uninitialised(100);
  EXPECT_EQ(chunk->size(), 100U);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(chunk->data()) % 64, 0U);
}

TEST(Chunk, AbsurdSizesAreMemoryFailures) {
  const std::size_t absurd = std::numeric_limits<std::size_t>::max() / 2;
  EXPECT_THROW((void)Chunk<double>(absurd), std::bad_alloc);
  EXPECT_THROW(Chunk<double>::uninitialised(absurd), std::bad_alloc);
  Chunk<double> chunk{1.0};
  EXPECT_THROW(chunk.grow(absurd), std::bad_alloc);
  EXPECT_EQ(chunk.size(), 1U);
}

TEST(ChunkCast, IsEmptyForAnotherTypeOrNoChunk) {
  const StrongPtr<ChunkBase> chunk = makeStrong<Chunk<float>>(2);
  EXPECT_TRUE(chunkCast<float>(chunk));
  EXPECT_FALSE(chunkCast<double>(chunk));
  EXPECT_FALSE(chunkCast<float>(StrongPtr<ChunkBase>()));
}

}  // namespace
}  // namespace MemCore
