// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextFragment.hpp"

#include "datamodel/memcore/Cache.hpp"
#include "tests/formats/text/TextTestFiles.hpp"

namespace Formats::TextTests {
namespace {

using Kind = ColumnRole::Kind;

/// A file of x, y, z and one field of a type.
std::shared_ptr<TextFile> fileOf(const std::string& path, ElementType type) {
  auto file = std::make_shared<TextFile>();
  file->bytes = openFile(path);
  file->format.names = {"x", "y", "z", "q"};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    file->columns.push_back({Kind::Axis, axis, 0, ElementType::Float64});
  }
  file->columns.push_back({Kind::Field, 0, 0, type});
  file->fieldCount = 1;
  return file;
}

constexpr const char* kRows = "# c\n1 2 3 4\n-1 5 9 200\n";

}  // namespace

TEST(TextFragment, RangeBecomesColumnsAndABox) {
  const TempDir folder;
  const auto file = fileOf(writeText(folder / "a.xyz", kRows), ElementType::UInt8);
  const auto parsed = parseLines(*file, {0, file->bytes->sizeBytes()}, 0);
  ASSERT_TRUE(parsed.ok()) << parsed.error();
  EXPECT_EQ(parsed->rowCount, 2U);
  EXPECT_EQ(parsed->lineCount, 3U);
  EXPECT_EQ(parsed->box->min(), (Eagle::PhysicalSpace::point{-1, 2, 3}));
  EXPECT_EQ(parsed->box->max(), (Eagle::PhysicalSpace::point{1, 5, 9}));
  const auto values = MemCore::chunkCast<std::uint8_t>(parsed->fragment->column(1)->elements());
  ASSERT_TRUE(bool(values));
  EXPECT_EQ((*values)[1], 200);
}

TEST(TextFragment, NumbersThatDoNotFitGiveFactsAlone) {
  const TempDir folder;
  const auto file = fileOf(writeText(folder / "a.xyz", kRows), ElementType::Int8);
  const auto parsed = parseLines(*file, {0, file->bytes->sizeBytes()}, 0);
  ASSERT_TRUE(parsed.ok()) << parsed.error();
  EXPECT_FALSE(bool(parsed->fragment));
  EXPECT_EQ(parsed->facts[3].highest, 200U);
}

TEST(TextFragment, DataAreMadeAgainWhenTheCacheHasDroppedThem) {
  const CacheBudget budget(1 << 20);
  const TempDir folder;
  const auto file = fileOf(writeText(folder / "a.xyz", kRows), ElementType::UInt8);
  const auto source =
      MemCore::makeStrong<TextFragmentSource>(file, ByteRange{0, file->bytes->sizeBytes()});
  ASSERT_TRUE(source->survey(2).ok());
  EXPECT_TRUE(bool(source->decodedIfPresent()));
  MemCore::Cache::MemCache()->clear();
  EXPECT_FALSE(bool(source->decodedIfPresent()));
  const auto again = source->decoded();
  ASSERT_TRUE(again.ok()) << again.error();
  EXPECT_EQ((*again)->column(0)->elements()->size(), 2U);
}

TEST(TextFragment, AnotherPlanForgetsTheColumnsOfTheFirst) {
  const CacheBudget budget(1 << 20);
  const TempDir folder;
  const std::string path = writeText(folder / "a.xyz", kRows);
  const auto file = fileOf(path, ElementType::UInt8);
  const auto source =
      MemCore::makeStrong<TextFragmentSource>(file, ByteRange{0, file->bytes->sizeBytes()});
  ASSERT_TRUE(source->survey(2).ok());
  const auto other = source->forPlan(fileOf(path, ElementType::Int32));
  EXPECT_FALSE(bool(source->decodedIfPresent()));
  EXPECT_EQ(other->rowCount(), 2U);
  const auto decoded = other->decoded();
  ASSERT_TRUE(decoded.ok()) << decoded.error();
  EXPECT_TRUE(bool(MemCore::chunkCast<std::int32_t>((*decoded)->column(1)->elements())));
}

TEST(TextFragment, FileThatHasChangedIsNoticed) {
  const CacheBudget budget(0);
  const TempDir folder;
  const std::string path = writeText(folder / "a.xyz", kRows);
  const auto file = fileOf(path, ElementType::UInt8);
  const ByteRange all{0, file->bytes->sizeBytes()};
  const auto source = MemCore::makeStrong<TextFragmentSource>(file, all);
  ASSERT_TRUE(source->survey(2).ok());
  source->setFirstLine(11);
  writeText(path, "# c\n1 2 3 4\n-1 5 9 -20\n");
  EXPECT_NE(source->decoded().error().find("a.xyz: has changed since it was opened, found 2 rows"),
            std::string::npos);
  writeText(path, "# c\n1 2 3 4\n-1 5 9 abc\n");
  EXPECT_NE(source->decoded().error().find("a.xyz:13: column 4 (q): no number, found \"abc\""),
            std::string::npos);
  writeText(path, "1 2 3 4\n");
  EXPECT_NE(source->decoded().error().find("a.xyz: has shrunk since it was opened"),
            std::string::npos);
}

}  // namespace Formats::TextTests
