// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointDecoding.hpp"

#include <gmock/gmock.h>

#include <algorithm>

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
MemCore::Outcome<Decoded> decodeRange(const PointColumns& columns, const PointRange& range,
                                      PositionForm form = PositionForm::Points) {
  const auto shared = std::make_shared<FileRecords>();
  shared->file = columns.file;
  auto records = std::make_shared<RecordSource>(shared, range, 0)->open(Keep::No);
  if (!records) return records.failure();
  PointSurveyor surveyor(columns);
  const auto fragment = decodePoints(columns, *records, form, &surveyor);
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

TEST(PointDecoding, WholeNumbersAreThoseOfTheRecords) {
  const TempDir folder;
  const auto file = openSurvey(folder, 40000);
  const PointRange range{1023, 38000};
  const PointColumns columns = allColumns(file);
  const auto points = decodeRange(columns, range);
  const auto numbers = decodeRange(columns, range, PositionForm::GridPoints);
  ASSERT_TRUE(points.ok() && numbers.ok());
  EXPECT_FALSE(bool(points->fragment->gridPoints()));
  EXPECT_FALSE(bool(numbers->fragment->column(kPositionColumn)));
  const Fiber::GridPoints& found = *numbers->fragment->gridPoints();
  EXPECT_TRUE(isSameGrid(found.grid, gridOf(columns)));
  const auto all = readAllRecords(*file);
  const auto records = std::span(all).subspan(range.firstPoint * file->recordBytes(),
                                              range.pointCount * file->recordBytes());
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto expected = plainColumn(records, file->recordBytes(), PointLayout::axis(axis));
    EXPECT_TRUE(std::ranges::equal(std::as_bytes(std::span(found.columns[axis])), expected));
  }
  // All else is the same.
  EXPECT_EQ(numbers->survey.blocks.size(), points->survey.blocks.size());
  for (std::size_t i = 0; i < columns.fields.size(); ++i) {
    const auto& one = *points->fragment->column(kFirstFieldColumn + i)->elements();
    const auto& other = *numbers->fragment->column(kFirstFieldColumn + i)->elements();
    EXPECT_TRUE(std::equal(one.bytes(), one.bytes() + one.byteCount(), other.bytes()));
  }
  // Three integers instead of three doubles.
  EXPECT_EQ(points->fragment->byteCount() - numbers->fragment->byteCount(), 12 * range.pointCount);
}

/// The boxes of blocks, point by point.
std::vector<Fiber::PointBox> plainBlocks(std::span<const Eagle::PhysicalSpace::point> points) {
  std::vector<Fiber::PointBox> blocks;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (i % Fiber::kBlockPoints == 0) blocks.push_back({points[i], points[i]});
    for (std::size_t axis = 0; axis < 3; ++axis) {
      blocks.back().min[axis] = std::min(blocks.back().min[axis], points[i][axis]);
      blocks.back().max[axis] = std::max(blocks.back().max[axis], points[i][axis]);
    }
  }
  return blocks;
}

// Pieces of a file begin and end within blocks.
TEST(PointDecoding, SurveysOfPiecesMakeOne) {
  const TempDir folder;
  const auto file = openSurvey(folder, 5000);
  const PointColumns columns = allColumns(file);
  const auto records = readAllRecords(*file);
  const std::size_t recordBytes = file->recordBytes();
  const auto expected = plainBlocks(plainPositions(records, file->header()));
  for (const std::size_t step : {1U, 100U, 511U, 512U, 513U, 1300U, 5000U}) {
    PointSurveyor whole(columns);
    for (std::size_t first = 0; first < 5000; first += step) {
      PointSurveyor piece(columns, first);
      const std::size_t count = std::min<std::size_t>(step, 5000 - first);
      piece.add(std::span(records).subspan(first * recordBytes, count * recordBytes));
      whole.append(piece);
    }
    const PointSurvey survey = whole.finish();
    ASSERT_EQ(survey.blocks.size(), expected.size()) << step;
    for (std::size_t b = 0; b < expected.size(); ++b) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        ASSERT_EQ(survey.blocks[b].min[axis], expected[b].min[axis]) << step << " " << b;
        ASSERT_EQ(survey.blocks[b].max[axis], expected[b].max[axis]) << step << " " << b;
      }
    }
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
