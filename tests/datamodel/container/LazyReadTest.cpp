// SPDX-License-Identifier: Apache-2.0
//
// Point data are read when they are asked for, by as many threads as ask, and never before.

#include <gmock/gmock.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "datamodel/container/SourceFile.hpp"
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

/// The mark of point i of fragment k: the fragment in front, then noise made of the point.
std::uint64_t markOf(std::size_t k, std::size_t i) {
  std::uint64_t noise = (i + 1) * 0x9E3779B97F4A7C15U;
  noise ^= noise >> 31U;
  return (std::uint64_t{k} << 40U) + (noise & 0x7FFFFFU);
}

double coordinateOf(std::size_t k, std::size_t i) {
  return static_cast<double>(markOf(k, i) & 0x7FFFFFU) * 0.01;
}

/// Each value tells its fragment and point, so that data of others would show.
CloudBuilder markedCloud(std::size_t fragments, std::size_t points) {
  CloudBuilder cloud;
  for (std::size_t k = 0; k < fragments; ++k) {
    std::vector<Point> positions(points);
    std::vector<std::uint64_t> marks(points);
    for (std::size_t i = 0; i < points; ++i) {
      marks[i] = markOf(k, i);
      positions[i] = {coordinateOf(k, i), static_cast<double>(k), 0};
    }
    cloud.fragment(positions).field("Mark", marks);
  }
  return cloud;
}

/// Whether a fragment's two fields hold what markedCloud put there.
bool isMarked(const Bundle& bundle, std::size_t k) {
  const auto marks =
      MemCore::handleCast<MemArray<1, std::uint64_t>>(creatorOf(bundle, "Mark", k)->data());
  const auto points =
      MemCore::handleCast<MemArray<1, Point>>(creatorOf(bundle, "Positions", k)->data());
  if (!marks || !points) return false;
  for (std::size_t i = 0; i < marks->count(); ++i) {
    if ((*marks)[i] != markOf(k, i) || (*points)[i].x != coordinateOf(k, i)) return false;
  }
  return true;
}

class LazyRead : public testing::TestWithParam<StorageKind> {};

TEST_P(LazyRead, FactsAreKnownThoughAllPointDataAreDamaged) {
  const TempDir folder;
  const std::string file = folder / "a.f5";
  saveTo(file, markedCloud(3, 40000).bundle(), GetParam());
  // The point data make up almost the whole file; what describes them lies at its ends.
  std::string bytes = contentsOf(file);
  const std::size_t margin = 16000;
  ASSERT_GT(bytes.size(), 4 * margin);
  for (std::size_t i = margin; i < bytes.size() - margin; i += 100) bytes[i] ^= 0x5A;
  replaceFile(file, bytes);
  const BundlePtr bundle = loadBundle(file);
  ASSERT_TRUE(bool(bundle));
  for (std::size_t k = 0; k < 3; ++k) {
    const CreatorHandle positions = creatorOf(*bundle, "Positions", k);
    EXPECT_EQ(pointCountOf(*positions), 40000U);
    ASSERT_TRUE(bool(positions->facts().box));
    EXPECT_EQ(positions->facts().box->max().y, static_cast<double>(k));
    const auto range = creatorOf(*bundle, "Mark", k)->facts().range;
    ASSERT_TRUE(range.has_value());
    EXPECT_GE(range->min, static_cast<double>(std::uint64_t{k} << 40U));
    EXPECT_LT(range->max, static_cast<double>(std::uint64_t{k + 1} << 40U));
    EXPECT_FALSE(bool(positions->data())) << "damaged data were not noticed";
  }
}

TEST_P(LazyRead, LoadingOpensNothingAndReadsNoPoints) {
  const TempDir folder;
  saveTo(folder / "a.f5", markedCloud(2, 1000).bundle(), GetParam());
  SourceFiles::instance().clear();
  const BundlePtr bundle = loadBundle(folder / "a.f5");
  EXPECT_EQ(SourceFiles::instance().openCount(), 0U);
  EXPECT_FALSE(bool(creatorOf(*bundle, "Mark")->dataIfPresent()));
  EXPECT_TRUE(isMarked(*bundle, 0));
  EXPECT_EQ(SourceFiles::instance().openCount(), 1U);
  EXPECT_FALSE(bool(creatorOf(*bundle, "Mark", 1)->dataIfPresent()));
}

TEST_P(LazyRead, ManyThreadsReadOneFileAtOnce) {
  const TempDir folder;
  constexpr std::size_t kFragments = 24;
  saveTo(folder / "a.f5", markedCloud(kFragments, 3000).bundle(), GetParam());
  SourceFiles::instance().clear();
  const BundlePtr bundle = loadBundle(folder / "a.f5");
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (std::size_t t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (std::size_t i = 0; i < kFragments; ++i) {
        if (!isMarked(*bundle, (i * 5 + t * 7) % kFragments)) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST_P(LazyRead, ThreadsLoadSaveAndReadDifferentFilesAtOnce) {
  const TempDir folder;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(6);
  for (std::size_t t = 0; t < 6; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 4; ++i) {
        const std::string file = folder / (std::to_string(t) + "-" + std::to_string(i));
        saveTo(file, markedCloud(2, 500 + t).bundle(), GetParam());
        const BundlePtr bundle = loadBundle(file);
        if (!bundle || !isMarked(*bundle, 0) || !isMarked(*bundle, 1)) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST_P(LazyRead, EvictedDataAreReadAgain) {
  const TempDir folder;
  saveTo(folder / "a.f5", markedCloud(2, 1000).bundle(), GetParam());
  const BundlePtr bundle = loadBundle(folder / "a.f5");
  EXPECT_TRUE(isMarked(*bundle, 1));
  MemCore::Cache::MemCache()->clear();
  EXPECT_FALSE(bool(creatorOf(*bundle, "Mark", 1)->dataIfPresent()));
  EXPECT_TRUE(isMarked(*bundle, 1));
}

TEST_P(LazyRead, FewFilesStayOpenHoweverManyAreRead) {
  const TempDir folder;
  SourceFiles::instance().clear();
  std::vector<BundlePtr> bundles;
  for (std::size_t k = 0; k < SourceFiles::kMaxOpen + 20; ++k) {
    const std::string file = folder / std::to_string(k);
    saveTo(file, markedCloud(1, 10).bundle(), GetParam());
    bundles.push_back(loadBundle(file));
    EXPECT_TRUE(isMarked(*bundles.back(), 0));
  }
  EXPECT_EQ(SourceFiles::instance().openCount(), SourceFiles::kMaxOpen);
  MemCore::Cache::MemCache()->clear();
  for (const BundlePtr& bundle : bundles) EXPECT_TRUE(isMarked(*bundle, 0));
}

TEST_P(LazyRead, EagerLoadingNeedsTheFileNoMore) {
  const TempDir folder;
  const std::string file = folder / "a.f5";
  const CloudBuilder cloud = markedCloud(3, 700);
  saveTo(file, cloud.bundle(), GetParam());
  bool ok = false;
  const BundlePtr bundle = Bundle::load(
      ok, makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, true}), nullptr);
  ASSERT_TRUE(ok);
  std::filesystem::remove(file);
  SourceFiles::instance().clear();
  MemCore::Cache::MemCache()->clear();
  EXPECT_EQ(differenceOf(*cloud.bundle(), *bundle), "");
}

TEST_P(LazyRead, OpenFileIsReadThoughItsNameIsTakenByAnother) {
  const TempDir folder;
  const std::string file = folder / "a.f5";
  saveTo(file, markedCloud(2, 700).bundle(), GetParam());
  const BundlePtr bundle = loadBundle(file);
  EXPECT_TRUE(isMarked(*bundle, 0));
  saveTo(file, markedCloud(1, 5).bundle(), GetParam());
  EXPECT_TRUE(isMarked(*bundle, 1));
}

INSTANTIATE_TEST_SUITE_P(AllKinds, LazyRead,
                         testing::Values(StorageKind::Grid, StorageKind::Deflate,
                                         StorageKind::Raw));

TEST(LazyRead, SeveralFilesLoadIntoOneBundle) {
  const TempDir folder;
  CloudBuilder first = markedCloud(1, 5);
  CloudBuilder second;
  second.time(1.5).grid("other").fragment({{1, 2, 3}});
  saveTo(folder / "1.f5", first.bundle());
  saveTo(folder / "2.f5", second.bundle());
  bool ok = false;
  std::string failure;
  const auto load = [&](const std::vector<std::string>& files,
                        const MemCore::StrongPtr<Bundle>& into) {
    const auto parameters =
        makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{files, false});
    return Bundle::load(ok, parameters, into, &failure);
  };
  const BundlePtr both = load({folder / "1.f5", folder / "2.f5"}, nullptr);
  ASSERT_TRUE(ok) << failure;
  EXPECT_EQ(both->slices().size(), 2U);
  EXPECT_FALSE(bool(load({folder / "1.f5"}, both)));
  EXPECT_THAT(failure, testing::HasSubstr("grid points at time 0: the bundle has one"));
  EXPECT_FALSE(bool(load({}, nullptr)));
  EXPECT_EQ(failure, "bundle: no files to load");
}

}  // namespace
}  // namespace Fiber::Container
