// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/RecordSpill.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <vector>

#include "tests/support/FileSizeLimit.hpp"
#include "tests/support/NamelessFiles.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::cutNamelessFiles;
using LidarLib::TestSupport::FileSizeLimit;
using LidarLib::TestSupport::TempDir;

constexpr std::uint64_t kAll = 1000;

std::vector<std::byte> bytesOf(unsigned char value, std::size_t count) {
  return std::vector<std::byte>(count, std::byte{value});
}

}  // namespace

TEST(RecordSpill, GivesBackWhatWasWrittenAtItsPlace) {
  const TempDir folder;
  const auto spill = RecordSpill::make(folder.path().string(), kAll);
  ASSERT_TRUE(spill.ok()) << spill.error();
  EXPECT_TRUE((*spill)->write(500, bytesOf(5, 100)));
  EXPECT_TRUE((*spill)->write(0, bytesOf(1, 100)));
  std::vector<std::byte> read(60);
  EXPECT_TRUE((*spill)->read(520, read));
  EXPECT_EQ(read, bytesOf(5, 60));
  EXPECT_TRUE((*spill)->read(40, read));
  EXPECT_EQ(read, bytesOf(1, 60));
  EXPECT_EQ((*spill)->failure(), "");
}

TEST(RecordSpill, OneThatCannotBeReadIsGivenUp) {
  const TempDir folder;
  const auto spill = RecordSpill::make(folder.path().string(), kAll);
  ASSERT_TRUE(spill.ok()) << spill.error();
  EXPECT_TRUE((*spill)->write(0, bytesOf(1, 100)));
  ASSERT_EQ(cutNamelessFiles(folder), 1);
  std::vector<std::byte> read(60);
  EXPECT_FALSE((*spill)->read(0, read));
  EXPECT_THAT((*spill)->failure(), testing::HasSubstr("Input/output error"));
  EXPECT_FALSE((*spill)->write(0, bytesOf(1, 100)));
  EXPECT_FALSE((*spill)->read(0, read));
}

TEST(RecordSpill, FolderShowsNothingOfIt) {
  const TempDir folder;
  const auto spill = RecordSpill::make(folder.path().string(), kAll);
  ASSERT_TRUE(spill.ok()) << spill.error();
  EXPECT_TRUE((*spill)->write(0, bytesOf(1, 100)));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(RecordSpill, FolderThatIsNotThereIsNamed) {
  const TempDir folder;
  const auto spill = RecordSpill::make(folder / "absent", kAll);
  ASSERT_FALSE(spill.ok());
  EXPECT_THAT(spill.error(), testing::StartsWith((folder / "absent") + ": decoded points cannot"));
}

TEST(RecordSpill, LeavesRoomForTheOutput) {
  const TempDir folder;
  const std::uint64_t room = std::filesystem::space(folder.path()).available;
  const auto spill = RecordSpill::make(folder.path().string(), room - room / 4);
  ASSERT_FALSE(spill.ok());
  EXPECT_THAT(spill.error(), testing::HasSubstr("found room for"));
}

TEST(RecordSpill, IsGivenUpAsAWholeWhereItCannotGrow) {
  const TempDir folder;
  const auto spill = RecordSpill::make(folder.path().string(), kAll);
  ASSERT_TRUE(spill.ok()) << spill.error();
  const FileSizeLimit limit(200);
  EXPECT_TRUE((*spill)->write(0, bytesOf(1, 100)));
  EXPECT_FALSE((*spill)->write(100, bytesOf(2, 200)));
  EXPECT_FALSE((*spill)->write(0, bytesOf(1, 10)));
  std::vector<std::byte> read(10);
  EXPECT_FALSE((*spill)->read(0, read));
  EXPECT_THAT((*spill)->failure(), testing::HasSubstr("File too large"));
}

TEST(RecordSpill, BytesThatWereNeverWrittenAreNotThere) {
  const TempDir folder;
  const auto spill = RecordSpill::make(folder.path().string(), kAll);
  ASSERT_TRUE(spill.ok()) << spill.error();
  EXPECT_TRUE((*spill)->write(0, bytesOf(1, 100)));
  std::vector<std::byte> read(60);
  EXPECT_FALSE((*spill)->read(80, read));
}

}  // namespace Formats
