// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/DataRange.hpp"

#include <gtest/gtest.h>

namespace Fiber {
namespace {

TEST(DataRange, TellsItsBoundsAndTheirText) {
  const DataRangeBase range({-1.5, 20.0});
  EXPECT_EQ(range.range(), (ValueRange{-1.5, 20.0}));
  EXPECT_EQ(range.text(), "-1.500000 .. 20.000000");
}

}  // namespace
}  // namespace Fiber
