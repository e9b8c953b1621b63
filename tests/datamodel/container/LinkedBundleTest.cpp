// SPDX-License-Identifier: Apache-2.0
//
// Bundles whose fragments lie in other bundle files.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

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
using MemCore::StrongPtr;
using ::testing::AllOf;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

/// Tile number `k` as a bundle: its points, times, and for even ones waveforms.
CloudBuilder tileOf(std::size_t k) {
  std::vector<Point> points;
  std::vector<double> times;
  for (std::size_t i = 0; i < 100 + 10 * k; ++i) {
    points.push_back({static_cast<double>(k) * 1000 + static_cast<double>(i), 5, 0.25});
    times.push_back(static_cast<double>(k) + static_cast<double>(i) / 7);
  }
  CloudBuilder cloud;
  cloud.grid("tile").fragment(points).field("GpsTime", times);
  const std::size_t samples = 2 + k;
  if (k % 2 == 0) {
    cloud.waveforms("Waveforms", samples, std::vector<unsigned short>(points.size() * samples, 7));
  }
  LidarLib::setCellSizeAttribute(*creatorOf(*cloud.bundle(), "Positions"), -1.0);
  return cloud;
}

/// Registers all creators of a tile at a place of a regularly fragmented grid.
void linkTile(Grid& grid, const Bundle& tile, const MultiIndex<3>& index) {
  const auto target = grid.makeCartesianRepresentation(3, "", 0);
  for (const char* name : {"Positions", "GpsTime", "Waveforms"}) {
    const CreatorHandle creator = creatorOf(tile, name);
    if (!creator) continue;
    if (!target->findField(name)) {
      target->setField(name, makeStrong<RegularlyFragmentedField<3>>(
                                 MultiIndex<3>{{3, 1, 2}}, "RegularFragment", target->fragments()));
    }
    const auto field = MemCore::handleCast<RegularlyFragmentedField<3>>(target->findField(name));
    field->setCreatorAt(index, creator);
  }
}

/// A folder with tile files in a sub-folder and a bundle linked to them.
class LinkedBundle : public testing::TestWithParam<StorageKind> {
 protected:
  void SetUp() override {
    fs::create_directory(folder_ / "tiles");
    const auto grid = (*linked_)[0.0]->newGrid("points");
    for (std::size_t k = 0; k < 4; ++k) {
      saveTo(tileFile(k), tileOf(k).bundle(), GetParam());
      linkTile(*grid, *loadBundle(tileFile(k)), {{k % 3, 0, k / 3}});
    }
    saveTo(linkedFile(), linked_, GetParam());
  }

  std::string tileFile(std::size_t k) const {
    return folder_ / ("tiles/F" + std::to_string(k) + ".f5");
  }
  std::string linkedFile() const { return folder_ / "linked.f5"; }

  TempDir folder_;
  BundlePtr linked_{new Bundle};
};

TEST_P(LinkedBundle, ReturnsAllDataFromTheTiles) {
  const BundlePtr back = loadBundle(linkedFile());
  ASSERT_TRUE(bool(back));
  EXPECT_EQ(differenceOf(*linked_, *back), "");
  EXPECT_EQ(pointCountOf(*creatorOf(*back, "GpsTime", 3)), 130U);
}

TEST_P(LinkedBundle, HoldsNoPointsOfItsOwn) {
  const auto bytes = fs::file_size(linkedFile());
  const BundlePtr back = loadBundle(linkedFile());
  const std::string copy = folder_ / "copy.f5";
  saveTo(copy, back, GetParam(), false);
  EXPECT_EQ(differenceOf(*linked_, *loadBundle(copy)), "");
  if (GetParam() == StorageKind::Raw) {  // the others compress these points to almost nothing
    EXPECT_GT(fs::file_size(copy), bytes + 400 * 32);
  }
  for (std::size_t k = 0; k < 4; ++k) fs::remove(tileFile(k));
  SourceFiles::instance().clear();
  EXPECT_TRUE(bool(creatorOf(*loadBundle(copy), "GpsTime")->data()));
  EXPECT_FALSE(bool(creatorOf(*loadBundle(linkedFile()), "GpsTime")->data()));
}

TEST_P(LinkedBundle, FactsNeedNoTile) {
  for (std::size_t k = 0; k < 4; ++k) fs::remove(tileFile(k));
  SourceFiles::instance().clear();
  const BundlePtr back = loadBundle(linkedFile());
  ASSERT_TRUE(bool(back));
  const CreatorHandle positions = creatorOf(*back, "Positions", 2);
  ASSERT_TRUE(bool(positions));
  EXPECT_EQ(pointCountOf(*positions), 120U);
  ASSERT_TRUE(bool(positions->facts().box));
  EXPECT_EQ(positions->facts().box->min(), (Point{2000, 5, 0.25}));
  EXPECT_EQ(positions->facts().box->max(), (Point{2119, 5, 0.25}));
  EXPECT_TRUE(bool(positions->attributes().getAttribute("CellSize")));
  const CreatorHandle times = creatorOf(*back, "GpsTime", 1);
  ASSERT_TRUE(times->facts().range.has_value());
  EXPECT_EQ(times->facts().range->min, 1.0);
  EXPECT_EQ(getSize(*creatorOf(*back, "Waveforms", 2)), (DynamicSize{4, 120}));
  EXPECT_EQ(SourceFiles::instance().openCount(), 0U);
}

TEST_P(LinkedBundle, MissingTileIsATextWhenItsDataAreAskedFor) {
  fs::remove(tileFile(1));
  SourceFiles::instance().clear();
  const BundlePtr back = loadBundle(linkedFile());
  const CreatorHandle creator = creatorOf(*back, "Positions", 1);
  EXPECT_FALSE(bool(creator->data()));
  EXPECT_THAT(creator->failure(), AllOf(HasSubstr("F1.f5"), HasSubstr("No such file")));
  EXPECT_TRUE(bool(creatorOf(*back, "Positions", 0)->data()));
}

TEST_P(LinkedBundle, ChangedTileIsNoticed) {
  saveTo(tileFile(1), tileOf(3).bundle(), GetParam());
  SourceFiles::instance().clear();
  const BundlePtr back = loadBundle(linkedFile());
  const CreatorHandle creator = creatorOf(*back, "GpsTime", 1);
  EXPECT_FALSE(bool(creator->data()));
  EXPECT_THAT(creator->failure(), AllOf(HasSubstr("F1.f5"), HasSubstr("has changed")));
}

TEST_P(LinkedBundle, SameTileWrittenAgainIsStillTheSame) {
  saveTo(tileFile(1), tileOf(1).bundle(), GetParam());
  SourceFiles::instance().clear();
  EXPECT_EQ(differenceOf(*linked_, *loadBundle(linkedFile())), "");
}

TEST_P(LinkedBundle, FolderMayMove) {
  const TempDir other;
  fs::copy(folder_.path(), other.path() / "moved", fs::copy_options::recursive);
  for (std::size_t k = 0; k < 4; ++k) fs::remove(tileFile(k));
  SourceFiles::instance().clear();
  const BundlePtr back = loadBundle(other / "moved/linked.f5");
  EXPECT_TRUE(bool(creatorOf(*back, "Positions", 3)->data()));
}

TEST_P(LinkedBundle, TileThatIsNoRegularFileIsRefused) {
  fs::remove(tileFile(0));
  ASSERT_EQ(::mkfifo(tileFile(0).c_str(), 0600), 0);
  fs::remove(tileFile(1));
  fs::create_symlink(tileFile(1), tileFile(1));
  fs::remove(tileFile(2));
  fs::create_directory(tileFile(2));
  SourceFiles::instance().clear();
  const BundlePtr back = loadBundle(linkedFile());
  for (const std::size_t k : {0U, 1U, 2U}) {
    EXPECT_FALSE(bool(creatorOf(*back, "Positions", k)->data()));
    EXPECT_NE(creatorOf(*back, "Positions", k)->failure(), "");
  }
}

TEST_P(LinkedBundle, LinkingALinkedBundleLeadsToTheTilesThemselves) {
  const BundlePtr again = loadBundle(linkedFile());
  fs::create_directories(folder_.path() / "deep/down");
  const std::string second = folder_ / "deep/down/second.f5";
  saveTo(second, again, GetParam());
  fs::remove(linkedFile());
  SourceFiles::instance().clear();
  EXPECT_EQ(differenceOf(*linked_, *loadBundle(second)), "");
}

TEST_P(LinkedBundle, FragmentsOfTheFileItselfAreCopied) {
  const CloudBuilder original = tileOf(2);
  saveTo(folder_ / "original.f5", original.bundle());  // which makes its creators know all facts
  saveTo(tileFile(2), loadBundle(tileFile(2)), GetParam());
  SourceFiles::instance().clear();
  const BundlePtr back = loadBundle(tileFile(2));
  EXPECT_EQ(differenceOf(*original.bundle(), *back), "");
}

TEST_P(LinkedBundle, MixesLinkedAndOwnFragments) {
  const BundlePtr mixed = loadBundle(linkedFile());
  const CloudBuilder own = tileOf(6);
  linkTile(*(*mixed)[0.0]->findGrid("points"), *own.bundle(), {{2, 0, 1}});
  saveTo(folder_ / "mixed.f5", mixed, GetParam());
  for (const char* name : {"linked.f5"}) fs::remove(folder_ / name);
  SourceFiles::instance().clear();
  const BundlePtr back = loadBundle(folder_ / "mixed.f5");
  EXPECT_EQ(differenceOf(*mixed, *back), "");
  EXPECT_EQ(pointCountOf(*creatorOf(*back, "Positions", 4)), 160U);
}

INSTANTIATE_TEST_SUITE_P(AllKinds, LinkedBundle,
                         testing::Values(StorageKind::Grid, StorageKind::Deflate,
                                         StorageKind::Raw));

}  // namespace
}  // namespace Fiber::Container
