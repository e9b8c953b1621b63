// SPDX-License-Identifier: Apache-2.0

#include "formats/las/ExceptionEdge.hpp"

#include <gtest/gtest.h>

#include <new>

namespace Formats {
namespace {

using MemCore::Failure;
using MemCore::Outcome;

TEST(ExceptionEdge, ExceptionsBecomeTexts) {
  const auto outcome = withoutExceptions("x.las", []() -> Outcome<int> { throw std::bad_alloc(); });
  ASSERT_FALSE(outcome.ok());
  EXPECT_EQ(outcome.error(), "x.las: failed, std::bad_alloc");
}

TEST(ExceptionEdge, ValuesAndTextsPass) {
  EXPECT_EQ(*withoutExceptions("x.las", []() -> Outcome<int> { return 7; }), 7);
  EXPECT_EQ(withoutExceptions("x", []() -> Outcome<void> { return Failure{"why"}; }).error(),
            "why");
}

}  // namespace
}  // namespace Formats
