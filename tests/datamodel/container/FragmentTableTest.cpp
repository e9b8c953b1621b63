// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FragmentTable.hpp"

#include <gmock/gmock.h>

#include <random>

#include "datamodel/container/FragmentTableStorage.hpp"
#include "tests/datamodel/container/ObjectSteps.hpp"
#include "tests/support/FileSizeLimit.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;
using ::testing::HasSubstr;

TableShape fullShape() { return {3, 1, 8, 20, true, true, true, true, true}; }

/// A table whose bytes are all different from zero, texts included.
FragmentTable filledTable(const TableShape& shape, std::size_t rows) {
  FragmentTable table(shape, rows);
  std::mt19937_64 random(7);
  for (std::byte& b : table.bytes()) b = static_cast<std::byte>('A' + random() % 26);
  return table;
}

/// A table that is there already, and its lists.
struct WholeTable {
  TableShape shape;
  FragmentTable table;
  std::vector<std::string> fieldNames;
  std::vector<std::string> sourceGroups;

  WholeTable(const TableShape& itsShape, std::size_t rows, std::vector<std::string> fields,
             std::vector<std::string> groups)
      : shape(itsShape),
        table(filledTable(itsShape, rows)),
        fieldNames(std::move(fields)),
        sourceGroups(std::move(groups)) {}

  TableToWrite toWrite() const {
    return {
        shape, table.rowCount(),
        [this](FragmentTable& piece, std::size_t pieceBegin, std::size_t begin, std::size_t end) {
          const std::size_t rowBytes = table.rowBytes();
          EXPECT_LE(end - pieceBegin, piece.rowCount());
          std::copy_n(table.bytes().data() + begin * rowBytes, (end - begin) * rowBytes,
                      piece.bytes().data() + (begin - pieceBegin) * rowBytes);
        },
        fieldNames, sourceGroups};
  }
};

/// Writes a table into the root of a file.
void writeTable(const std::string& path, const WholeTable& table) {
  writeObjects(path, [&](OutputFile& output) {
    const auto written = writeFragmentTable(output, output.root(), table.toWrite());
    ASSERT_TRUE(written.ok()) << written.error();
    EXPECT_EQ(*written, checksumOf(table.table));
  });
}

MemCore::Outcome<TableContents> readTable(const std::string& path, bool byLibrary,
                                          std::size_t wideFields) {
  const ObjectFile file = openObjects(path, byLibrary);
  return readFragmentTable(file, file.root(), wideFields);
}

TEST(FragmentTable, ColumnsDoNotOverlap) {
  const TableLayout layout = tableLayout(fullShape());
  std::size_t end = 0;
  for (const ColumnPlace& place : layout) {
    EXPECT_GT(place.count, 0U) << place.name;
    EXPECT_EQ(place.offset, end) << place.name;
    end += place.count * entryBytes(place);
  }
  EXPECT_EQ(packedRowBytes(layout), end);
}

TEST(FragmentTable, ColumnsThatNobodyNeedsTakeNoRoom) {
  const FragmentTable table(TableShape{}, 2);
  EXPECT_FALSE(table.has(Column::kFile));
  EXPECT_FALSE(table.has(Column::kFieldMin));
  EXPECT_TRUE(table.has(Column::kPointCount));
  EXPECT_EQ(table.rowBytes(), 1U + 4 + 8 + 8 + 24 + 24);
  EXPECT_EQ(table.text(1, Column::kFile), "");
  EXPECT_FALSE(table.isLinked(0));
}

TEST(FragmentTable, EntriesAreKeptApart) {
  FragmentTable table(fullShape(), 3);
  table.set<double>(1, Column::kBoxMax, 2.5, 2);
  table.set<std::uint64_t>(1, Column::kRowShape, 77, 1);
  table.set<std::uint8_t>(2, Column::kPresent, 1, 0);
  table.setText(1, Column::kFile, "tiles/a.f5");
  table.setText(1, Column::kName, "[0x1x2]8");
  EXPECT_EQ(table.get<double>(1, Column::kBoxMax, 2), 2.5);
  EXPECT_EQ(table.get<double>(1, Column::kBoxMax, 1), 0.0);
  EXPECT_EQ(table.get<std::uint64_t>(1, Column::kRowShape, 1), 77U);
  EXPECT_EQ(table.get<std::uint8_t>(1, Column::kPresent, 0), 0);
  EXPECT_EQ(table.text(1, Column::kFile), "tiles/a.f5");
  EXPECT_EQ(table.text(1, Column::kName), "[0x1x2]8");
  EXPECT_TRUE(table.isLinked(1));
  EXPECT_FALSE(table.isLinked(2));
}

class StoredFragmentTable : public testing::TestWithParam<bool> {
 protected:
  TempDir folder_;
  std::string path_ = folder_ / "t.h5";
};

TEST_P(StoredFragmentTable, ReturnsFromTheFile) {
  // A small one lies in the object's header, a large one outside, the largest in several pieces.
  const std::size_t severalPieces =
      (std::size_t{40} << 20U) / FragmentTable(fullShape(), 0).rowBytes();
  for (const std::size_t rows :
       {std::size_t{0}, std::size_t{1}, std::size_t{3}, std::size_t{5000}, severalPieces}) {
    const WholeTable written{fullShape(), rows, {"a", "Bb", "c%2Fd"}, {"/0/x"}};
    writeTable(path_, written);
    const auto read = readTable(path_, GetParam(), 1);
    ASSERT_TRUE(read.ok()) << read.error();
    EXPECT_EQ(read->table.bytes(), written.table.bytes());
    EXPECT_EQ(read->table.rowCount(), rows);
    EXPECT_EQ(read->fieldNames, written.fieldNames);
    EXPECT_EQ(read->sourceGroups, written.sourceGroups);
  }
}

/// What writing a table of several pieces says when `spoil` is called from the second one on.
std::string failureOfLargeTable(
    const std::string& path, const std::function<void()>& spoil,
    const std::function<void()>& afterwards = [] {}) {
  const std::size_t rows = (std::size_t{40} << 20U) / FragmentTable(fullShape(), 0).rowBytes();
  const WholeTable whole{fullShape(), rows, {"a", "Bb", "c%2Fd"}, {}};
  TableToWrite table = whole.toWrite();
  table.fill = [&, fill = table.fill](FragmentTable& piece, std::size_t pieceBegin,
                                      std::size_t begin, std::size_t end) {
    if (pieceBegin > 0) spoil();
    fill(piece, pieceBegin, begin, end);
  };
  std::string failure;
  writeObjects(path, [&](OutputFile& output) {
    const auto written = writeFragmentTable(output, output.root(), table);
    if (!written.ok()) failure = written.error();
    afterwards();
  });
  return failure;
}

TEST(FragmentTablePieces, MemoryThatRunsOutIsAText) {
  const TempDir folder;
  EXPECT_EQ(failureOfLargeTable(folder / "t.h5", [] { throw std::bad_alloc(); }),
            folder / "t.h5" + ": not enough memory");
}

TEST(FragmentTablePieces, PieceThatCannotBeWrittenIsAText) {
  const TempDir folder;
  const LidarLib::TestSupport::FileSizeLimit limit;
  const std::string failure = failureOfLargeTable(
      folder / "t.h5", [&] { limit.set(1000); }, [&] { limit.lift(); });
  EXPECT_THAT(failure, HasSubstr("t.h5: "));
  EXPECT_THAT(failure, HasSubstr("File too large"));
}

TEST_P(StoredFragmentTable, WrongNumberOfEntriesIsNamed) {
  writeTable(path_, {{2, 0, 8, 0, false, false, false, false, false}, 1, {"a", "b", "c"}, {}});
  EXPECT_THAT(readTable(path_, GetParam(), 0).error(),
              HasSubstr("column present has the wrong number of entries, found 2, expected 3"));
}

TEST_P(StoredFragmentTable, MissingTableIsAText) {
  writeObjects(path_, [](OutputFile&) {});
  EXPECT_THAT(readTable(path_, GetParam(), 0).error(), HasSubstr("fragments: missing"));
}

INSTANTIATE_TEST_SUITE_P(DecoderAndLibrary, StoredFragmentTable, testing::Bool());

}  // namespace
}  // namespace Fiber::Container
