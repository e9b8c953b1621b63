// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Intercube.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace MemCore {
namespace {

struct Colour : InterfaceBase {
  explicit Colour(int shade) : value(shade) {}
  int value;
};
struct Weight : InterfaceBase {};
struct DarkColour : Colour {
  using Colour::Colour;
};

TEST(Intercube, FindsWhatWasAttached) {
  Intercube object;
  EXPECT_FALSE(object.findInterface<Colour>());
  object.addInterface(makeStrong<Colour>(4));
  ASSERT_TRUE(object.findInterface<Colour>());
  EXPECT_EQ(object.findInterface<Colour>()->value, 4);
  EXPECT_FALSE(object.findInterface<Weight>());
}

TEST(Intercube, SameTypeIsReplaced) {
  Intercube object;
  object.addInterface(makeStrong<Colour>(4));
  object.addInterface(makeStrong<Weight>());
  object.addInterface(makeStrong<Colour>(5));
  EXPECT_EQ(object.findInterface<Colour>()->value, 5);
  EXPECT_TRUE(object.findInterface<Weight>());
}

TEST(Intercube, DerivedTypeIsFoundAsItsBase) {
  Intercube object;
  object.addInterface(makeStrong<DarkColour>(9));
  EXPECT_EQ(object.findInterface<Colour>()->value, 9);
}

TEST(Intercube, EmptyHandleDoesNothing) {
  Intercube object;
  object.addInterface(makeStrong<Colour>(4));
  object.addInterface(nullptr);
  EXPECT_TRUE(object.findInterface<Colour>());
}

TEST(Intercube, AttachesAndFindsAtOnce) {
  Intercube object;
  object.addInterface(makeStrong<Colour>(0));
  std::thread writer([&] {
    for (int i = 0; i < 2000; ++i) object.addInterface(makeStrong<Colour>(i));
  });
  for (int i = 0; i < 2000; ++i) ASSERT_TRUE(object.findInterface<Colour>());
  writer.join();
  EXPECT_EQ(object.findInterface<Colour>()->value, 1999);
}

}  // namespace
}  // namespace MemCore
