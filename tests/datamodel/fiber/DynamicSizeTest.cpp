// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/DynamicSize.hpp"

#include <gtest/gtest.h>

namespace Fiber {
namespace {

TEST(DynamicSize, HasRankExtentsAndElementCount) {
  const DynamicSize size{120, 5};
  EXPECT_EQ(size.rank(), 2U);
  EXPECT_EQ(size[0], 120U);
  EXPECT_EQ(size[1], 5U);
  EXPECT_EQ(size.extents().size(), 2U);
  EXPECT_EQ(size.elementCount(), 600U);
}

TEST(DynamicSize, WithoutDimensionsThereIsOneElement) {
  EXPECT_EQ(DynamicSize().rank(), 0U);
  EXPECT_EQ(DynamicSize().elementCount(), 1U);
}

TEST(DynamicSize, AnyZeroExtentMeansNoElements) {
  EXPECT_EQ((DynamicSize{0, 5}).elementCount(), 0U);
}

TEST(DynamicSize, EqualityIsThatOfRankAndExtents) {
  EXPECT_EQ((DynamicSize{2, 3}), (DynamicSize{2, 3}));
  EXPECT_FALSE((DynamicSize{2, 3}) == (DynamicSize{3, 2}));
  EXPECT_FALSE((DynamicSize{2}) == (DynamicSize{2, 0}));
}

TEST(MultiIndex, IsAddressedByAxis) {
  MultiIndex<3> index{{1, 2, 3}};
  index[2] = 12;
  EXPECT_EQ(index[2], 12U);
  EXPECT_EQ(index, (MultiIndex<3>{{1, 2, 12}}));
}

}  // namespace
}  // namespace Fiber
