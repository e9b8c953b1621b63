// SPDX-License-Identifier: Apache-2.0
//
// Writing a bundle in batches: chunks of one go into the file while the next is encoded.

#include <gmock/gmock.h>
#include <omp.h>

#include <filesystem>

#include "datamodel/container/AtomicFile.hpp"
#include "datamodel/container/BundleWriter.hpp"
#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/GridSteps.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/FileSizeLimit.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::FileSizeLimit;
using LidarLib::TestSupport::TempDir;
using testing::HasSubstr;
using testing::StartsWith;

/// Each fragment is a batch of its own.
constexpr BatchSizes kFragmentByFragment{1, 0};
constexpr std::uint64_t kFragments = 4;

CloudBuilder cloudOfFragments() {
  CloudBuilder cloud;
  for (std::uint64_t f = 0; f < kFragments; ++f) {
    std::vector<Eagle::PhysicalSpace::point> points(5000);
    std::uint64_t state = f;
    for (auto& p : points) {
      state = state * 6364136223846793005U + 1442695040888963407U;
      p = {static_cast<double>(state >> 40U), static_cast<double>(f), 0.0};
    }
    cloud.fragment(points);
  }
  return cloud;
}

/// Writes fragment by fragment into the file; the failure, or nothing.
std::string failureOfWriting(const CloudBuilder& cloud, const std::string& file,
                             const SaveProgress& progress) {
  auto plan = planBundle(*cloud.bundle(), file, true);
  auto output = AtomicFile::make(file);
  if (!plan.ok() || !output.ok()) return "not begun";
  const auto written =
      writeBundle(*plan, {output->descriptor(), StorageKind::Grid, kFragmentByFragment}, progress);
  return written.ok() ? std::string() : written.error();
}

// Chunks below each other share codes, but only within a group: how many groups are encoded at once
// depends on the number of threads.
TEST(BatchedWriting, FilesAreTheSameForAnyNumberOfThreads) {
  constexpr std::size_t kPoints = 100000;  // two chunks of each column
  constexpr BatchSizes kFiveFragments{std::uint64_t{10} << 20U, std::uint64_t{10} << 20U};
  CloudBuilder cloud;
  for (std::size_t f = 0; f < 12; ++f) {
    std::vector<unsigned short> intensity(kPoints);
    for (std::size_t i = 0; i < kPoints; ++i) {
      intensity[i] = static_cast<unsigned short>((i * i * 31 >> 5U) % (60 + 9 * f));
    }
    cloud.fragment(gridPoints(kPoints, 0.01, 100, f)).field("Intensity", intensity);
  }
  const TempDir folder;
  const int formerThreads = omp_get_max_threads();
  for (const int threads : {1, 2, 5}) {
    omp_set_num_threads(threads);
    const std::string file = folder / std::to_string(threads);
    EXPECT_EQ(writeInBatches(cloud.bundle(), file, StorageKind::Grid, kFiveFragments), 1);
  }
  omp_set_num_threads(formerThreads);
  EXPECT_TRUE(contentsOf(folder / "1") == contentsOf(folder / "2"));
  EXPECT_TRUE(contentsOf(folder / "1") == contentsOf(folder / "5"));
  expectRoundTrip(cloud.bundle(), folder / "5");
}

TEST(BatchedWriting, TellsWhatIsDoneAfterEachBatch) {
  const TempDir folder;
  std::vector<std::uint64_t> told;
  const auto listen = [&](std::uint64_t done, std::uint64_t total) {
    EXPECT_EQ(total, kFragments);
    told.push_back(done);
    return true;
  };
  EXPECT_EQ(failureOfWriting(cloudOfFragments(), folder / "a.f5", listen), "");
  EXPECT_THAT(told, testing::ElementsAre(1, 2, 3, 4));
}

// The disk is full for as long as one batch takes: the chunks that meet it belong to the one
// before.
TEST(BatchedWriting, ChunksThatCannotBeWrittenWhileOthersAreEncodedAreMissed) {
  const FileSizeLimit limit;
  for (const std::uint64_t fullAfter : {1U, 2U, 3U}) {
    const TempDir folder;
    const auto listen = [&](std::uint64_t done, std::uint64_t) {
      if (done == fullAfter) {
        limit.set(100);
      } else {
        limit.lift();
      }
      return true;
    };
    const std::string failure = failureOfWriting(cloudOfFragments(), folder / "a.f5", listen);
    limit.lift();
    EXPECT_THAT(failure, StartsWith(folder / "a.f5" + ": ")) << fullAfter;
    EXPECT_THAT(failure, HasSubstr("File too large")) << fullAfter;
    EXPECT_TRUE(std::filesystem::is_empty(folder.path())) << fullAfter;
  }
}

}  // namespace
}  // namespace Fiber::Container
