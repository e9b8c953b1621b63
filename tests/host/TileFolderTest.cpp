// SPDX-License-Identifier: Apache-2.0

#include "host/TileFolder.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/TempDir.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::TempDir;
namespace fs = std::filesystem;

TEST(TileFolder, TilesGoBesideTheOutputUnlessToldOtherwise) {
  const TempDir folder;
  const auto place = settleOutputPlace(folder / "scan.part.f5", "");
  ASSERT_TRUE(place.ok());
  EXPECT_EQ(place->file, folder / "scan.part.f5");
  EXPECT_EQ(place->directory, folder.path().string());
  EXPECT_EQ(place->tileFolder, folder / "scan.part");
  const auto elsewhere = settleOutputPlace(folder / "scan.f5", folder / "tiles/");
  EXPECT_EQ(elsewhere->directory, folder / "tiles");
  EXPECT_EQ(elsewhere->tileFolder, folder / "tiles/scan");
}

TEST(TileFolder, NamesThatCannotNameAFolderAreUsageMistakes) {
  for (const char* name : {"out", "out.las", ".f5", "...f5", "..f5", "a\\b.f5", "out.f5/", ""}) {
    const auto place = settleOutputPlace(name, "");
    ASSERT_FALSE(place.ok()) << name;
    EXPECT_EQ(place.stop().code, ExitCode::Usage) << name;
  }
}

TEST(TileFolder, FileInTheWayOfTheFolderIsAFailure) {
  const TempDir folder;
  std::ofstream(folder / "scan").flush();
  EXPECT_EQ(settleOutputPlace(folder / "scan.f5", "").stop().code, ExitCode::Failed);
  fs::create_directory(folder / "other.f5");
  EXPECT_EQ(settleOutputPlace(folder / "other.f5", "").stop().code, ExitCode::Failed);
}

TEST(TileFolder, FoldersAreMadeWithThoseAbove) {
  const TempDir folder;
  const auto place = settleOutputPlace(folder / "a/b/scan.f5", folder / "c/d");
  ASSERT_TRUE(makeFolders(*place).ok());
  EXPECT_TRUE(fs::is_directory(folder / "a/b"));
  EXPECT_TRUE(fs::is_directory(folder / "c/d/scan"));
  EXPECT_TRUE(makeFolders(*place).ok()) << "folders that are there are fine";
}

TEST(TileFolder, FolderBelowAFileIsAFailure) {
  const TempDir folder;
  std::ofstream(folder / "file").flush();
  const auto place = settleOutputPlace(folder / "file/scan.f5", "");
  ASSERT_TRUE(place.ok());
  const Check made = makeFolders(*place);
  ASSERT_FALSE(made.ok());
  EXPECT_EQ(made.stop().text.find(folder / "file"), 0U) << made.stop().text;
}

TEST(TileFolder, TileFileNamesAreRecognised) {
  EXPECT_TRUE(isTileFileName("F3x0x12T0.000000Gscan.f5"));
  EXPECT_TRUE(isTileFileName("F0x0x0T-1.500000GGrid.part.f5"));
  for (const char* name :
       {"plan.json", "F3x0T0.000000Gscan.f5", "F3x0x12T0.000000G.f5", "F3x0x12Gscan.f5",
        "F3x0x12T0.000000Gscan.f5.tmp.12.0", "xF3x0x12T0.0Gscan.f5", "F3x0x12TGscan.f5", ""}) {
    EXPECT_FALSE(isTileFileName(name)) << name;
  }
}

TEST(TileFolder, OnlyTilesAreListed) {
  const TempDir folder;
  for (const char* name : {"F1x0x0T0.000000Ga.f5", "F0x0x0T0.000000Ga.f5", "plan.json"}) {
    std::ofstream(folder / name).flush();
  }
  EXPECT_EQ(listTileFiles(folder.path().string()),
            (std::vector<std::string>{"F0x0x0T0.000000Ga.f5", "F1x0x0T0.000000Ga.f5"}));
  EXPECT_TRUE(listTileFiles(folder / "none").empty());
}

TEST(TileFolder, WorkingFolderIsLeftAgain) {
  const TempDir folder;
  const fs::path before = fs::current_path();
  {
    const auto inside = WorkingFolder::enter(folder.path().string());
    ASSERT_TRUE(inside.ok());
    EXPECT_TRUE(fs::equivalent(fs::current_path(), folder.path()));
  }
  EXPECT_EQ(fs::current_path(), before);
  EXPECT_FALSE(WorkingFolder::enter(folder / "none").ok());
  EXPECT_EQ(fs::current_path(), before);
}

}  // namespace
}  // namespace Host
