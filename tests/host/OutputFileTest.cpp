// SPDX-License-Identifier: Apache-2.0

#include "host/OutputFile.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/TempDir.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::TempDir;
namespace fs = std::filesystem;

TEST(OutputFile, FolderAboveIsMade) {
  const TempDir folder;
  const auto path = prepareOutputFile(folder / "a/b/out.f5", {".f5"}, false);
  ASSERT_TRUE(path.ok());
  EXPECT_EQ(*path, folder / "a/b/out.f5");
  EXPECT_TRUE(fs::is_directory(folder / "a/b"));
}

TEST(OutputFile, ExistingFileNeedsForce) {
  const TempDir folder;
  std::ofstream(folder / "out.las").flush();
  const auto refused = prepareOutputFile(folder / "out.las", {".las"}, false);
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.stop().text, (folder / "out.las") + ": exists already; --force replaces it");
  EXPECT_TRUE(prepareOutputFile(folder / "out.las", {".las"}, true).ok());
}

TEST(OutputFile, OtherEndingIsAUsageMistake) {
  for (const char* name : {"out", "out.laz", ".f5", "out.f5x"}) {
    const auto path = prepareOutputFile(name, {".f5"}, false);
    ASSERT_FALSE(path.ok()) << name;
    EXPECT_EQ(path.stop().code, ExitCode::Usage);
  }
}

TEST(OutputFile, OneOfSeveralEndingsWillDo) {
  const TempDir folder;
  EXPECT_TRUE(prepareOutputFile(folder / "out.laz", {".las", ".laz"}, false).ok());
  const auto refused = prepareOutputFile("out.f5", {".las", ".laz"}, false);
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.stop().text,
            "--output: \"out.f5\" does not end in .las or .laz, expected a name such as out.las");
}

TEST(OutputFile, FolderOfThatNameIsAFailure) {
  const TempDir folder;
  fs::create_directory(folder / "out.f5");
  EXPECT_EQ(prepareOutputFile(folder / "out.f5", {".f5"}, true).stop().code, ExitCode::Failed);
}

TEST(OutputFile, PathBelowAFileIsAFailure) {
  const TempDir folder;
  std::ofstream(folder / "file").flush();
  EXPECT_EQ(prepareOutputFile(folder / "file/out.f5", {".f5"}, false).stop().code,
            ExitCode::Failed);
}

TEST(OutputFile, LeftoversOfDeadRunsAreRemoved) {
  const TempDir folder;
  // No process has a number beyond the kernel's largest.
  std::ofstream(folder / "out.f5.tmp.2000000000.0").flush();
  ASSERT_TRUE(prepareOutputFile(folder / "out.f5", {".f5"}, false).ok());
  EXPECT_FALSE(fs::exists(folder / "out.f5.tmp.2000000000.0"));
}

}  // namespace
}  // namespace Host
