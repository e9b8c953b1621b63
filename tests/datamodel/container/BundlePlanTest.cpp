// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/BundlePlan.hpp"

#include <gmock/gmock.h>

#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/datamodel/container/ModelCompare.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;
using MemCore::makeStrong;
using ::testing::HasSubstr;

/// The plan of the only representation.
PlannedRepresentation planOf(const CloudBuilder& cloud, const std::string& file = "a.f5",
                             bool linkFragments = true) {
  auto plan = planBundle(*cloud.bundle(), file, linkFragments);
  if (plan.ok()) return plan->slices.at(0).grids.at(0).skeletons.at(0).representations.at(0);
  ADD_FAILURE() << plan.error();
  return {};
}

std::string planFailure(const CloudBuilder& cloud) {
  const auto plan = planBundle(*cloud.bundle(), "a.f5", true);
  return plan.ok() ? "" : plan.error();
}

TEST(BundlePlan, FragmentsFollowEachOtherInEveryDataset) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(10)).field("GpsTime", std::vector<double>(10));
  cloud.fragment(std::vector<Point>(7));
  cloud.fragment(std::vector<Point>(5)).field("GpsTime", std::vector<double>(5));
  const PlannedRepresentation plan = planOf(cloud);
  EXPECT_TRUE(plan.sharesExtents);
  ASSERT_EQ(plan.rows.size(), 3U);
  EXPECT_EQ(plan.rows[2].start, 17U);
  ASSERT_EQ(plan.fields.size(), 2U);
  for (const PlannedField& field : plan.fields) EXPECT_EQ(field.stored.rows, 22U);
  EXPECT_FALSE(bool(plan.rows[1].parts[0].creator));
  EXPECT_EQ(plan.rows[2].parts[0].start, 17U);
}

TEST(BundlePlan, FieldsOfOtherLengthsHaveRowsOfTheirOwn) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(10)).field("Table", std::vector<double>(3));
  cloud.fragment(std::vector<Point>(4)).field("Table", std::vector<double>(6));
  const PlannedRepresentation plan = planOf(cloud);
  EXPECT_FALSE(plan.sharesExtents);
  EXPECT_EQ(plan.rows[0].pointCount, 10U);
  EXPECT_EQ(plan.fields[0].stored.rows, 14U);
  EXPECT_EQ(plan.fields[1].stored.rows, 9U);
  EXPECT_EQ(plan.rows[1].parts[0].start, 10U);
  EXPECT_EQ(plan.rows[1].parts[1].start, 3U);
}

TEST(BundlePlan, WidestFragmentDecidesTheColumns) {
  CloudBuilder cloud;
  cloud.fragment(std::vector<Point>(2)).waveforms("Waveforms", 4, std::vector<unsigned short>(8));
  cloud.fragment(std::vector<Point>(3)).waveforms("Waveforms", 9, std::vector<unsigned short>(27));
  const PlannedRepresentation plan = planOf(cloud);
  EXPECT_EQ(plan.fields[0].stored.columns, 3U);
  EXPECT_EQ(plan.fields[1].stored.columns, 9U);
  EXPECT_EQ(plan.fields[1].stored.rank, 2U);
}

TEST(BundlePlan, OnlyWhollyStoredFragmentsAreLinked) {
  const TempDir folder;
  CloudBuilder tile;
  tile.fragment({{1, 2, 3}}).field<double>("GpsTime", {5});
  saveTo(folder / "tile.f5", tile.bundle());
  const BundlePtr loaded = loadBundle(folder / "tile.f5");
  CloudBuilder cloud;
  cloud.fragmentOf(creatorOf(*loaded, "Positions"));
  EXPECT_TRUE(bool(planOf(cloud, folder / "out.f5").rows[0].link));
  EXPECT_FALSE(bool(planOf(cloud, folder / "out.f5", false).rows[0].link));
  EXPECT_FALSE(bool(planOf(cloud, folder.path().string() + "/./tile.f5").rows[0].link))
      << "a file cannot hold links to itself";
  cloud.field<double>("Other", {7});
  EXPECT_FALSE(bool(planOf(cloud, folder / "out.f5").rows[0].link));
}

TEST(BundlePlan, SameFieldUnderAnotherNameIsCopied) {
  const TempDir folder;
  CloudBuilder tile;
  tile.fragment({{1, 2, 3}}).field<double>("GpsTime", {5});
  saveTo(folder / "tile.f5", tile.bundle());
  const BundlePtr loaded = loadBundle(folder / "tile.f5");
  CloudBuilder cloud;
  cloud.fragmentOf(creatorOf(*loaded, "Positions"));
  const auto representation = cloud.currentGrid()->getCartesianRepresentation("");
  const auto renamed = makeStrong<Field>(representation->fragments());
  renamed->setCreator(renamed->getFragmentIDs().front(), creatorOf(*loaded, "GpsTime"));
  representation->setField("Renamed", renamed);
  EXPECT_FALSE(bool(planOf(cloud, folder / "out.f5").rows[0].link));
}

TEST(BundlePlan, FragmentsThatDisagreeAreRefused) {
  CloudBuilder ranks;
  ranks.fragment(std::vector<Point>(4)).field("A", std::vector<unsigned short>(4));
  ranks.fragment(std::vector<Point>(2)).waveforms("A", 2, std::vector<unsigned short>(4));
  EXPECT_THAT(planFailure(ranks),
              HasSubstr("a.f5: grid points: field A, fragment 1: other type or rank"));

  CloudBuilder names;
  names.fragment(std::vector<Point>(1));
  const auto other = makeStrong<Field>(nullptr);
  other->setPersistentData(makeArray(makeStrong<MemCore::Chunk<double>>(1)),
                           other->makeFragmentID("x"), nullptr, "");
  names.currentGrid()->getCartesianRepresentation("")->setField("B", other);
  EXPECT_THAT(planFailure(names), HasSubstr("field B: fragment 0 has another name"));
}

}  // namespace
}  // namespace Fiber::Container
