// SPDX-License-Identifier: Apache-2.0

#include "host/OutsidePoints.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;

const Eagle::BoundingBox kUnitBox({0, 0, 0}, {1, 1, 1});

/// A creator that knows its size and box, and whose data must not be asked for.
class FactsOnly final : public Fiber::CreativeArrayBase {
 public:
  FactsOnly(std::uint64_t count, const Eagle::BoundingBox& box)
      : CreativeArrayBase({Fiber::FiberTypeBase::find("point"), Fiber::DynamicSize{count},
                           MemCore::makeStrong<Eagle::BoundingBox>(box.min(), box.max()),
                           std::nullopt}) {}

 protected:
  MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> create() override {
    return MemCore::Failure{"test: data were asked for"};
  }
};

TEST(OutsidePoints, FacesCountAsInside) {
  CloudBuilder builder;
  builder.fragment({{0, 0, 0}, {1, 1, 1}, {0.5, 0.5, 0.5}, {1.5, 0.5, 0.5}, {0.5, 0.5, -0.1}});
  EXPECT_EQ(*countPointsOutside(*builder.positions(), kUnitBox), 2U);
  EXPECT_EQ(countPoints(*builder.positions()), 5U);
}

TEST(OutsidePoints, PointsThatAreNoNumbersAreOutside) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  CloudBuilder builder;
  builder.fragment({{0.5, 0.5, nan}, {0.5, 0.5, 0.5}, {2, 2, 2}});
  EXPECT_EQ(*countPointsOutside(*builder.positions(), kUnitBox), 2U);
}

TEST(OutsidePoints, FragmentsWhollyInOrOutAreNotRead) {
  CloudBuilder builder;
  builder.fragmentOf(MemCore::makeStrong<FactsOnly>(10, kUnitBox));
  builder.fragmentOf(MemCore::makeStrong<FactsOnly>(7, Eagle::BoundingBox({2, 0, 0}, {3, 1, 1})));
  EXPECT_EQ(*countPointsOutside(*builder.positions(), kUnitBox), 7U);
}

TEST(OutsidePoints, FragmentThatCannotBeReadIsAFailure) {
  CloudBuilder builder;
  builder.fragmentOf(MemCore::makeStrong<FactsOnly>(7, Eagle::BoundingBox({0.5, 0, 0}, {3, 1, 1})));
  const auto count = countPointsOutside(*builder.positions(), kUnitBox);
  ASSERT_FALSE(count.ok());
  EXPECT_EQ(count.error(), "test: data were asked for");
}

}  // namespace
}  // namespace Host
