// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/RowReader.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <array>
#include <numeric>

#include "datamodel/container/FileDescriptor.hpp"
#include "tests/datamodel/container/Hdf5Writing.hpp"
#include "tests/datamodel/container/ObjectSteps.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;
using ::testing::HasSubstr;

constexpr hsize_t kRows = 103;
constexpr hsize_t kColumns = 7;

/// Value of a place: tells row and column.
std::uint16_t valueAt(std::uint64_t row, std::uint64_t column) {
  return static_cast<std::uint16_t>(row * 100 + column);
}

/// A dataset written by the library itself, and its layout.
struct WrittenDataset {
  WrittenDataset(const TempDir& folder, const PropertyHandle& creation) {
    const std::string path = folder / "d.h5";
    std::vector<std::uint16_t> values;
    for (hsize_t row = 0; row < kRows; ++row) {
      for (hsize_t column = 0; column < kColumns; ++column) values.push_back(valueAt(row, column));
    }
    {
      const Hdf5Lock lock;
      const FileHandle file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT));
      const std::array<hsize_t, 2> extents = {kRows, kColumns};
      const DataspaceHandle space(H5Screate_simple(2, extents.data(), nullptr));
      const DatasetHandle dataset(H5Dcreate2(file.get(), "d", H5T_STD_U16LE, space.get(),
                                             H5P_DEFAULT, creation.get(), H5P_DEFAULT));
      EXPECT_GE(
          H5Dwrite(dataset.get(), H5T_NATIVE_UINT16, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()),
          0);
    }
    opened = std::move(openRegularFile(path)).value();
    const auto file = ObjectFile::open(path);
    EXPECT_TRUE(file.ok() && file->isLibrarys());
    auto described = describeDataset(*file, "/", "d");
    EXPECT_TRUE(described.ok()) << described.error();
    if (described.ok()) layout = std::move(described).value();
  }

  /// Reads a range and compares every value.
  void expect(const RowRange& range) const {
    std::vector<std::uint16_t> values(range.count * range.columns);
    ASSERT_TRUE(requireRange(layout, range).ok());
    const auto read =
        readRows(layout, opened.descriptor.get(), range, std::as_writable_bytes(std::span(values)));
    ASSERT_TRUE(read.ok()) << read.error();
    for (std::uint64_t i = 0; i < values.size(); ++i) {
      ASSERT_EQ(values[i], valueAt(range.start + i / range.columns, i % range.columns));
    }
  }

  OpenedFile opened;
  DatasetLayout layout;
};

TEST(RowReader, AnyRangeOfAnyChunkingAndFilter) {
  const TempDir folder;
  for (const auto& chunk :
       {std::array<hsize_t, 2>{1, 1}, std::array<hsize_t, 2>{10, 1}, std::array<hsize_t, 2>{16, 7},
        std::array<hsize_t, 2>{20, 3}, std::array<hsize_t, 2>{103, 7}}) {
    for (unsigned bits = 0; bits < 8; ++bits) {
      const ChunkFilter filter{(bits & 1U) != 0, (bits & 2U) != 0, (bits & 4U) != 0};
      const WrittenDataset dataset(folder, chunkedCreation(chunk, filter));
      EXPECT_EQ(dataset.layout.filter, filter);
      for (const RowRange& range : {RowRange{0, 103, 7}, RowRange{0, 0, 7}, RowRange{102, 1, 1},
                                    RowRange{9, 55, 4}, RowRange{16, 32, 7}, RowRange{5, 90, 2}}) {
        dataset.expect(range);
      }
    }
  }
}

TEST(RowReader, AnyRangeOfOnePiece) {
  const TempDir folder;
  const WrittenDataset dataset(folder, PropertyHandle(H5Pcreate(H5P_DATASET_CREATE)));
  for (const RowRange& range :
       {RowRange{0, 103, 7}, RowRange{50, 53, 7}, RowRange{3, 80, 2}, RowRange{103, 0, 7}}) {
    dataset.expect(range);
  }
}

TEST(RowReader, RangesBeyondTheDatasetAreRefused) {
  const TempDir folder;
  const WrittenDataset dataset(folder, PropertyHandle(H5Pcreate(H5P_DATASET_CREATE)));
  EXPECT_FALSE(requireRange(dataset.layout, {0, 104, 7}).ok());
  EXPECT_FALSE(requireRange(dataset.layout, {104, 0, 7}).ok());
  EXPECT_FALSE(requireRange(dataset.layout, {0, 1, 8}).ok());
  EXPECT_FALSE(requireRange(dataset.layout, {2, ~std::uint64_t{0}, 7}).ok());
}

TEST(RowReader, ChunksOutsideTheFileAreRefusedBeforeReading) {
  const TempDir folder;
  const std::string path = folder / "d.h5";
  writeObjects(path, [](OutputFile& output) {
    ObjectDataset& dataset = output.root().datasets["d"];
    dataset.value = {ObjectType::number(ScalarKind::UInt8), ObjectExtents::list(100), {}};
    dataset.storage = ObjectDataset::Storage::kChunks;
    dataset.chunkCounts = {50, 1};
    dataset.filter = {false, true, true};
    dataset.chunks = {{48, 60, 0}, {100000, 60, 0}};
  });
  EXPECT_THAT(describeDataset(openObjects(path, false), "/", "d").error(),
              HasSubstr("a chunk lies outside the file"));
}

TEST(RowReader, CoordinatesNeedColumnsOfIntegers) {
  const TempDir folder;
  const WrittenDataset dataset(folder, PropertyHandle(H5Pcreate(H5P_DATASET_CREATE)));
  std::vector<double> xyz(9);
  EXPECT_FALSE(readGridRows(dataset.layout, dataset.opened.descriptor.get(), {0, 3, 3},
                            CoordinateGrid{}, xyz)
                   .ok());
  std::array<std::vector<std::int32_t>, 3> columns;
  for (auto& column : columns) column.resize(3);
  EXPECT_FALSE(readGridColumns(dataset.layout, dataset.opened.descriptor.get(), {0, 3, 3},
                               {columns[0], columns[1], columns[2]})
                   .ok());
}

}  // namespace
}  // namespace Fiber::Container
