// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/StorageTransformations.hpp"

#include <gtest/gtest.h>

namespace Fiber {
namespace {

TEST(StorageTransformations, DefaultsAreThoseThatWereSetLast) {
  const StorageTransformations former = StorageTransformations::defaults();
  EXPECT_EQ(former.kind, StorageKind::Grid);
  EXPECT_TRUE(former.durable);
  EXPECT_TRUE(former.linkFragments);
  StorageTransformations raw;
  raw.kind = StorageKind::Raw;
  raw.durable = false;
  StorageTransformations::setDefaults(raw);
  EXPECT_EQ(StorageTransformations::defaults().kind, StorageKind::Raw);
  EXPECT_FALSE(StorageTransformations::defaults().durable);
  StorageTransformations::setDefaults(former);
}

}  // namespace
}  // namespace Fiber
