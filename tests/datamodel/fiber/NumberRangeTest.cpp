// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/NumberRange.hpp"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "tests/support/Seed.hpp"

namespace Fiber {
namespace {

using LidarLib::TestSupport::testSeed;

template <class T>
std::optional<ValueRange> rangeBy(const std::vector<T>& values) {
  return rangeOfNumbers(FiberTypeBase::find(typeid(T))->scalar(), std::as_bytes(std::span(values)));
}

/// One number after the other, in order.
template <class T>
std::optional<ValueRange> rangePlainly(const std::vector<T>& values) {
  std::optional<ValueRange> range;
  T low{};
  T high{};
  for (const T value : values) {
    if (value != value) continue;
    if (!range || value < low) low = value;
    if (!range || value > high) high = value;
    range = ValueRange{static_cast<double>(low), static_cast<double>(high)};
  }
  return range;
}

/// Equal to the sign of zeros.
void expectSame(const std::optional<ValueRange>& found, const std::optional<ValueRange>& expected,
                std::size_t count) {
  ASSERT_EQ(found, expected) << count << " numbers";
  if (!found) return;
  EXPECT_EQ(std::signbit(found->min), std::signbit(expected->min)) << count << " numbers";
  EXPECT_EQ(std::signbit(found->max), std::signbit(expected->max)) << count << " numbers";
}

/// Any bits, extremes, zeros of both signs, NaN; a narrow choice makes each of them the answer.
template <class T>
T someNumber(std::mt19937_64& random, unsigned choices) {
  using Limits = std::numeric_limits<T>;
  switch (random() % choices) {
    case 0:
      return T{0};
    case 1:
      return static_cast<T>(-T{0});
    case 2:
      return Limits::has_quiet_NaN ? Limits::quiet_NaN() : Limits::max();
    case 3:
      return static_cast<T>(random() % 100);
    case 4:
      return Limits::lowest();
    case 5:
      return Limits::has_infinity ? Limits::infinity() : Limits::max();
    default:
      return static_cast<T>(static_cast<std::int64_t>(random()));
  }
}

/// Runs the tests once for every instruction set that this machine has.
class NumberRange : public testing::TestWithParam<std::int64_t> {
 protected:
  void SetUp() override { use(GetParam()); }
  void TearDown() override { use(0); }

  template <class T>
  void expectLikePlainLoop() {
    std::mt19937_64 random(testSeed());
    for (std::size_t count = 0; count < 400; ++count) {
      const auto choices = static_cast<unsigned>(2 + random() % 6);
      std::vector<T> values(count);
      for (T& value : values) value = someNumber<T>(random, choices);
      expectSame(rangeBy(values), rangePlainly(values), count);
    }
  }

 private:
  static void use(std::int64_t targets) {
    hwy::SetSupportedTargetsForTest(targets);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }
};

TEST_P(NumberRange, OfEveryKindIsThatOfThePlainLoop) {
  expectLikePlainLoop<double>();
  expectLikePlainLoop<float>();
  expectLikePlainLoop<std::int8_t>();
  expectLikePlainLoop<std::uint8_t>();
  expectLikePlainLoop<std::int16_t>();
  expectLikePlainLoop<std::uint16_t>();
  expectLikePlainLoop<std::int32_t>();
  expectLikePlainLoop<std::uint32_t>();
  expectLikePlainLoop<std::int64_t>();
  expectLikePlainLoop<std::uint64_t>();
}

std::string nameOfTarget(const testing::TestParamInfo<std::int64_t>& target) {
  return hwy::TargetName(target.param);
}

INSTANTIATE_TEST_SUITE_P(EveryInstructionSet, NumberRange,
                         testing::ValuesIn(hwy::SupportedAndGeneratedTargets()), nameOfTarget);

TEST(NumberRangeOfBoth, IsThatOfOneRunBehindTheOther) {
  std::mt19937_64 random(testSeed());
  for (std::size_t count = 0; count < 60; ++count) {
    std::vector<double> values(count);
    for (double& value : values) value = someNumber<double>(random, 3);
    const std::size_t split = random() % (count + 1);
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(split);
    const auto joined = rangeOfBoth(rangeBy(std::vector<double>(values.begin(), middle)),
                                    rangeBy(std::vector<double>(middle, values.end())));
    expectSame(joined, rangePlainly(values), count);
  }
}

TEST(HighestIndex, IsZeroWithoutAnyAndReachesTheLastOne) {
  EXPECT_EQ(highestIndex({}), 0U);
  for (std::size_t place = 0; place < 70; ++place) {
    std::vector<unsigned int> indices(70, 3U);
    indices[place] = 0xFFFFFFFFU;
    EXPECT_EQ(highestIndex(indices), 0xFFFFFFFFU) << place;
  }
}

struct Grade {
  double value = 0.0;
};

TEST(NumberKindOf, IsThatOfSingleNumbersAlone) {
  EXPECT_EQ(numberKindOf(MemArray<2, std::uint16_t>({3, 4})), ScalarKind::UInt16);
  EXPECT_FALSE(numberKindOf(MemArray<1, Eagle::PhysicalSpace::point>({3})));
  FiberTypeBase::remember(MemCore::makeStrong<FiberTypeBase>("range test grade", typeid(Grade),
                                                             ScalarKind::Float64, 1));
  EXPECT_FALSE(numberKindOf(MemArray<1, Grade>({3})));
}

}  // namespace
}  // namespace Fiber
