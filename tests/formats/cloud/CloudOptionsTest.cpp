// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/CloudOptions.hpp"

#include <gmock/gmock.h>

namespace Formats {

using testing::HasSubstr;

TEST(CloudOptions, UsualOptionsCanBeUsed) {
  const Fiber::Bundle bundle;
  EXPECT_TRUE(checkCloudOptions(bundle, {}).ok());
}

TEST(CloudOptions, GridThatExistsAtTheTimeIsRefused) {
  Fiber::Bundle bundle;
  bundle[2.5]->newGrid("scan");
  EXPECT_THAT(checkCloudOptions(bundle, {"scan", 2.5, 1}).error(),
              HasSubstr("grid scan: exists already at time 2.5"));
  EXPECT_TRUE(checkCloudOptions(bundle, {"scan", 3, 1}).ok());
  EXPECT_TRUE(checkCloudOptions(bundle, {"other", 2.5, 1}).ok());
}

TEST(CloudOptions, FragmentsAreLimitedByTheirCreators) {
  EXPECT_TRUE(checkFragmentCount(8388608, 0, 1).ok());
  EXPECT_EQ(
      checkFragmentCount(8388609, 0, 1).error(),
      "point cloud: too many fragments for 0 fields, found 8388609, expected at most 8388608: "
      "more points per fragment make fewer");
  EXPECT_FALSE(checkFragmentCount(8388608, 1, 1).ok());
}

TEST(CloudOptions, FilesGivenAgainAreNoted) {
  EXPECT_THAT(repetitionNotes({"a", "b", "a", "a"}),
              testing::ElementsAre("a: given more than once: its points are, too",
                                   "a: given more than once: its points are, too"));
}

}  // namespace Formats
