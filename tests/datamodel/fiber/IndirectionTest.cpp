// SPDX-License-Identifier: Apache-2.0
//
// CreateIndirection against a plain loop, and what it refuses.

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "datamodel/fiber/MemBase.hpp"
#include "tests/support/Seed.hpp"

namespace Fiber {
namespace {

using MemCore::Chunk;
using MemCore::ChunkBase;
using MemCore::makeStrong;
using MemCore::StrongPtr;

/// One call of CreateIndirection on bytes-like elements.
struct Call {
  std::vector<std::uint64_t> output;
  std::vector<std::uint64_t> input;
  std::optional<std::vector<unsigned>> outputIndices;
  std::optional<std::vector<unsigned>> inputIndices;
  IndirectionRange range;
};

/// What the call must leave in the output, element by element; absent when it must be refused.
std::optional<std::vector<std::uint64_t>> plainCopy(const Call& call) {
  using Wide = unsigned __int128;
  std::vector<std::uint64_t> output = call.output;
  const auto at = [](const auto& list, Wide j) -> std::optional<Wide> {
    if (!list) return j;
    if (j >= list->size()) return std::nullopt;
    return Wide{(*list)[static_cast<std::size_t>(j)]};
  };
  for (Wide j = call.range.first; j < Wide{call.range.first} + call.range.count; ++j) {
    const auto t = at(call.outputIndices, j);
    const auto s = at(call.inputIndices, j);
    if (!t || !s) return std::nullopt;
    const Wide target = *t * call.range.stride + call.range.outputOffset;
    const Wide source = *s + call.range.inputOffset;
    if (target >= output.size() || source >= call.input.size()) return std::nullopt;
    output[static_cast<std::size_t>(target)] = call.input[static_cast<std::size_t>(source)];
  }
  return output;
}

/// Makes the call on elements of type T; absent when it was refused.
template <class T>
std::optional<std::vector<std::uint64_t>> callOn(const Call& call) {
  const auto chunkOf = [](const std::vector<std::uint64_t>& values) {
    auto chunk = makeStrong<Chunk<T>>();
    for (const std::uint64_t value : values) {
      T element{};
      reinterpret_cast<unsigned char&>(element) = static_cast<unsigned char>(value);
      chunk->push_back(element);
    }
    return chunk;
  };
  const auto listOf = [](const std::optional<std::vector<unsigned>>& list) {
    return list ? std::optional<IndexList>(IndexList(std::span<const unsigned>(*list)))
                : std::nullopt;
  };
  const auto output = chunkOf(call.output);
  const auto to = listOf(call.outputIndices);
  const auto from = listOf(call.inputIndices);
  if (!CreateIndirection(output, chunkOf(call.input), to ? &*to : nullptr, from ? &*from : nullptr,
                         call.range)) {
    EXPECT_EQ(output->byteCount(), chunkOf(call.output)->byteCount());
    return std::nullopt;
  }
  std::vector<std::uint64_t> result;
  for (const T& element : *output) {
    result.push_back(reinterpret_cast<const unsigned char&>(element));
  }
  return result;
}

/// A list of indices below a limit (rarely at it), in runs as selections have them.
std::vector<unsigned> someIndices(std::mt19937_64& random, std::size_t count, unsigned limit) {
  std::vector<unsigned> indices;
  while (indices.size() < count) {
    auto next = static_cast<unsigned>(random() % (limit + (random() % 50 == 0 ? 1 : 0)));
    const std::size_t run = random() % 2 == 0 ? 1 : random() % 40;
    for (std::size_t r = 0; r < run && indices.size() < count && next < limit + 1; ++r) {
      indices.push_back(next++);
    }
  }
  return indices;
}

Call someCall(std::mt19937_64& random) {
  Call call;
  call.output.assign(1 + random() % 120, 255);
  for (std::uint64_t i = 0, n = 1 + random() % 120; i < n; ++i)
    call.input.push_back(random() % 250);
  call.range.count = random() % 60;
  call.range.first = random() % 4 == 0 ? random() % 10 : 0;
  const std::size_t listLength =
      static_cast<std::size_t>(call.range.first + call.range.count) - (random() % 20 == 0 ? 1 : 0);
  const std::size_t length = listLength > 1000 ? 0 : listLength;
  if (random() % 3 != 0) {
    call.inputIndices = someIndices(random, length, static_cast<unsigned>(call.input.size()));
  }
  if (random() % 3 == 0) {
    call.outputIndices = someIndices(random, length, static_cast<unsigned>(call.output.size()));
  }
  call.range.stride = random() % 4 == 0 ? random() % 4 : 1;
  call.range.outputOffset = random() % 2 == 0 ? random() % 30 : 0;
  call.range.inputOffset = random() % 4 == 0 ? random() % 30 : 0;
  return call;
}

struct Triple {
  unsigned short parts[3];
};

TEST(Indirection, CopiesAsAPlainLoopDoesForEveryElementSize) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  int accepted = 0;
  for (int round = 0; round < 4000; ++round) {
    const Call call = someCall(random);
    const auto expected = plainCopy(call);
    accepted += expected ? 1 : 0;
    ASSERT_EQ(callOn<unsigned char>(call), expected) << "round " << round;
    ASSERT_EQ(callOn<unsigned short>(call), expected) << "round " << round;
    ASSERT_EQ(callOn<float>(call), expected) << "round " << round;
    ASSERT_EQ(callOn<double>(call), expected) << "round " << round;
    ASSERT_EQ(callOn<Eagle::PhysicalSpace::point>(call), expected) << "round " << round;
    ASSERT_EQ(callOn<Triple>(call), expected) << "round " << round;
  }
  EXPECT_GT(accepted, 500);
  EXPECT_LT(accepted, 3900);
}

TEST(Indirection, GathersOneFragmentAfterAnother) {
  const auto output = makeStrong<Chunk<double>>(3);
  const IndexList firstList{2, 0};
  const IndexList secondList{1};
  EXPECT_TRUE(CreateIndirection(output, makeStrong<Chunk<double>>(Chunk<double>{10, 11, 12}),
                                nullptr, &firstList, {0, 2, 0, 0, 1}));
  EXPECT_TRUE(CreateIndirection(output, makeStrong<Chunk<double>>(Chunk<double>{20, 21}), nullptr,
                                &secondList, {0, 1, 2, 0, 1}));
  EXPECT_EQ((std::vector<double>(output->begin(), output->end())),
            (std::vector<double>{12, 10, 21}));
}

TEST(Indirection, RefusesWhatCannotBeCopiedAsBytes) {
  const StrongPtr<ChunkBase> doubles = makeStrong<Chunk<double>>(4);
  const StrongPtr<ChunkBase> floats = makeStrong<Chunk<float>>(4);
  const StrongPtr<ChunkBase> texts = makeStrong<Chunk<std::string>>(4);
  const StrongPtr<ChunkBase> otherTexts = makeStrong<Chunk<std::string>>(4);
  const IndirectionRange one{0, 1, 0, 0, 1};
  EXPECT_FALSE(CreateIndirection(nullptr, doubles, nullptr, nullptr, one));
  EXPECT_FALSE(CreateIndirection(doubles, nullptr, nullptr, nullptr, one));
  EXPECT_FALSE(CreateIndirection(doubles, floats, nullptr, nullptr, one));
  EXPECT_FALSE(CreateIndirection(doubles, doubles, nullptr, nullptr, one));
  EXPECT_FALSE(CreateIndirection(texts, otherTexts, nullptr, nullptr, one));
}

TEST(Indirection, RangesThatWrapAreRefused) {
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  const StrongPtr<ChunkBase> output = makeStrong<Chunk<double>>(4);
  const StrongPtr<ChunkBase> input = makeStrong<Chunk<double>>(4);
  const IndexList list{0, 1, 2, 3};
  for (const IndirectionRange& range :
       {IndirectionRange{kMax, 2, 0, 0, 1}, IndirectionRange{1, kMax, 0, 0, 1},
        IndirectionRange{0, 1, kMax, 0, 1}, IndirectionRange{0, 1, 0, kMax, 1},
        IndirectionRange{1, 2, 2, 0, kMax}, IndirectionRange{1, 3, 0, 0, kMax / 2 + 1}}) {
    EXPECT_FALSE(CreateIndirection(output, input, nullptr, nullptr, range));
    EXPECT_FALSE(CreateIndirection(output, input, &list, &list, range));
  }
}

TEST(Indirection, IndicesThatStartOverAtZeroAreNoRun) {
  // Elements that nobody touches cost no memory.
  const auto input = Chunk<unsigned char>::uninitialised(std::size_t{1} << 32);
  IndexList list;
  for (unsigned j = 0; j < 40; ++j) {
    const unsigned index = 4294967290U + j;  // wraps after six
    list.push_back(index);
    (*input)[index] = static_cast<unsigned char>(j + 1);
  }
  const auto output = makeStrong<Chunk<unsigned char>>(40);
  ASSERT_TRUE(CreateIndirection(output, input, nullptr, &list, {0, 40, 0, 0, 1}));
  for (unsigned j = 0; j < 40; ++j) ASSERT_EQ((*output)[j], j + 1);
}

TEST(Indirection, NothingToCopyIsFine) {
  const StrongPtr<ChunkBase> output = makeStrong<Chunk<double>>();
  const StrongPtr<ChunkBase> input = makeStrong<Chunk<double>>();
  const IndexList none;
  EXPECT_TRUE(CreateIndirection(output, input, nullptr, &none, {0, 0, 0, 0, 1}));
  EXPECT_TRUE(CreateIndirection(output, input, nullptr, &none, {9, 0, 9, 9, 1}));
}

}  // namespace
}  // namespace Fiber
