// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/SourceOrder.hpp"

#include <gmock/gmock.h>

#include <numeric>

#include "tests/formats/cloud/CloudTestFiles.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::TempDir;
using testing::ElementsAre;

CloudOptions inOrder(std::uint64_t fragmentPoints) { return {"points", 0, fragmentPoints, true}; }

}  // namespace

TEST(SourceOrder, EveryPointKnowsItsFileAndItsPlace) {
  const TempDir folder;
  const TestCloud cloud =
      readCloud({writeSurvey(folder / "a.las", 1, 3), writeSurvey(folder / "none.las", 1, 0),
                 writeSurvey(folder / "b.las", 6, 4, 2)},
                inOrder(2));
  EXPECT_THAT(valuesOf<std::uint32_t>(*cloud.field("SourceFile")),
              ElementsAre(0, 0, 0, 2, 2, 2, 2));
  EXPECT_THAT(valuesOf<std::uint64_t>(*cloud.field("SourceIndex")),
              ElementsAre(0, 1, 2, 0, 1, 2, 3));
}

TEST(SourceOrder, FactsAreKnownWithoutData) {
  const SourceOrderCreators order = makeSourceOrder(7, {1000, 50});
  EXPECT_EQ(order.file->facts().size, Fiber::DynamicSize{50});
  EXPECT_EQ(order.file->facts().range, (Fiber::ValueRange{7, 7}));
  EXPECT_EQ(order.index->facts().size, Fiber::DynamicSize{50});
  EXPECT_EQ(order.index->facts().range, (Fiber::ValueRange{1000, 1049}));
  EXPECT_FALSE(bool(order.file->dataIfPresent()));
  EXPECT_FALSE(bool(order.index->dataIfPresent()));
}

TEST(SourceOrder, KnownRangesAreThoseOfTheData) {
  const SourceOrderCreators order = makeSourceOrder(7, {1000, 50});
  for (const auto& creator : {order.file, order.index}) {
    const auto known = creator->facts().range;
    EXPECT_EQ(Fiber::computeRange(*creator), known);
  }
}

TEST(SourceOrder, IsNotKeptUnasked) {
  const TempDir folder;
  const TestCloud cloud = readCloud({writeSurvey(folder / "a.las", 1, 3)});
  const auto representation = cloud.grid->getCartesianRepresentation("");
  EXPECT_FALSE(bool(representation->findField("SourceFile")));
  EXPECT_FALSE(bool(representation->findField("SourceIndex")));
}

TEST(SourceOrder, ExtraBytesOfTheSameNameGiveWay) {
  const TempDir folder;
  const LasWriterOptions options =
      lasOptions(0, {describeExtraBytes("SourceFile", ElementType::UInt32),
                     describeExtraBytes("SourceIndex", ElementType::UInt32)});
  const std::vector<std::byte> records = surveyRecords(0, 8, 5, 1);
  const auto file = writeLas(folder / "a.las", options, records);
  const TestCloud cloud = readCloud({file}, inOrder(10));
  EXPECT_THAT(valuesOf<std::uint64_t>(*cloud.field("SourceIndex")), ElementsAre(0, 1, 2, 3, 4));
  const auto layout = PointLayout::make(0, options.header.recordBytes, options.vlrs);
  ASSERT_NE(layout->find("SourceIndex_2"), nullptr);
  EXPECT_EQ(bytesOf(*cloud.field("SourceIndex_2")),
            plainColumn(records, options.header.recordBytes, *layout->find("SourceIndex_2")));
}

}  // namespace Formats
