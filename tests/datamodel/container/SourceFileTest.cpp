// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/SourceFile.hpp"

#include <gmock/gmock.h>

#include <filesystem>

#include "datamodel/container/BundleScan.hpp"
#include "datamodel/container/CanonicalPaths.hpp"
#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::TempDir;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kGroup = "/0/points/skeleton_3_0/StandardCartesianChart3D";

FileIdentity savedTile(const TempDir& folder, double z) {
  CloudBuilder cloud;
  cloud.fragment({{1, 2, z}});
  saveTo(folder / "tile.f5", cloud.bundle());
  const auto stored = scanBundle(folder / "tile.f5");
  EXPECT_TRUE(stored.ok());
  return stored.ok() ? stored->file : FileIdentity();
}

TEST(SourceFile, LayoutIsLearntOnce) {
  const TempDir folder;
  const auto file = SourceFile::open(savedTile(folder, 3));
  ASSERT_TRUE(file.ok()) << file.error();
  const auto first = (*file)->layout(kGroup, "Positions");
  ASSERT_TRUE(first.ok()) << first.error();
  EXPECT_EQ((*first)->rows, 1U);
  EXPECT_EQ((*first)->columns, 3U);
  EXPECT_EQ(*(*file)->layout(kGroup, "Positions"), *first);
}

TEST(SourceFile, MissingObjectsAreNamed) {
  const TempDir folder;
  const auto file = SourceFile::open(savedTile(folder, 3));
  ASSERT_TRUE(file.ok());
  EXPECT_THAT((*file)->layout(kGroup, "Intensity").error(),
              AllOf(StartsWith(folder / "tile.f5"), HasSubstr("Intensity: missing")));
  EXPECT_THAT((*file)->layout("/0/other", "Positions").error(),
              HasSubstr("/0/other/Positions: missing"));
  EXPECT_THAT((*file)->layout("/0", "points").error(), HasSubstr("/0/points: missing"));
}

TEST(SourceFile, OtherContentsAreNotTaken) {
  const TempDir folder;
  const FileIdentity first = savedTile(folder, 3);
  const FileIdentity second = savedTile(folder, 4);
  EXPECT_NE(first.contentId, second.contentId);
  EXPECT_FALSE(SourceFile::open(first).ok());
  EXPECT_TRUE(SourceFile::open(second).ok());
  FileIdentity longer = second;
  ++longer.sizeBytes;
  EXPECT_THAT(SourceFile::open(longer).error(), HasSubstr("has changed"));
}

TEST(SourceFile, RegistryKeepsOpenFiles) {
  const TempDir folder;
  SourceFiles::instance().clear();
  const FileIdentity identity = savedTile(folder, 3);
  const auto file = SourceFiles::instance().find(identity);
  ASSERT_TRUE(file.ok());
  EXPECT_EQ(*SourceFiles::instance().find(identity), *file);
  EXPECT_EQ(SourceFiles::instance().openCount(), 1U);
  std::filesystem::remove(identity.path);
  EXPECT_TRUE(SourceFiles::instance().find(identity).ok());
  SourceFiles::instance().clear();
  EXPECT_FALSE(SourceFiles::instance().find(identity).ok());
}

TEST(CanonicalPaths, SameFileHasOneForm) {
  const TempDir folder;
  std::filesystem::create_directory(folder / "real");
  std::filesystem::create_directory_symlink(folder / "real", folder / "link");
  CanonicalPaths paths;
  const auto expected = paths.of(folder / "real/a.f5");
  EXPECT_EQ(paths.of(folder / "link/a.f5"), expected);
  EXPECT_EQ(paths.of(folder / "real/../link/./a.f5"), expected);
  EXPECT_NE(paths.of(folder / "real/b.f5"), expected);
  EXPECT_TRUE(paths.of("a.f5").is_absolute());
  EXPECT_TRUE(paths.of("no such folder/a.f5").is_absolute());
}

}  // namespace
}  // namespace Fiber::Container
