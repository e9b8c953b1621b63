// SPDX-License-Identifier: Apache-2.0

#include "formats/export/RecordEncoder.hpp"

#include <gmock/gmock.h>

#include "formats/las/ByteStream.hpp"
#include "tests/formats/export/ExportTestGrids.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr CoordinateGrid kWhole{};

/// Positions as whole numbers of kWhole in place of doubles.
void takeWholeNumbers(FragmentColumns& fragment) {
  const auto numbers = MemCore::makeStrong<Fiber::GridPoints>();
  for (const auto& point : fragment.positions->span()) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      numbers->columns[axis].push_back(static_cast<std::int32_t>(point[axis]));
    }
  }
  fragment.gridPoints = numbers;
  fragment.positions = nullptr;
}

/// An encoder over the first fragment of a grid.
class Encoding {
 public:
  Encoding(CloudBuilder& cloud, std::uint8_t format, bool isLossy = false,
           const PointChooser& choose = everyPoint())
      : source_(sourceOf(cloud)) {
    LasExportOptions options;
    options.pointFormat = format;
    options.isLossy = isLossy;
    auto target = lasTargetOf(source_, options);
    EXPECT_TRUE(target.ok()) << target.error();
    target_ = std::move(*target);
    encoder_ = std::make_unique<RecordEncoder>(source_, target_, kWhole, isLossy);
    auto loaded = loadFragments(source_, source_.fragments, {encoder_->neededFields()}, choose);
    EXPECT_TRUE(loaded.ok()) << loaded.error();
    fragments_ = std::move(*loaded);
  }

  MemCore::Outcome<void> encode(std::size_t first, std::size_t count,
                                const std::vector<std::uint64_t>& waveOffsets = {}) {
    records_.assign(count * target_.writer.header.recordBytes, std::byte{0});
    return encoder_->encode(fragments_.front(), first, waveOffsets, records_);
  }
  /// The first points into records that are full of some byte.
  MemCore::Outcome<void> encodeOver(std::byte former, std::size_t count) {
    records_.assign(count * target_.writer.header.recordBytes, former);
    return encoder_->encode(fragments_.front(), 0, {}, records_);
  }
  const RecordEncoder& encoder() const { return *encoder_; }
  FragmentColumns& fragment() { return fragments_.front(); }
  const std::vector<std::byte>& records() const { return records_; }

  /// The values of a field of the records; bit fields shifted down.
  std::vector<int> valuesOf(const std::string& name) const {
    const LasHeader& header = target_.writer.header;
    const auto layout =
        PointLayout::make(header.pointFormat, header.recordBytes, target_.writer.vlrs);
    const PointField field = *layout->find(name);
    const auto column = plainColumn(records_, header.recordBytes, field);
    std::vector<int> values;
    const std::size_t width = elementBytes(field.type);
    for (std::size_t at = 0; at < column.size(); at += width) {
      values.push_back(width == 1   ? loadValue<std::uint8_t>(&column[at])
                       : width == 2 ? loadValue<std::int16_t>(&column[at])
                                    : loadValue<std::int32_t>(&column[at]));
    }
    return values;
  }
  std::int32_t x(std::size_t point) const {
    return loadValue<std::int32_t>(&records_[point * target_.writer.header.recordBytes]);
  }

 private:
  ExportSource source_;
  LasTarget target_;
  std::unique_ptr<RecordEncoder> encoder_;
  std::vector<FragmentColumns> fragments_;
  std::vector<std::byte> records_;
};

PointChooser marginOf(const std::vector<std::uint8_t>& isMargin) {
  return [isMargin](const FragmentColumns&) {
    PointChoice choice;
    choice.isMargin = isMargin;
    return choice;
  };
}

std::vector<Point> rowOf(std::size_t count) {
  std::vector<Point> points;
  for (std::size_t i = 0; i < count; ++i) points.push_back({static_cast<double>(i), 0, 0});
  return points;
}

}  // namespace

TEST(RecordEncoder, FieldsGoToTheirPlaces) {
  CloudBuilder cloud;
  cloud.fragment(rowOf(3)).field<std::uint8_t>("Classification", {2, 3, 31});
  cloud.field<std::uint16_t>("Intensity", {7, 8, 9}).field<std::int32_t>("Mine", {-1, 5, 6});
  Encoding encoding(cloud, 0);
  ASSERT_TRUE(encoding.encode(1, 2).ok());
  EXPECT_EQ(encoding.x(0), 1);
  EXPECT_EQ(encoding.x(1), 2);
  EXPECT_THAT(encoding.valuesOf("Classification"), ElementsAre(3, 31));
  EXPECT_THAT(encoding.valuesOf("Intensity"), ElementsAre(8, 9));
  EXPECT_THAT(encoding.valuesOf("Mine"), ElementsAre(5, 6));
  EXPECT_THAT(encoding.encoder().lossyFields(), IsEmpty());
}

TEST(RecordEncoder, OnlyChosenPointsGo) {
  CloudBuilder cloud;
  cloud.fragment(rowOf(4)).field<std::uint16_t>("Intensity", {7, 8, 9, 10});
  Encoding encoding(cloud, 0, false, onlyRows({0, 3}));
  ASSERT_TRUE(encoding.encode(0, 2).ok());
  EXPECT_EQ(encoding.x(1), 3);
  EXPECT_THAT(encoding.valuesOf("Intensity"), ElementsAre(7, 10));
}

TEST(RecordEncoder, WholeNumbersGiveTheRecordsThatPointsGive) {
  for (const PointChooser& choose : {everyPoint(), onlyRows({0, 2, 3, 5})}) {
    CloudBuilder cloud;
    cloud.fragment({{1, -2, 3}, {4, 5, -6}, {7, 8, 9}, {0, 0, 0}, {-1, 2, 2147483647}, {6, 6, 6}});
    cloud.field<std::uint16_t>("Intensity", {7, 8, 9, 10, 11, 12});
    Encoding encoding(cloud, 0, false, choose);
    ASSERT_TRUE(encoding.encode(1, 3).ok());
    const auto expected = encoding.records();
    takeWholeNumbers(encoding.fragment());
    ASSERT_TRUE(encoding.encode(1, 3).ok());
    EXPECT_EQ(encoding.records(), expected);
    const auto points = encoding.fragment().points();
    EXPECT_EQ((*points)[1], (Point{4, 5, -6}));
  }
}

TEST(RecordEncoder, RecordsNeedNotBeEmpty) {
  CloudBuilder cloud;
  cloud.fragment(rowOf(3)).field<std::uint8_t>("UserData", {0, 0, 0});
  cloud.field<std::uint8_t>("Synthetic", {0, 1, 0}).field<float>("Mine", {0.0F, -0.0F, 0.0F});
  Encoding encoding(cloud, 6);
  ASSERT_TRUE(encoding.encode(0, 3).ok());
  const auto expected = encoding.records();
  ASSERT_TRUE(encoding.encodeOver(std::byte{0xA5}, 3).ok());
  EXPECT_EQ(encoding.records(), expected);
  EXPECT_THAT(encoding.valuesOf("Synthetic"), ElementsAre(0, 1, 0));
}

TEST(RecordEncoder, MarginIsMarkedAsOverlapWhereThereIsSuchAFlag) {
  CloudBuilder cloud;
  cloud.fragment(rowOf(3)).field<std::uint8_t>("Overlap", {0, 0, 1});
  Encoding encoding(cloud, 6, false, marginOf({0, 1, 0}));
  ASSERT_TRUE(encoding.encode(0, 3).ok());
  EXPECT_THAT(encoding.valuesOf("Overlap"), ElementsAre(0, 1, 1));
  EXPECT_THAT(encoding.valuesOf("Withheld"), ElementsAre(0, 0, 0));
}

TEST(RecordEncoder, MarginIsWithheldInOldFormats) {
  CloudBuilder cloud;
  cloud.fragment(rowOf(3)).field<std::uint8_t>("Withheld", {1, 0, 0});
  cloud.field<std::uint8_t>("Classification", {31, 31, 31});
  Encoding encoding(cloud, 1, false, marginOf({0, 1, 0}));
  ASSERT_TRUE(encoding.encode(0, 3).ok());
  EXPECT_THAT(encoding.valuesOf("Withheld"), ElementsAre(1, 1, 0));
  EXPECT_THAT(encoding.valuesOf("Classification"), ElementsAre(31, 31, 31));
}

TEST(RecordEncoder, ValueThatDoesNotFitIsNamed) {
  CloudBuilder cloud;
  cloud.fragment(rowOf(2)).field<std::uint8_t>("Classification", {1, 64});
  Encoding encoding(cloud, 3);
  const auto encoded = encoding.encode(0, 2);
  ASSERT_FALSE(encoded.ok());
  EXPECT_EQ(encoded.error(),
            "field Classification: fragment 0: point format 3 cannot hold 64 (a lossy "
            "export takes the nearest)");
}

TEST(RecordEncoder, LossyOnesAreCutAndTold) {
  CloudBuilder cloud;
  cloud.fragment(rowOf(2)).field<std::uint8_t>("Classification", {1, 64});
  cloud.field<std::uint8_t>("UserData", {1, 2});
  Encoding encoding(cloud, 3, true);
  ASSERT_TRUE(encoding.encode(0, 1).ok());
  EXPECT_THAT(encoding.encoder().lossyFields(), IsEmpty());
  ASSERT_TRUE(encoding.encode(0, 2).ok());
  EXPECT_THAT(encoding.valuesOf("Classification"), ElementsAre(1, 31));
  EXPECT_THAT(encoding.encoder().lossyFields(), ElementsAre("Classification"));
}

TEST(RecordEncoder, CoordinateThatIsNotExactIsNamed) {
  CloudBuilder cloud;
  cloud.fragment({{0.5, 0, 0}});
  Encoding encoding(cloud, 0);
  EXPECT_EQ(encoding.encode(0, 1).error(),
            "positions: coordinate not exact (a lossy export rounds it), found x = 0.5, scale 1, "
            "offset 0");
}

TEST(RecordEncoder, FieldThatTheFragmentLacksIsZero) {
  CloudBuilder cloud;
  cloud.fragment(rowOf(1)).fragment(rowOf(1)).field<std::uint16_t>("Intensity", {7});
  Encoding encoding(cloud, 0);
  ASSERT_TRUE(encoding.encode(0, 1).ok());
  EXPECT_THAT(encoding.valuesOf("Intensity"), ElementsAre(0));
}

TEST(RecordEncoder, NewWaveOffsetsStandInForThePointsOwn) {
  CloudBuilder cloud;
  cloud.fragment(rowOf(2)).field<std::uint8_t>("WaveDescriptor", {1, 1});
  cloud.field<std::uint64_t>("WaveOffset", {60, 62}).field<std::uint32_t>("WaveSize", {2, 2});
  Encoding encoding(cloud, 9);
  ASSERT_TRUE(encoding.encode(0, 2, {100, 200}).ok());
  EXPECT_THAT(encoding.valuesOf("WaveOffset"), ElementsAre(100, 200));
  ASSERT_TRUE(encoding.encode(0, 2).ok());
  EXPECT_THAT(encoding.valuesOf("WaveOffset"), ElementsAre(60, 62));
  EXPECT_THAT(encoding.valuesOf("WaveSize"), ElementsAre(2, 2));
}

}  // namespace Formats
