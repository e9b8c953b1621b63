// SPDX-License-Identifier: Apache-2.0

#include "assembly/FillingArray.hpp"

#include <gtest/gtest.h>

namespace LidarLib {
namespace {

using Fiber::FiberTypeBase;
using Fiber::ValueRange;

FillingArray arrayOfShorts(std::uint64_t count) {
  auto made = FillingArray::make(FiberTypeBase::find(typeid(std::int16_t)), {count});
  EXPECT_TRUE(made.has_value());
  return *made;
}

std::span<std::int16_t> elementsOf(const FillingArray& filling) {
  return MemCore::handleCast<Fiber::MemArray<1, std::int16_t>>(filling.array())->span();
}

TEST(FillingArray, RangeIsThatOfWhatHasBeenFilled) {
  FillingArray filling = arrayOfShorts(4);
  EXPECT_FALSE(filling.range());
  elementsOf(filling)[0] = 7;
  elementsOf(filling)[1] = -3;
  filling.noteFilled(1);
  EXPECT_EQ(filling.range(), (ValueRange{7, 7}));
  filling.noteFilled(1);
  EXPECT_EQ(filling.range(), (ValueRange{-3, 7}));
}

TEST(FillingArray, RestBecomesZerosThatCount) {
  FillingArray filling = arrayOfShorts(4);
  const auto elements = elementsOf(filling);
  std::fill(elements.begin(), elements.end(), std::int16_t{9});
  filling.noteFilled(2);
  filling.fillRest();
  EXPECT_EQ(std::vector<int>(elements.begin(), elements.end()), (std::vector<int>{9, 9, 0, 0}));
  EXPECT_EQ(filling.range(), (ValueRange{0, 9}));
}

TEST(FillingArray, CopyNotesForItselfAlone) {
  FillingArray filling = arrayOfShorts(2);
  elementsOf(filling)[0] = 5;
  FillingArray copy = filling;
  copy.noteFilled(1);
  EXPECT_EQ(copy.array(), filling.array());
  EXPECT_FALSE(filling.range());
}

TEST(FillingArray, PointsHaveNoRange) {
  auto made = FillingArray::make(FiberTypeBase::find("point"), {3});
  ASSERT_TRUE(made.has_value());
  made->noteFilled(2);
  made->fillRest();
  EXPECT_FALSE(made->range());
}

struct Mark {
  int value = 1;
};

TEST(FillingArray, IsNotMadeOfTypesThatOthersRegister) {
  const auto type = FiberTypeBase::remember(MemCore::makeStrong<FiberTypeBase>(
      "filling test mark", typeid(Mark), Fiber::ScalarKind::Int32, 1));
  Fiber::MemBase::registerCreator(typeid(Mark), 1, [](const Fiber::DynamicSize& size) {
    return MemCore::makeStrong<Fiber::MemArray<1, Mark>>(std::array<std::uint64_t, 1>{size[0]});
  });
  ASSERT_TRUE(Fiber::MemBase::create(type, {3}, typeid(Mark)));
  EXPECT_FALSE(FillingArray::make(type, {3}));
  EXPECT_FALSE(FillingArray::make(nullptr, {3}));
}

TEST(FillingArray, IsNotMadeBeyond32BitIndices) {
  const auto type = FiberTypeBase::find(typeid(std::uint8_t));
  EXPECT_FALSE(FillingArray::make(type, {std::uint64_t{1} << 32}));
}

}  // namespace
}  // namespace LidarLib
