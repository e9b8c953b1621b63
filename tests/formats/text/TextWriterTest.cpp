// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextWriter.hpp"

#include <filesystem>

#include "formats/text/GzipText.hpp"
#include "tests/formats/text/TextTestFiles.hpp"

namespace Formats::TextTests {
namespace {

std::vector<TextColumn> columnsOf(const Points& points) {
  const auto chunk = MemCore::makeStrong<MemCore::Chunk<Eagle::PhysicalSpace::point>>(
      std::span<const Eagle::PhysicalSpace::point>(points));
  return {{"Positions", Fiber::makeArray(chunk), {1, 1, 1}}};
}

/// Writes two blocks under a name; returns the path.
std::string writeBlocks(const std::string& path, const TextWriterOptions& options = {}) {
  auto writer = TextWriter::create(path, options);
  EXPECT_TRUE(writer.ok()) << writer.error();
  const auto first = columnsOf({{1, 2, 3}});
  const auto second = columnsOf({{4, 5, 6.5}});
  for (const std::string& text : {writer->header(first), *formatRows(first, writer->style()),
                                  *formatRows(second, writer->style())}) {
    EXPECT_TRUE(writer->append(*writer->pack(text)).ok());
  }
  EXPECT_FALSE(std::filesystem::exists(path));
  const auto published = writer->publish(false);
  EXPECT_TRUE(published.ok());
  return path;
}

}  // namespace

TEST(TextWriter, EndingOfTheNameTellsTheStyle) {
  const TempDir folder;
  EXPECT_EQ(readText(writeBlocks(folder / "a.csv")), "x,y,z\n1.0,2.0,3.0\n4.0,5.0,6.5\n");
  EXPECT_EQ(readText(writeBlocks(folder / "a.TXT")), "x y z\n1.0 2.0 3.0\n4.0 5.0 6.5\n");
  EXPECT_EQ(readText(writeBlocks(folder / "a.xyz")), "1.0 2.0 3.0\n4.0 5.0 6.5\n");
}

TEST(TextWriter, OptionsGoBeforeTheEnding) {
  const TempDir folder;
  EXPECT_EQ(readText(writeBlocks(folder / "a.csv", {Delimiter::Semicolon, false, false})),
            "1.0;2.0;3.0\n4.0;5.0;6.5\n");
  EXPECT_EQ(readText(writeBlocks(folder / "a.xyz", {std::nullopt, true, false})),
            "x y z\n1.0 2.0 3.0\n4.0 5.0 6.5\n");
}

TEST(TextWriter, GzipFilesHoldTheSameText) {
  const TempDir folder;
  const auto file = expandGzip(*openFile(writeBlocks(folder / "a.csv.gz")));
  ASSERT_TRUE(file.ok()) << file.error();
  const auto bytes = (*file)->read(0, (*file)->sizeBytes());
  ASSERT_TRUE(bytes.ok());
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size()),
            "x,y,z\n1.0,2.0,3.0\n4.0,5.0,6.5\n");
}

TEST(TextWriter, GzipFileOfNoTextCanBeRead) {
  const TempDir folder;
  auto writer = TextWriter::create(folder / "a.xyz.gz");
  ASSERT_TRUE(writer.ok()) << writer.error();
  ASSERT_TRUE(writer->append(*writer->pack("")).ok());
  ASSERT_TRUE(writer->publish(false).ok());
  EXPECT_EQ(readCloud({folder / "a.xyz.gz"}).summary.points, 0U);
}

TEST(TextWriter, UnfinishedFilesLeaveNothing) {
  const TempDir folder;
  {
    auto writer = TextWriter::create(folder / "a.xyz");
    ASSERT_TRUE(writer.ok()) << writer.error();
    ASSERT_TRUE(writer->append("1 2 3\n").ok());
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  EXPECT_FALSE(TextWriter::create(folder / "missing/a.xyz").ok());
}

}  // namespace Formats::TextTests
