// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/MemBase.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <new>

namespace Fiber {
namespace {

using MemCore::Chunk;
using MemCore::handleCast;
using MemCore::makeStrong;

TEST(MemBase, CreatesZeroedArraysOfEveryTypeAndRank) {
  const DynamicSize sizes[] = {{6}, {2, 3}, {1, 2, 3}, {1, 1, 2, 3}};
  for (const char* name : {"point", "vector3", "double", "float", "int8", "uint8", "int16",
                           "uint16", "int32", "uint32", "int64", "uint64"}) {
    const auto type = FiberTypeBase::find(std::string(name));
    for (const DynamicSize& size : sizes) {
      const auto array = MemBase::create(type, size, type->type());
      ASSERT_TRUE(array) << name;
      EXPECT_EQ(array->size(), size);
      EXPECT_EQ(array->type(), type);
      ASSERT_EQ(array->byteCount(), 6 * type->elementBytes());
      for (std::size_t i = 0; i < array->byteCount(); ++i) {
        ASSERT_EQ(array->elements()->bytes()[i], std::byte{0}) << name;
      }
    }
  }
}

TEST(MemBase, CreatesNothingWithoutAKnownTypeOrRank) {
  const auto type = FiberTypeBase::find(typeid(double));
  EXPECT_FALSE(MemBase::create(nullptr, DynamicSize{3}, typeid(double)));
  EXPECT_FALSE(MemBase::create(type, DynamicSize{3}, typeid(float)));
  EXPECT_FALSE(MemBase::create(type, DynamicSize{}, typeid(double)));
}

TEST(MemBase, UnfilledArraysDifferInTheirValuesAlone) {
  for (const char* name : {"point", "vector3", "double", "int8", "uint64"}) {
    const auto type = FiberTypeBase::find(std::string(name));
    for (const DynamicSize& size : {DynamicSize{6}, DynamicSize{1, 1, 2, 3}}) {
      const auto array = MemBase::createUnfilled(type, size, type->type());
      ASSERT_TRUE(array) << name;
      EXPECT_EQ(array->size(), size);
      EXPECT_EQ(array->type(), type);
      EXPECT_EQ(array->byteCount(), 6 * type->elementBytes());
    }
    EXPECT_FALSE(MemBase::createUnfilled(type, DynamicSize{}, type->type()));
    EXPECT_FALSE(MemBase::createUnfilled(type, DynamicSize{3}, typeid(float)));
  }
  EXPECT_FALSE(MemBase::createUnfilled(nullptr, DynamicSize{3}, typeid(double)));
}

TEST(MemBase, AbsurdExtentsAreMemoryFailures) {
  const std::uint64_t large = std::uint64_t{1} << 33;
  const auto type = FiberTypeBase::find(typeid(double));
  EXPECT_THROW(MemBase::create(type, DynamicSize{large, large}, typeid(double)), std::bad_alloc);
  EXPECT_THROW(MemBase::create(type, DynamicSize{std::uint64_t{1} << 62}, typeid(double)),
               std::bad_alloc);
  EXPECT_THROW(MemBase::createUnfilled(type, DynamicSize{large, large}, typeid(double)),
               std::bad_alloc);
}

TEST(MemBase, RegisteredCreatorServesItsTypeAndRankAlone) {
  struct Pixel {
    unsigned char grey;
  };
  const auto type = FiberTypeBase::remember(
      makeStrong<FiberTypeBase>("pixel", typeid(Pixel), ScalarKind::UInt8, 1U));
  EXPECT_FALSE(MemBase::create(type, DynamicSize{3}, typeid(Pixel)));
  MemBase::registerCreator(typeid(Pixel), 1, [](const DynamicSize& size) {
    return makeStrong<MemArray<1, Pixel>>(std::array<std::uint64_t, 1>{size[0]});
  });
  MemBase::registerCreator(typeid(Pixel), 1,
                           [](const DynamicSize&) { return MemCore::StrongPtr<MemBase>(); });
  EXPECT_TRUE(MemBase::create(type, DynamicSize{3}, typeid(Pixel))) << "the first one wins";
  EXPECT_FALSE(MemBase::createUnfilled(type, DynamicSize{3}, typeid(Pixel)));
  EXPECT_FALSE(MemBase::create(type, DynamicSize{3, 3}, typeid(Pixel)));
}

TEST(MemArray, SharesTheChunkItIsMadeOver) {
  const auto chunk = makeStrong<Chunk<double>>(3);
  const auto array = makeArray<double>(chunk);
  (*array)[1] = 4.0;
  EXPECT_EQ((*chunk)[1], 4.0);
  EXPECT_EQ(array->count(), 3U);
  EXPECT_EQ(array->size(), (DynamicSize{3}));
  EXPECT_EQ(array->elements(), chunk);
}

TEST(MemArray, IsFoundBehindItsBaseByRankAndType) {
  const MemCore::StrongPtr<MemBase> base =
      makeStrong<MemArray<2, unsigned short>>(std::array<std::uint64_t, 2>{4, 2});
  EXPECT_TRUE((handleCast<MemArray<2, unsigned short>>(base)));
  EXPECT_FALSE((handleCast<MemArray<1, unsigned short>>(base)));
  EXPECT_FALSE((handleCast<MemArray<2, short>>(base)));
}

TEST(MemArray, ElementsOfAnUnregisteredTypeHaveNoType) {
  struct Private {};
  const MemArray<1, Private> array(std::array<std::uint64_t, 1>{2});
  EXPECT_FALSE(array.type());
  EXPECT_EQ(array.byteCount(), 2U);
}

TEST(UniformCartesianArray, IsComputedAndHoldsNoElements) {
  const UniformCartesianArray raster({2, 3, 4}, {10, 20, 30}, {{0.5, 0.5, 1}});
  EXPECT_EQ(raster.size(), (DynamicSize{2, 3, 4}));
  EXPECT_EQ(raster.origin().y, 20.0);
  EXPECT_EQ(raster.spacing()[2], 1.0);
  EXPECT_FALSE(raster.elements());
  EXPECT_FALSE(raster.type());
  EXPECT_EQ(raster.byteCount(), 0U);
}

}  // namespace
}  // namespace Fiber
