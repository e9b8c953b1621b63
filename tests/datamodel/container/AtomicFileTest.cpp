// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/AtomicFile.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;

using ::testing::HasSubstr;
using ::testing::StartsWith;

MemCore::Outcome<void> put(const AtomicFile& file, std::string_view text) {
  return writeAt(file.descriptor(), 0, std::as_bytes(std::span(text)), file.targetPath());
}

/// Runs `body` in a child process that then ends without any clean-up, as a killed one would.
template <class Body>
int runInChild(Body body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// The number of a process that has ended.
pid_t deadProcess() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return child;
}

void makeFile(const std::string& path) { std::ofstream(path) << "left over"; }

TEST(AtomicFile, AppearsUnderItsNameOnlyWhenCommitted) {
  const TempDir folder;
  for (const Durability durability : {Durability::kSynced, Durability::kUnsynced}) {
    const std::string target = folder / "tile.f5";
    makeFile(target);
    auto file = AtomicFile::make(target);
    ASSERT_TRUE(file.ok()) << file.error();
    ASSERT_TRUE(put(*file, "new").ok());
    EXPECT_EQ(contentsOf(target), "left over");
    ASSERT_TRUE(file->commit(durability).ok());
    EXPECT_EQ(contentsOf(target), "new");
    EXPECT_EQ(entryCount(folder.path()), 1);
  }
  EXPECT_TRUE(syncFolder(folder / "tile.f5").ok());
  EXPECT_TRUE(syncFolder(folder.path().string()).ok());
}

TEST(AtomicFile, DestroyedWithoutCommitLeavesNothing) {
  const TempDir folder;
  {
    auto file = AtomicFile::make(folder / "tile.f5");
    ASSERT_TRUE(file.ok());
    EXPECT_EQ(entryCount(folder.path()), 1);
    const AtomicFile moved = std::move(*file);
    EXPECT_EQ(entryCount(folder.path()), 1);
  }
  EXPECT_EQ(entryCount(folder.path()), 0);
}

TEST(AtomicFile, TwoOfOneTargetDoNotMeet) {
  const TempDir folder;
  auto first = AtomicFile::make(folder / "tile.f5");
  auto second = AtomicFile::make(folder / "tile.f5");
  ASSERT_TRUE(first.ok() && second.ok());
  EXPECT_NE(first->temporaryPath(), second->temporaryPath());
}

TEST(AtomicFile, ImpossibleTargetsAreTexts) {
  const TempDir folder;
  EXPECT_THAT(AtomicFile::make(folder / "no/such/tile.f5").error(), HasSubstr("No such file"));
  EXPECT_THAT(AtomicFile::make(folder / std::string(300, 'n')).error(),
              HasSubstr("File name too long"));
  std::filesystem::create_directories(folder / "taken/inside");
  auto file = AtomicFile::make(folder / "taken");
  ASSERT_TRUE(file.ok());
  EXPECT_THAT(file->commit().error(), HasSubstr("taken: cannot take its name"));
  EXPECT_EQ(entryCount(folder.path()), 1);
}

TEST(AtomicFile, UnwritableFolderIsAText) {
  const TempDir folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 0500), 0);
  constexpr uid_t kNobody = 65534;
  const std::string target = folder / "tile.f5";
  const int code = runInChild([&] {
    // The superuser may write everywhere.
    if (::geteuid() == 0 && ::setuid(kNobody) != 0) return 77;
    const auto file = AtomicFile::make(target);
    return !file.ok() && file.error().find("Permission denied") != std::string::npos ? 0 : 1;
  });
  ::chmod(folder.path().c_str(), 0700);
  if (code == 77) GTEST_SKIP() << "cannot give up the superuser's rights here";
  EXPECT_EQ(code, 0);
}

TEST(AtomicFile, FullDiskIsATextAndLeavesNothing) {
  const TempDir folder;
  const std::string target = folder / "tile.f5";
  const int code = runInChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4096, 4096};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    const auto file = AtomicFile::make(target);
    if (!file.ok()) return 3;
    const auto written = put(*file, std::string(10000, 'x'));
    return !written.ok() && written.error().find("cannot write") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(code, 0);
  EXPECT_EQ(entryCount(folder.path()), 0);
}

TEST(AtomicFile, KilledWriterLeavesOnlyATemporaryWhichIsRemoved) {
  const TempDir folder;
  const std::string target = folder / "tile.f5";
  EXPECT_EQ(runInChild([&] {
              const auto file = AtomicFile::make(target);
              if (!file.ok() || !put(*file, "half").ok()) return 1;
              ::_exit(0);
            }),
            0);
  EXPECT_FALSE(std::filesystem::exists(target));
  EXPECT_EQ(entryCount(folder.path()), 1);
  const auto removed = removeStaleTemporaries(folder.path().string());
  ASSERT_TRUE(removed.ok());
  EXPECT_EQ(*removed, 1);
  EXPECT_EQ(entryCount(folder.path()), 0);
}

TEST(AtomicFile, LivingWritersKeepTheirTemporaries) {
  const TempDir folder;
  const auto own = AtomicFile::make(folder / "own.f5");
  ASSERT_TRUE(own.ok());
  makeFile(folder / ("parent.tmp." + std::to_string(::getppid()) + ".0"));
  EXPECT_EQ(*removeStaleTemporaries(folder.path().string()), 0);
  EXPECT_EQ(entryCount(folder.path()), 2);
}

TEST(AtomicFile, LockedTemporaryOfAnotherMachineStays) {
  const TempDir folder;
  const std::string path = folder / ("tile.f5.tmp." + std::to_string(deadProcess()) + ".3");
  makeFile(path);
  {
    const auto rename = AtomicFile::make(folder / "other.f5");
    ASSERT_TRUE(rename.ok());
    std::filesystem::rename(rename->temporaryPath(), path);  // a locked file, a dead number
    EXPECT_EQ(*removeStaleTemporaries(folder.path().string()), 0);
  }
  EXPECT_EQ(*removeStaleTemporaries(folder.path().string()), 1);
}

TEST(AtomicFile, ReusedProcessNumberDoesNotKeepAnOlderFile) {
  const TempDir folder;
  const std::string path = folder / ("tile.f5.tmp." + std::to_string(::getpid()) + ".999999");
  makeFile(path);
  const timespec longAgo[2] = {{1000000, 0}, {1000000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), longAgo, 0), 0);
  EXPECT_EQ(*removeStaleTemporaries(folder.path().string()), 1);
}

TEST(AtomicFile, OtherNamesAreLeftAlone) {
  const TempDir folder;
  const std::string dead = std::to_string(deadProcess());
  for (const std::string name :
       {"tile.f5", "a.tmp", "a.tmp.x.1", "a.tmp.12", "a.tmp.-5.1", "a.tmp.0.1", "b.tmp.99.1x"}) {
    makeFile(folder / name);
  }
  makeFile(folder / (".tmp." + dead + ".1"));
  std::filesystem::create_directory(folder / ("dir.tmp." + dead + ".1"));
  EXPECT_EQ(*removeStaleTemporaries(folder.path().string()), 0);
  EXPECT_EQ(entryCount(folder.path()), 9);
  EXPECT_THAT(removeStaleTemporaries(folder / "none").error(), HasSubstr("cannot read the folder"));
}

}  // namespace
}  // namespace Fiber::Container
