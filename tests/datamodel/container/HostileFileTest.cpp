// SPDX-License-Identifier: Apache-2.0
//
// Files that are well-formed for the container library but say things that no bundle says.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <limits>

#include "datamodel/container/FragmentTableStorage.hpp"
#include "datamodel/container/SourceFile.hpp"
#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/Hdf5Writing.hpp"
#include "tests/datamodel/container/ModelCompare.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kGroup = "/0/points/skeleton_3_0/StandardCartesianChart3D";
const std::string kTable = std::string(kGroup) + "/fragments";
constexpr std::size_t kWide = 0;  ///< no field of the test cloud has rank 2

class HostileFile : public testing::Test {
 protected:
  void SetUp() override {
    CloudBuilder cloud;
    cloud.fragment(std::vector<Point>(10, {1, 2, 3})).field("GpsTime", std::vector<double>(10, 5));
    cloud.fragment(std::vector<Point>(20, {4, 5, 6})).field("GpsTime", std::vector<double>(20, 6));
    saveTo(file_, cloud.bundle());
  }

  /// Changes the file through the library, then loads it and gives the failure.
  template <class Change>
  std::string failureAfter(const Change& change) {
    {
      const Hdf5Lock lock;
      FileHandle file = openToChange(file_);
      change(file.get());
      EXPECT_TRUE(file.close("file").ok());
    }
    const std::string failure = loadFailure(file_);
    EXPECT_THAT(failure, StartsWith(file_));
    return failure;
  }

  /// Changes the fragment table; its checksum is right again afterwards.
  template <class Change>
  std::string failureAfterTable(const Change& change) {
    auto contents = tableOfFile();
    change(contents);
    return failureAfter([&](hid_t file) {
      const DatasetHandle table(H5Dopen2(file, kTable.c_str(), H5P_DEFAULT));
      const DatatypeHandle rows(H5Dget_type(table.get()));
      ASSERT_GE(H5Dwrite(table.get(), rows.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT,
                         contents.table.bytes().data()),
                0);
      putTexts(table.get(), "fields", contents.fieldNames);
      putNumber(table.get(), "crc32", checksumOf(contents.table));
    });
  }

  TableContents tableOfFile() {
    const auto file = ObjectFile::open(file_);
    EXPECT_TRUE(file.ok());
    auto contents = readFragmentTable(*file, *file->root().find(kGroup), kWide);
    EXPECT_TRUE(contents.ok()) << contents.error();
    return contents.ok() ? std::move(contents).value() : TableContents();
  }

  /// Puts another dataset in the place of the times.
  void replaceTimes(hid_t type, hid_t space, hid_t creation) {
    const Hdf5Lock lock;
    SourceFiles::instance().clear();
    const FileHandle file = openToChange(file_);
    const std::string path = std::string(kGroup) + "/GpsTime";
    ASSERT_GE(H5Ldelete(file.get(), path.c_str(), H5P_DEFAULT), 0);
    const DatasetHandle dataset(
        H5Dcreate2(file.get(), path.c_str(), type, space, H5P_DEFAULT, creation, H5P_DEFAULT));
    ASSERT_TRUE(dataset.ok()) << takeHdf5Error();
  }

  std::string failureOfTimes(hid_t type, hid_t space, hid_t creation) {
    replaceTimes(type, space, creation);
    return loadFailure(file_);
  }

  /// The failure when the times of the (loadable) file are asked for.
  std::string timesFailure() {
    SourceFiles::instance().clear();
    const BundlePtr bundle = loadBundle(file_);
    if (!bundle) return "";
    const CreatorHandle times = creatorOf(*bundle, "GpsTime");
    EXPECT_FALSE(bool(times->data()));
    return times->failure();
  }

  TempDir folder_;
  std::string file_ = folder_ / "a.f5";
};

TEST_F(HostileFile, OtherFilesAreNoBundles) {
  const std::string other = folder_ / "other";
  for (const std::string& contents : {std::string(), std::string("text"), std::string(5000, 'x'),
                                      contentsOf(file_).substr(0, 48)}) {
    replaceFile(other, contents);
    EXPECT_THAT(loadFailure(other), StartsWith(other + ": cannot be opened as a bundle file"));
  }
  EXPECT_THAT(loadFailure(folder_ / "none"), HasSubstr("No such file"));
  EXPECT_THAT(loadFailure(folder_.path().string()), HasSubstr("found a folder"));
  const std::string pipe = folder_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THAT(loadFailure(pipe), HasSubstr("found a pipe"));
}

TEST_F(HostileFile, ForeignFormatAndNewerVersionAreNamed) {
  EXPECT_THAT(failureAfter([](hid_t file) { putNumber(file, "format_version", 2U); }),
              HasSubstr("format version is not known, found 2, expected 1"));
  EXPECT_THAT(failureAfter([](hid_t file) { H5Adelete(file, "format"); }),
              HasSubstr("not a bundle file"));
}

TEST_F(HostileFile, BlockInFrontIsRefused) {
  const std::string shifted = folder_ / "shifted.f5";
  {
    const Hdf5Lock lock;
    const PropertyHandle creation(H5Pcreate(H5P_FILE_CREATE));
    H5Pset_userblock(creation.get(), 512);
    const FileHandle file(H5Fcreate(shifted.c_str(), H5F_ACC_TRUNC, creation.get(), H5P_DEFAULT));
    ASSERT_TRUE(file.ok());
  }
  EXPECT_THAT(loadFailure(shifted), HasSubstr("a foreign block precedes the data"));
}

TEST_F(HostileFile, GroupsThatContainEachOtherEnd) {
  EXPECT_THAT(
      failureAfter([](hid_t file) {
        ASSERT_GE(H5Lcreate_hard(file, "/0", file, "/0/points/loop", H5P_DEFAULT, H5P_DEFAULT), 0);
      }),
      HasSubstr("a group that was reached twice"));
}

TEST_F(HostileFile, LinksToOtherFilesAreNotFollowed) {
  EXPECT_THAT(failureAfter([](hid_t file) {
                const std::string path = std::string(kGroup) + "/GpsTime";
                ASSERT_GE(H5Ldelete(file, path.c_str(), H5P_DEFAULT), 0);
                ASSERT_GE(H5Lcreate_external("/etc/hostname", "/", file, path.c_str(), H5P_DEFAULT,
                                             H5P_DEFAULT),
                          0);
              }),
              HasSubstr("fragments: "));
}

TEST_F(HostileFile, TimeThatIsNoNumberIsRefused) {
  EXPECT_THAT(failureAfter([](hid_t file) {
                const GroupHandle slice(H5Gopen2(file, "/0", H5P_DEFAULT));
                putNumber(slice.get(), "time", std::numeric_limits<double>::quiet_NaN());
              }),
              HasSubstr("0: time: not a number"));
}

TEST_F(HostileFile, UnknownTypesAreNamed) {
  const Hdf5Lock lock;
  const hsize_t rows = 30;
  const DataspaceHandle space(H5Screate_simple(1, &rows, nullptr));
  EXPECT_THAT(failureOfTimes(H5T_STD_I32BE, space.get(), H5P_DEFAULT),
              HasSubstr("GpsTime: its numbers are of a type that bundle files do not use"));
  const DatatypeHandle text = fixedText(8);
  EXPECT_THAT(failureOfTimes(text.get(), space.get(), H5P_DEFAULT), HasSubstr("GpsTime"));
  EXPECT_THAT(failureAfter([](hid_t file) {
                const std::string path = std::string(kGroup) + "/GpsTime";
                const DatasetHandle dataset(H5Dopen2(file, path.c_str(), H5P_DEFAULT));
                putText(dataset.get(), "element_type", "quaternion");
              }),
              HasSubstr("quaternion"));
}

TEST_F(HostileFile, WrongRanksAreRefused) {
  const Hdf5Lock lock;
  const std::array<hsize_t, 3> extents = {30, 2, 2};
  const DataspaceHandle cube(H5Screate_simple(3, extents.data(), nullptr));
  EXPECT_THAT(failureOfTimes(H5T_IEEE_F64LE, cube.get(), H5P_DEFAULT),
              HasSubstr("wrong number of dimensions, found 3"));
  EXPECT_THAT(
      failureAfter([](hid_t file) {
        const GroupHandle group(H5Gopen2(file, kGroup, H5P_DEFAULT));
        ASSERT_GE(H5Ldelete(group.get(), "GpsTime", H5P_DEFAULT), 0);
        const hsize_t rows = 30;
        const DataspaceHandle space(H5Screate_simple(1, &rows, nullptr));
        const DatasetHandle dataset(H5Dcreate2(group.get(), "GpsTime", H5T_IEEE_F64LE, space.get(),
                                               H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
        putNumber(dataset.get(), "rank", 9U);
      }),
      HasSubstr("wrong rank, found 9"));
}

TEST_F(HostileFile, RowsBeyondTheDatasetAreRefused) {
  EXPECT_THAT(failureAfterTable([](TableContents& contents) {
                contents.table.set<std::uint64_t>(1, Column::kPointCount, 21);
              }),
              HasSubstr("row 1: field GpsTime ends beyond its dataset"));
  EXPECT_THAT(failureAfterTable([](TableContents& contents) {
                contents.table.set<std::uint64_t>(1, Column::kPointCount, 20);
                contents.table.set<std::uint64_t>(0, Column::kStart,
                                                  std::numeric_limits<std::uint64_t>::max());
              }),
              HasSubstr("row 0: "));
  EXPECT_THAT(failureAfterTable([](TableContents& contents) {
                contents.table.set<std::uint64_t>(0, Column::kStart, 0);
                contents.table.set<std::uint64_t>(0, Column::kPointCount, std::uint64_t{1} << 60U);
              }),
              HasSubstr("row 0: field GpsTime claims impossible extents"));
}

TEST_F(HostileFile, FragmentsMustDiffer) {
  EXPECT_THAT(failureAfterTable([](TableContents& contents) {
                contents.table.set<std::uint32_t>(1, Column::kNumber, 0);
              }),
              HasSubstr("row 1: its number is taken"));
  EXPECT_THAT(failureAfterTable([](TableContents& contents) {
                contents.table.set<std::uint32_t>(1, Column::kNumber, 1);
                contents.table.setText(1, Column::kName, "0");
              }),
              HasSubstr("row 1: its name is taken"));
}

TEST_F(HostileFile, TableOfOtherFieldsIsRefused) {
  EXPECT_THAT(
      failureAfterTable([](TableContents& contents) { contents.fieldNames[0] = "Intensity"; }),
      HasSubstr("fragments: its fields are not those of the group"));
}

TEST_F(HostileFile, ForeignTablesAreRefused) {
  const Hdf5Lock lock;
  const auto replaceTable = [&](const DatatypeHandle& type, hsize_t rows) {
    return failureAfter([&](hid_t file) {
      H5Ldelete(file, kTable.c_str(), H5P_DEFAULT);
      const DataspaceHandle space(H5Screate_simple(1, &rows, nullptr));
      const DatasetHandle table(H5Dcreate2(file, kTable.c_str(), type.get(), space.get(),
                                           H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
      putTexts(table.get(), "fields", {"GpsTime", "Positions"});
    });
  };
  DatatypeHandle rows;
  {
    const FileHandle file(H5Fopen(file_.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
    const DatasetHandle table(H5Dopen2(file.get(), kTable.c_str(), H5P_DEFAULT));
    rows = DatatypeHandle(H5Tcopy(table.get()));
  }
  EXPECT_THAT(replaceTable(DatatypeHandle(H5Tcopy(H5T_IEEE_F64LE)), 5),
              HasSubstr("fragments: no compound rows"));
  const DatatypeHandle point(H5Tcreate(H5T_COMPOUND, 24));
  H5Tinsert(point.get(), "x", 0, H5T_IEEE_F64LE);
  EXPECT_THAT(replaceTable(point, 5), HasSubstr("fragments: column"));
  EXPECT_THAT(replaceTable(rows, hsize_t{1} << 40U),
              HasSubstr("fragments: claims 1099511627776 rows"));
}

TEST_F(HostileFile, DatasetWithoutItsChunksIsNoticedBeforeAllocating) {
  const Hdf5Lock lock;
  const hsize_t rows = hsize_t{1} << 40U;
  for (const hsize_t chunk : {hsize_t{1}, hsize_t{65536}, hsize_t{1} << 28U}) {
    const DataspaceHandle space(H5Screate_simple(1, &rows, nullptr));
    const PropertyHandle creation = chunkedCreation({&chunk, 1}, {true, true, true});
    replaceTimes(H5T_IEEE_F64LE, space.get(), creation.get());
    EXPECT_THAT(timesFailure(), AllOf(HasSubstr("GpsTime"), HasSubstr("chunks")));
  }
}

TEST_F(HostileFile, PlaceholderStoragesAreRefused) {
  const Hdf5Lock lock;
  const hsize_t rows = 30;
  const DataspaceHandle space(H5Screate_simple(1, &rows, nullptr));
  const PropertyHandle elsewhere(H5Pcreate(H5P_DATASET_CREATE));
  H5Pset_external(elsewhere.get(), "/etc/passwd", 0, 30 * sizeof(double));
  replaceTimes(H5T_IEEE_F64LE, space.get(), elsewhere.get());
  EXPECT_THAT(timesFailure(), HasSubstr("its values lie in another file"));
  const PropertyHandle compact(H5Pcreate(H5P_DATASET_CREATE));
  H5Pset_layout(compact.get(), H5D_COMPACT);
  replaceTimes(H5T_IEEE_F64LE, space.get(), compact.get());
  EXPECT_THAT(timesFailure(), HasSubstr("stored in a way that bundle files do not use"));
  const PropertyHandle foreign = chunkedCreation({&rows, 1}, {});
  H5Pset_scaleoffset(foreign.get(), H5Z_SO_FLOAT_DSCALE, 2);
  replaceTimes(H5T_IEEE_F64LE, space.get(), foreign.get());
  EXPECT_THAT(timesFailure(), HasSubstr("a filter that bundle files do not use"));
}

}  // namespace
}  // namespace Fiber::Container
