// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextLines.hpp"

#include <random>

#include "tests/formats/text/TextTestFiles.hpp"
#include "tests/support/Seed.hpp"

namespace Formats::TextTests {
namespace {

/// All pieces of a range, one after the other; each must end with a line, but for the last.
std::string allPieces(const InputFile& file, const ByteRange& range) {
  LinePieces pieces(file, range);
  std::string all;
  while (true) {
    const auto piece = pieces.next();
    EXPECT_TRUE(piece.ok()) << piece.error();
    if (!piece || piece->empty()) return all;
    EXPECT_TRUE(all.empty() || all.ends_with('\n'));
    all += *piece;
  }
}

std::string randomLines(std::size_t bytes, std::size_t longest) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  std::string text;
  while (text.size() < bytes) text += std::string(random() % longest, 'a') + "\n";
  return text;
}

}  // namespace

TEST(TextLines, PiecesAreTheWholeRange) {
  const TempDir folder;
  const std::string text = randomLines(3000000, 100000) + "last line without an end";
  const auto file = openFile(writeText(folder / "a.xyz", text));
  EXPECT_EQ(allPieces(*file, {0, text.size()}), text);
  EXPECT_EQ(allPieces(*file, {0, 0}), "");
}

TEST(TextLines, LineThatIsTooLongIsCutSoThatItShows) {
  const TempDir folder;
  const std::string text = "1 2 3\n" + std::string(5 * kMaxLineBytes, '7');
  const auto file = openFile(writeText(folder / "a.xyz", text));
  LinePieces pieces(*file, {0, text.size()});
  ASSERT_EQ(*pieces.next(), "1 2 3\n");
  const auto cut = pieces.next();
  ASSERT_TRUE(cut.ok());
  EXPECT_GT(cut->size(), kMaxLineBytes);
  EXPECT_LT(cut->size(), 2 * kMaxLineBytes);
}

TEST(TextLines, CutsLieAtLinesAndLeaveNothingOut) {
  const TempDir folder;
  const std::string text = randomLines(20000, 300);
  const auto file = openFile(writeText(folder / "a.xyz", text));
  for (const std::uint64_t wanted : {1U, 7U, 1000U, 5000U, 19999U, 1000000U}) {
    const auto ranges = cutAtLines(*file, {0, text.size()}, wanted);
    ASSERT_TRUE(ranges.ok()) << ranges.error();
    std::uint64_t at = 0;
    for (const ByteRange& range : *ranges) {
      ASSERT_EQ(range.begin, at);
      ASSERT_GT(range.end, range.begin);
      ASSERT_EQ(text[range.end - 1], '\n');
      at = range.end;
    }
    EXPECT_EQ(at, text.size());
  }
}

TEST(TextLines, CutBehindALineEndStaysThere) {
  const TempDir folder;
  const auto file = openFile(writeText(folder / "a.xyz", "abc\nabc\nabc\n"));
  const auto ranges = cutAtLines(*file, {0, 12}, 4);
  ASSERT_TRUE(ranges.ok());
  EXPECT_EQ(*ranges, (std::vector<ByteRange>{{0, 4}, {4, 8}, {8, 12}}));
}

}  // namespace Formats::TextTests
