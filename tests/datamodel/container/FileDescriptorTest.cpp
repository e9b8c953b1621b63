// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FileDescriptor.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <limits>

#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(FileDescriptor, WholeReadsAndWritesAtOffsets) {
  const TempDir folder;
  const std::string path = folder / "data";
  const FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT, 0600));
  const std::array<std::byte, 3> written = {std::byte{1}, std::byte{2}, std::byte{3}};
  ASSERT_TRUE(writeAt(file.get(), 5, written, path).ok());
  std::array<std::byte, 8> read{};
  ASSERT_TRUE(readAt(file.get(), 0, read, path).ok());
  EXPECT_EQ(read[4], std::byte{0});
  EXPECT_EQ(read[5], std::byte{1});
  EXPECT_EQ(read[7], std::byte{3});
}

TEST(FileDescriptor, ReadingPastTheEndIsAText) {
  const TempDir folder;
  const std::string path = folder / "short";
  std::ofstream(path) << "abc";
  const auto opened = openRegularFile(path);
  ASSERT_TRUE(opened.ok());
  EXPECT_EQ(opened->stamp.sizeBytes, 3U);
  std::array<std::byte, 4> bytes{};
  EXPECT_EQ(readAt(opened->descriptor.get(), 1, bytes, "short").error(),
            "short: the file ends too early, found nothing at offset 3, expected 2 bytes more");
  const auto absurd = readAt(opened->descriptor.get(),
                             std::numeric_limits<std::uint64_t>::max() - 1, bytes, "short");
  EXPECT_THAT(absurd.error(), HasSubstr("impossible file offset"));
}

TEST(FileDescriptor, OnlyRegularFilesOpen) {
  const TempDir folder;
  EXPECT_THAT(openRegularFile(folder.path().string()).error(), HasSubstr("found a folder"));
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THAT(openRegularFile(pipe).error(), HasSubstr("found a pipe"));
  EXPECT_THAT(stampOf(pipe).error(), HasSubstr("found a pipe"));
  const std::string loop = folder / "loop";
  std::filesystem::create_symlink(loop, loop);
  EXPECT_THAT(openRegularFile(loop).error(), StartsWith(loop + ": cannot be opened"));
  EXPECT_THAT(openRegularFile("/dev/null").error(), HasSubstr("found a device"));
  EXPECT_THAT(openRegularFile(folder / "missing").error(), HasSubstr("No such file"));
}

TEST(FileDescriptor, StampTellsAChangedFile) {
  const TempDir folder;
  const std::string path = folder / "file";
  std::ofstream(path) << "abc";
  const auto before = stampOf(path);
  ASSERT_TRUE(before.ok());
  EXPECT_EQ(*before, *stampOf(path));
  std::ofstream(path) << "abcd";
  EXPECT_NE(*before, *stampOf(path));
}

TEST(FileDescriptor, WritingToAReadOnlyDescriptorIsAText) {
  const TempDir folder;
  const std::string path = folder / "readonly";
  std::ofstream(path) << "abc";
  const auto opened = openRegularFile(path);
  ASSERT_TRUE(opened.ok());
  const std::array<std::byte, 2> bytes{};
  EXPECT_THAT(writeAt(opened->descriptor.get(), 0, bytes, "readonly").error(),
              StartsWith("readonly: cannot write 2 bytes at offset 0"));
}

}  // namespace
}  // namespace Fiber::Container
