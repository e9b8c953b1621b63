// SPDX-License-Identifier: Apache-2.0
//
// A bundle file is there whole or not at all, whatever ends its saving.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "datamodel/container/AtomicFile.hpp"
#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/ModelCompare.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;
using MemCore::makeStrong;
using MemCore::StrongPtr;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// Points that do not compress: every byte has to be written.
CloudBuilder noisyCloud(std::size_t count) {
  CloudBuilder cloud;
  std::vector<Point> points(count);
  std::uint64_t state = 1;
  for (Point& p : points) {
    for (double* value : {&p.x, &p.y, &p.z}) {
      state = state * 6364136223846793005U + 1442695040888963407U;
      *value = static_cast<double>(state) * 1e-9;
    }
  }
  cloud.fragment(points);
  return cloud;
}

/// A creator whose data cannot be had; asked for them, it may end the process.
class BrokenCreator final : public CreativeArrayBase {
 public:
  explicit BrokenCreator(bool kills)
      : CreativeArrayBase({FiberTypeBase::find(typeid(double)), DynamicSize{10}, nullptr, {}}),
        kills_(kills) {}

 protected:
  MemCore::Outcome<StrongPtr<MemBase>> create() override {
    if (kills_) ::raise(SIGKILL);
    return MemCore::Failure{"scan.laz: the point data are damaged"};
  }

 private:
  bool kills_;
};

/// A cloud of two fragments, the second without readable times.
CloudBuilder brokenCloud(bool kills) {
  CloudBuilder cloud = noisyCloud(10);
  cloud.field<double>("GpsTime", std::vector<double>(10, 1.0)).fragment(std::vector<Point>(10));
  const auto times = fieldOf(*cloud.bundle(), "GpsTime");
  times->setCreator(times->getFragmentIDs().back(), makeStrong<BrokenCreator>(kills));
  return cloud;
}

class SayingNo final : public MemCore::LoaderProgress {
 public:
  bool report(const std::string& text, std::uint64_t current, std::uint64_t total) override {
    EXPECT_EQ(text, "Saving");
    EXPECT_LE(current, total);
    return false;
  }
};

class AtomicSave : public testing::TestWithParam<StorageKind> {};

TEST_P(AtomicSave, FailureOfTheSourceKeepsTheOldFile) {
  const TempDir folder;
  replaceFile(folder / "a.f5", "old");
  const auto saved =
      brokenCloud(false).bundle()->save(folder / "a.f5", nullptr, stored(GetParam()));
  ASSERT_FALSE(saved.ok());
  EXPECT_THAT(saved.error(), AllOf(StartsWith(folder / "a.f5"), HasSubstr("field GpsTime"),
                                   HasSubstr("scan.laz: the point data are damaged")));
  EXPECT_EQ(contentsOf(folder / "a.f5"), "old");
  EXPECT_EQ(entryCount(folder.path()), 1);
}

TEST_P(AtomicSave, KilledSaveLeavesOnlyATemporary) {
  const TempDir folder;
  const pid_t child = ::fork();
  if (child == 0) {
    const auto ignored =
        brokenCloud(true).bundle()->save(folder / "a.f5", nullptr, stored(GetParam()));
    ::_exit(ignored.ok() ? 1 : 2);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_FALSE(std::filesystem::exists(folder / "a.f5"));
  EXPECT_EQ(entryCount(folder.path()), 1);
  EXPECT_EQ(*removeStaleTemporaries(folder.path().string()), 1);
}

TEST_P(AtomicSave, FullDiskIsATextAndLeavesNothing) {
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
  GTEST_SKIP() << "the OpenMP runtime of this build makes a larger file when it starts";
#endif
#endif
  const TempDir folder;
  const CloudBuilder cloud = noisyCloud(40000);
  for (const rlim_t limitBytes : {100U, 3000U, 50000U, 500000U}) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{limitBytes, limitBytes};
      ::setrlimit(RLIMIT_FSIZE, &limit);
      const auto saved = cloud.bundle()->save(folder / "a.f5", nullptr, stored(GetParam()));
      const bool told = !saved.ok() && saved.error().find("a.f5") != std::string::npos;
      ::exit(told ? 0 : 1);  // with all clean-up handlers: none of them may crash
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << limitBytes << " " << status;
    EXPECT_EQ(entryCount(folder.path()), 0);
  }
}

TEST_P(AtomicSave, InterruptionIsATextAndLeavesNothing) {
  const TempDir folder;
  const auto saved =
      noisyCloud(100).bundle()->save(folder / "a.f5", makeStrong<SayingNo>(), stored(GetParam()));
  ASSERT_FALSE(saved.ok());
  EXPECT_EQ(saved.error(), folder / "a.f5" + ": saving was interrupted");
  EXPECT_EQ(entryCount(folder.path()), 0);
}

TEST_P(AtomicSave, DurableSavesAreReadable) {
  const TempDir folder;
  const CloudBuilder cloud = noisyCloud(1000);
  const auto options = stored(GetParam());
  options->durable = true;
  ASSERT_TRUE(cloud.bundle()->save(folder / "a.f5", nullptr, options).ok());
  EXPECT_EQ(differenceOf(*cloud.bundle(), *loadBundle(folder / "a.f5")), "");
}

TEST_P(AtomicSave, ImpossibleTargetsAreTexts) {
  const TempDir folder;
  const CloudBuilder cloud = noisyCloud(10);
  EXPECT_FALSE(cloud.bundle()->save(folder / "no/such/a.f5", nullptr, stored(GetParam())).ok());
  EXPECT_FALSE(cloud.bundle()->save(folder.path().string(), nullptr, stored(GetParam())).ok());
  EXPECT_EQ(entryCount(folder.path()), 0);
}

INSTANTIATE_TEST_SUITE_P(AllKinds, AtomicSave,
                         testing::Values(StorageKind::Grid, StorageKind::Deflate,
                                         StorageKind::Raw));

TEST(AtomicSave, WhatCannotBeStoredIsRefusedByName) {
  const TempDir folder;
  CloudBuilder unknown = noisyCloud(10);
  unknown.currentGrid()->attributes().setAttribute("Odd",
                                                   makeStrong<MemCore::Chunk<long double>>(1));
  EXPECT_THAT(unknown.bundle()->save(folder / "a.f5", nullptr, nullptr).error(),
              HasSubstr("attribute Odd: cannot be stored"));

  CloudBuilder mixed = noisyCloud(10);
  mixed.field<float>("Mixed", std::vector<float>(10)).fragment(std::vector<Point>(10));
  mixed.field<double>("Mixed", std::vector<double>(10));
  EXPECT_THAT(mixed.bundle()->save(folder / "a.f5", nullptr, nullptr).error(),
              HasSubstr("found double of rank 1, expected float of rank 1"));
  EXPECT_EQ(entryCount(folder.path()), 0);
}

}  // namespace
}  // namespace Fiber::Container
