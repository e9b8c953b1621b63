// SPDX-License-Identifier: Apache-2.0

#include "formats/export/RecordStore.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/TempDir.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::TempDir;
using testing::HasSubstr;

}  // namespace

TEST(RecordStore, BeginsWithZerosAndKeepsWhatIsWritten) {
  const TempDir folder;
  auto store = RecordStore::make(folder / "a.las", 100000);
  ASSERT_TRUE(store.ok()) << store.error();
  const auto bytes = store->bytes();
  ASSERT_EQ(bytes.size(), 100000U);
  EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](auto b) { return b == std::byte{0}; }));
  bytes[99999] = std::byte{7};
  EXPECT_EQ(std::as_const(*store).bytes()[99999], std::byte{7});
}

TEST(RecordStore, IsNotSeenInItsFolder) {
  const TempDir folder;
  const auto store = RecordStore::make(folder / "a.las", 5000);
  ASSERT_TRUE(store.ok()) << store.error();
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(RecordStore, CanBeHandedOn) {
  const TempDir folder;
  auto store = RecordStore::make(folder / "a.las", 10);
  ASSERT_TRUE(store.ok()) << store.error();
  store->bytes()[3] = std::byte{9};
  RecordStore other(std::move(*store));
  EXPECT_EQ(other.bytes()[3], std::byte{9});
  EXPECT_TRUE(store->bytes().empty());
}

TEST(RecordStore, NoBytesNeedNoFolder) {
  const auto store = RecordStore::make("/nowhere/a.las", 0);
  ASSERT_TRUE(store.ok()) << store.error();
  EXPECT_TRUE(store->bytes().empty());
}

TEST(RecordStore, FolderThatIsMissingIsNamed) {
  const TempDir folder;
  const auto store = RecordStore::make(folder / "none/a.las", 10);
  ASSERT_FALSE(store.ok());
  EXPECT_THAT(store.error(), HasSubstr("none/a.las: no room for 10 bytes of points in between: "));
}

TEST(RecordStore, MoreThanThereIsRoomForIsRefused) {
  const TempDir folder;
  const auto store = RecordStore::make(folder / "a.las", std::uint64_t{1} << 62U);
  ASSERT_FALSE(store.ok());
  EXPECT_THAT(store.error(), HasSubstr("a.las: no room for 4611686018427387904 bytes"));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

}  // namespace Formats
