// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Outcome.hpp"

#include <gtest/gtest.h>

#include <memory>

namespace MemCore {
namespace {

Outcome<int> halfOf(int number) {
  if (number % 2 != 0) return Failure{"number: is odd, found 3, expected an even one"};
  return number / 2;
}

TEST(Outcome, ValueIsHandedOver) {
  const Outcome<int> half = halfOf(4);
  ASSERT_TRUE(half.ok());
  EXPECT_TRUE(half);
  EXPECT_EQ(*half, 2);
  EXPECT_EQ(half.value(), 2);
}

TEST(Outcome, FailureKeepsItsText) {
  const Outcome<int> half = halfOf(3);
  EXPECT_FALSE(half.ok());
  EXPECT_FALSE(half);
  EXPECT_EQ(half.error(), "number: is odd, found 3, expected an even one");
}

TEST(Outcome, FailureTravelsIntoAnotherType) {
  const Outcome<std::string> text = halfOf(3).failure();
  ASSERT_FALSE(text.ok());
  EXPECT_EQ(text.error(), halfOf(3).error());
}

TEST(Outcome, StringValueIsNoFailure) {
  const Outcome<std::string> text = std::string("fine");
  ASSERT_TRUE(text.ok());
  EXPECT_EQ(text->size(), 4U);
}

TEST(Outcome, MoveOnlyValueMovesOut) {
  Outcome<std::unique_ptr<int>> held = std::make_unique<int>(7);
  const std::unique_ptr<int> taken = std::move(held).value();
  EXPECT_EQ(*taken, 7);
}

TEST(Outcome, VoidIsSuccessUnlessFailed) {
  const Outcome<void> fine;
  EXPECT_TRUE(fine.ok());
  const Outcome<void> failed = Failure{"file: gone"};
  EXPECT_FALSE(failed);
  EXPECT_EQ(failed.error(), "file: gone");
  EXPECT_EQ(failed.failure().text, "file: gone");
}

}  // namespace
}  // namespace MemCore
