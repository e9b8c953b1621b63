// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Hdf5Handle.hpp"

#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "datamodel/container/ChunkCodec.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

FileHandle createFile(const std::string& path) {
  const Hdf5Lock lock;
  auto file = ownHdf5<FileHandle>(H5Fcreate(path.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, H5P_DEFAULT),
                                  path + ": cannot be created");
  if (!file.ok()) ADD_FAILURE() << file.error();
  return file.ok() ? std::move(file).value() : FileHandle();
}

TEST(Hdf5Handle, FailureIsOneLineAndNotPrinted) {
  ::testing::internal::CaptureStderr();
  std::string text;
  {
    const Hdf5Lock lock;
    const auto file = ownHdf5<FileHandle>(H5Fopen("/no/such/file", H5F_ACC_RDONLY, H5P_DEFAULT),
                                          "/no/such/file: cannot be opened");
    ASSERT_FALSE(file.ok());
    text = file.error();
    EXPECT_EQ(takeHdf5Error(), "unknown HDF5 error") << "the stack was not emptied";
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(text, AllOf(StartsWith("/no/such/file: cannot be opened: "),
                          HasSubstr("No such file"), Not(HasSubstr("\n"))));
}

TEST(Hdf5Handle, TheHostsErrorPrintingReturnsAfterwards) {
  H5E_auto2_t before = nullptr;
  H5E_auto2_t after = nullptr;
  void* data = nullptr;
  H5Eget_auto2(H5E_DEFAULT, &before, &data);
  {
    const Hdf5Lock outer;
    const Hdf5Lock inner;
  }
  H5Eget_auto2(H5E_DEFAULT, &after, &data);
  EXPECT_EQ(before, after);
  EXPECT_NE(after, nullptr);
}

TEST(Hdf5Handle, MovedHandlesCloseOnce) {
  const TempDir folder;
  FileHandle first = createFile(folder / "a.f5");
  const hid_t id = first.get();
  FileHandle second = std::move(first);
  EXPECT_FALSE(first.ok());  // NOLINT(bugprone-use-after-move): an empty handle is the promise
  EXPECT_EQ(second.get(), id);
  EXPECT_TRUE(second.close("a.f5").ok());
  EXPECT_FALSE(second.ok());
  EXPECT_TRUE(second.close("a.f5").ok());
  const Hdf5Lock lock;
  EXPECT_EQ(H5Iis_valid(id), 0);
}

TEST(Hdf5Handle, LibraryReadsChunksThatWeEncoded) {
  const TempDir folder;
  constexpr hsize_t kRows = 1000;
  constexpr hsize_t kChunk = 256;
  std::vector<std::int32_t> values(kRows);
  std::iota(values.begin(), values.end(), -77);
  values.resize(4 * kChunk);
  std::mt19937 random(5);
  for (hsize_t i = kChunk; i < 2 * kChunk; ++i) {  // a chunk that deflate cannot shrink
    values[i] = static_cast<std::int32_t>(random());
  }

  const Hdf5Lock lock;
  const FileHandle file = createFile(folder / "chunks.f5");
  const PropertyHandle properties(H5Pcreate(H5P_DATASET_CREATE));
  ASSERT_GE(H5Pset_chunk(properties.get(), 1, &kChunk), 0);
  ASSERT_GE(H5Pset_shuffle(properties.get()), 0);
  ASSERT_GE(H5Pset_deflate(properties.get(), 1), 0);
  ASSERT_GE(H5Pset_fletcher32(properties.get()), 0);
  const DataspaceHandle space(H5Screate_simple(1, &kRows, nullptr));
  const DatasetHandle dataset(H5Dcreate2(file.get(), "v", H5T_STD_I32LE, space.get(), H5P_DEFAULT,
                                         properties.get(), H5P_DEFAULT));
  ChunkEncoder encoder;
  for (hsize_t start = 0; start < kRows; start += kChunk) {
    const auto chunk = encoder.encode(std::as_bytes(std::span(values).subspan(start, kChunk)), 4,
                                      {true, true, true});
    ASSERT_TRUE(chunk.ok());
    ASSERT_GE(H5Dwrite_chunk(dataset.get(), H5P_DEFAULT, 0, &start, chunk->bytes.size(),
                             chunk->bytes.data()),
              0);
  }
  std::vector<std::int32_t> back(kRows);
  ASSERT_GE(H5Dread(dataset.get(), H5T_NATIVE_INT32, H5S_ALL, H5S_ALL, H5P_DEFAULT, back.data()),
            0);
  EXPECT_TRUE(std::equal(back.begin(), back.end(), values.begin()));
}

TEST(Hdf5Handle, ThreadsTakeTurns) {
  const TempDir folder;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&folder, t] {
      for (int i = 0; i < 20; ++i) {
        const Hdf5Lock lock;
        FileHandle file = createFile(folder / (std::to_string(t) + "-" + std::to_string(i)));
        EXPECT_TRUE(file.close("file").ok());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(entryCount(folder.path()), 80);
}

}  // namespace
}  // namespace Fiber::Container
