// SPDX-License-Identifier: Apache-2.0

#include "host/SourceOrder.hpp"

#include <gtest/gtest.h>

#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::CloudBuilder;

TEST(SourceOrder, FilterLetsTheOrderThrough) {
  FilterOptions filters;
  filters.fields = {"Intensity"};
  EXPECT_EQ(withSourceOrder(filters).fields,
            (std::set<std::string>{"Intensity", "SourceFile", "SourceIndex"}));
}

TEST(SourceOrder, NoFilterStaysNone) { EXPECT_TRUE(withSourceOrder({}).fields.empty()); }

TEST(SourceOrder, GridsWithBothFieldsWillDo) {
  const auto bundle = CloudBuilder()
                          .fragment({{0, 0, 0}})
                          .field<std::uint32_t>("SourceFile", {0})
                          .field<std::uint64_t>("SourceIndex", {3})
                          .bundle();
  EXPECT_TRUE(checkSourceOrder(*selectGrids(*bundle, {})).ok());
}

TEST(SourceOrder, GridWithoutIsAUsageMistake) {
  const auto bundle =
      CloudBuilder().fragment({{0, 0, 0}}).field<std::uint32_t>("SourceFile", {0}).bundle();
  const Check check = checkSourceOrder(*selectGrids(*bundle, {}));
  ASSERT_FALSE(check.ok());
  EXPECT_EQ(check.stop().code, ExitCode::Usage);
  EXPECT_EQ(check.stop().text,
            "--keep-order: grid points has no field \"SourceIndex\", expected .las or .laz files, "
            "or a bundle made of them with --keep-order");
}

}  // namespace
}  // namespace Host
