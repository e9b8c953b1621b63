// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointDecoding.hpp"

#include <gmock/gmock.h>

#include "tests/formats/cloud/CloudTestFiles.hpp"

namespace Formats {

namespace {

using Eagle::PhysicalSpace;
using LidarLib::TestSupport::TempDir;
using Points = Fiber::MemArray<1, PhysicalSpace::point>;

PointColumns allColumns(const std::shared_ptr<LasFile>& file) {
  PointColumns columns{file, {file->header().scale, file->header().offset}, {}};
  for (const PointField& field : file->layout().fields()) {
    columns.fields.push_back({&field, {field.type, field.type, 1.0, 0.0}});
  }
  return columns;
}

struct Decoded {
  DecodedHandle fragment;
  PointSurvey survey;
};

/// Decodes a range as the fragment of a file, and surveys it on the way.
MemCore::Outcome<Decoded> decodeRange(const PointColumns& columns, const PointRange& range) {
  const auto shared = std::make_shared<FileRecords>();
  shared->file = columns.file;
  auto records = std::make_shared<RecordSource>(shared, range, 0)->open(Keep::No);
  if (!records) return records.failure();
  PointSurveyor surveyor(columns);
  const auto fragment = decodePoints(columns, *records, &surveyor);
  if (!fragment) return fragment.failure();
  return Decoded{*fragment, surveyor.finish()};
}

std::shared_ptr<LasFile> openSurvey(const TempDir& folder, std::size_t points) {
  auto opened = LasFile::open(writeSurvey(folder / "survey.las", 3, points));
  EXPECT_TRUE(opened.ok()) << opened.error();
  return opened ? *opened : nullptr;
}

}  // namespace

TEST(PointDecoding, RangeInTheMiddleEqualsThePlainReader) {
  const TempDir folder;
  const auto file = openSurvey(folder, 40000);
  const PointRange range{1023, 38000};  // begins and ends inside blocks and reads
  const auto decoded = decodeRange(allColumns(file), range);
  ASSERT_TRUE(decoded.ok()) << decoded.error();
  const auto all = readAllRecords(*file);
  const auto records = std::span(all).subspan(range.firstPoint * file->recordBytes(),
                                              range.pointCount * file->recordBytes());
  const auto points =
      MemCore::handleCast<Points>(decoded->fragment->column(kPositionColumn))->span();
  EXPECT_TRUE(std::ranges::equal(points, plainPositions(records, file->header())));
  for (std::size_t i = 0; i < file->layout().fields().size(); ++i) {
    const PointField& field = file->layout().fields()[i];
    const auto& elements = *decoded->fragment->column(kFirstFieldColumn + i)->elements();
    const std::vector<std::byte> bytes(elements.bytes(), elements.bytes() + elements.byteCount());
    EXPECT_EQ(bytes, plainColumn(records, file->recordBytes(), field)) << field.name;
  }
}

TEST(PointDecoding, BoxIsThatOfThePositions) {
  const TempDir folder;
  const auto file = openSurvey(folder, 5000);
  const auto decoded = decodeRange(allColumns(file), {0, 5000});
  ASSERT_TRUE(decoded.ok()) << decoded.error();
  const auto points = plainPositions(readAllRecords(*file), file->header());
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto [low, high] =
        std::ranges::minmax_element(points, {}, [axis](const auto& p) { return p[axis]; });
    EXPECT_EQ(decoded->survey.box->min()[axis], (*low)[axis]);
    EXPECT_EQ(decoded->survey.box->max()[axis], (*high)[axis]);
  }
}

TEST(PointDecoding, ConvertedColumnsKeepTheOrderOfTheirPoints) {
  const TempDir folder;
  const auto file = openSurvey(folder, 3000);
  const PointField* field = file->layout().find("Intensity");
  PointColumns columns{file, {}, {{field, {field->type, ElementType::Float64, 0.5, 3.0}}}};
  const auto decoded = decodeRange(columns, {0, 3000});
  ASSERT_TRUE(decoded.ok()) << decoded.error();
  const auto stored = plainColumn(readAllRecords(*file), file->recordBytes(), *field);
  const auto values =
      MemCore::handleCast<Fiber::MemArray<1, double>>(decoded->fragment->column(kFirstFieldColumn));
  ASSERT_TRUE(bool(values));
  for (std::size_t i = 0; i < 3000; ++i) {
    const auto raw = std::to_integer<unsigned>(stored[2 * i]) +
                     256 * std::to_integer<unsigned>(stored[2 * i + 1]);
    ASSERT_EQ((*values)[i], raw * 0.5 + 3.0);
  }
}

TEST(PointDecoding, EmptyRangeHasColumnsButNoBox) {
  const TempDir folder;
  const auto decoded = decodeRange(allColumns(openSurvey(folder, 10)), {5, 0});
  ASSERT_TRUE(decoded.ok()) << decoded.error();
  EXPECT_FALSE(bool(decoded->survey.box));
  EXPECT_EQ(decoded->fragment->byteCount(), 0U);
}

TEST(PointDecoding, FileCutOffAfterOpeningIsNamedWithItsPoints) {
  const TempDir folder;
  const auto file = openSurvey(folder, 40000);
  std::filesystem::resize_file(file->path(), 20000 * file->recordBytes());
  const auto decoded = decodeRange(allColumns(file), {0, 40000});
  ASSERT_FALSE(decoded.ok());
  EXPECT_THAT(decoded.error(), testing::StartsWith(file->path() + ": points 16384 to 32767: "));
}

}  // namespace Formats
