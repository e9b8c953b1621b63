// SPDX-License-Identifier: Apache-2.0

#include "host/export/TileOwnership.hpp"

#include <gmock/gmock.h>

#include <random>

#include "planning/TilingAttributes.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/Seed.hpp"

namespace Host {
namespace {

using Eagle::PhysicalSpace;
using LidarLib::TestSupport::CloudBuilder;
using testing::ElementsAre;
using testing::HasSubstr;

/// A tiling of a box of random place and size.
struct RandomTiling {
  LidarLib::TilingLayout layout;
  std::array<std::uint64_t, 3> counts{};

  explicit RandomTiling(std::mt19937_64& random) {
    std::uniform_real_distribution<double> place(-1e6, 1e6);
    std::uniform_real_distribution<double> size(0.1, 500);
    PhysicalSpace::point low;
    PhysicalSpace::point high;
    Eagle::FixedArray<double, 3> length;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      low[axis] = random() % 3 == 0 ? std::round(place(random)) : place(random);
      length[axis] = random() % 3 == 0 ? std::ceil(size(random)) : size(random);
      high[axis] = low[axis] + length[axis] * static_cast<double>(1 + random() % 4);
    }
    layout = LidarLib::estimateTiling(MemCore::makeStrong<Eagle::BoundingBox>(low, high), length,
                                      0.25, MemCore::StrongPtr<Fiber::Field>(), false);
    EXPECT_EQ(layout.message, "");
    counts = {layout.nx, layout.ny, layout.nz};
  }

  /// The face below tile `number` of an axis, computed as the tiles' boxes are.
  double face(std::size_t axis, std::uint64_t number) const {
    return LidarLib::tileInterval(layout, axis, number, 0.0).min;
  }
};

/// A coordinate within the tiles, often on a face or next to one.
double someCoordinate(const RandomTiling& tiling, std::size_t axis, std::mt19937_64& random) {
  const double low = tiling.face(axis, 0);
  const double high = tiling.face(axis, tiling.counts[axis]);
  double value = std::uniform_real_distribution<double>(low, high)(random);
  const std::uint64_t kind = random() % 4;
  if (kind != 0) value = tiling.face(axis, random() % (tiling.counts[axis] + 1));
  if (kind == 2) value = std::nextafter(value, 1e300);
  if (kind == 3) value = std::nextafter(value, -1e300);
  return std::min(std::max(value, low), high);
}

/// Whether a tile's box, not widened, holds a point: the rule, word by word.
bool isInBox(const RandomTiling& tiling, const Fiber::MultiIndex<3>& tile,
             const PhysicalSpace::point& point) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double low = tiling.face(axis, tile[axis]);
    const double high = tiling.face(axis, tile[axis] + 1);
    const bool isAbove = tile[axis] == 0 ? point[axis] >= low : point[axis] > low;
    if (!isAbove || point[axis] > high) return false;
  }
  return true;
}

/// A grid whose tiles overlap and that tells its tiling.
MemCore::StrongPtr<Fiber::Grid> overlappingGrid(const LidarLib::TilingLayout& layout,
                                                double overlap) {
  auto grid = MemCore::makeStrong<Fiber::Grid>("points");
  const auto& length = layout.fragmentLength;
  grid->attributes().setAttribute(LidarLib::kFragLengthAttribute,
                                  MemCore::makeStrong<MemCore::Chunk<PhysicalSpace::point>>(
                                      1, PhysicalSpace::point{length[0], length[1], length[2]}));
  grid->attributes().setAttribute(LidarLib::kOverlapAttribute,
                                  MemCore::makeStrong<MemCore::Chunk<double>>(1, overlap));
  keepTilingOrigin(*grid, layout);
  return grid;
}

TEST(TileOwnership, EveryPointIsOwnedByTheOneTileWhoseOwnBoxHoldsIt) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  for (int round = 0; round < 30; ++round) {
    const RandomTiling tiling(random);
    const auto made = TileOwnership::of(*overlappingGrid(tiling.layout, 0.25));
    ASSERT_TRUE(made.ok() && *made);
    std::vector<PhysicalSpace::point> points(200);
    for (auto& point : points) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        point[axis] = someCoordinate(tiling, axis, random);
      }
    }
    const auto array = Fiber::makeArray(MemCore::makeStrong<MemCore::Chunk<PhysicalSpace::point>>(
        std::span<const PhysicalSpace::point>(points)));
    std::vector<int> owners(points.size());
    for (std::uint64_t i = 0; i < tiling.counts[0]; ++i) {
      for (std::uint64_t j = 0; j < tiling.counts[1]; ++j) {
        for (std::uint64_t k = 0; k < tiling.counts[2]; ++k) {
          const Fiber::MultiIndex<3> tile{{i, j, k}};
          const auto rows = (*made)->ownedRows(*array, tile);
          ASSERT_TRUE(std::is_sorted(rows.begin(), rows.end()));
          for (const std::uint32_t row : rows) ++owners[row];
          for (std::size_t p = 0; p < points.size(); ++p) {
            const bool isOwned = std::binary_search(rows.begin(), rows.end(), p);
            ASSERT_EQ(isOwned, isInBox(tiling, tile, points[p])) << p;
          }
        }
      }
    }
    EXPECT_THAT(owners, testing::Each(1));
  }
}

TEST(TileOwnership, WithoutOverlapThereIsNone) {
  std::mt19937_64 random(1);
  const RandomTiling tiling(random);
  for (const double overlap : {0.0, -1.0, std::nan("")}) {
    const auto made = TileOwnership::of(*overlappingGrid(tiling.layout, overlap));
    ASSERT_TRUE(made.ok());
    EXPECT_FALSE(made->has_value());
  }
  EXPECT_FALSE(TileOwnership::of(Fiber::Grid("points"))->has_value());
}

TEST(TileOwnership, OverlapOfUnknownTilingIsAFailure) {
  std::mt19937_64 random(1);
  const RandomTiling tiling(random);
  const auto grid = overlappingGrid(tiling.layout, 0.1);
  grid->attributes().setAttribute("TilingOrigin", nullptr);
  const auto made = TileOwnership::of(*grid);
  ASSERT_FALSE(made.ok());
  EXPECT_EQ(made.stop().code, ExitCode::Failed);
  EXPECT_THAT(made.stop().text, HasSubstr("grid points: its tiles overlap, and it does not tell"));
}

TEST(TileOwnership, OriginOfAFormerTilingIsNotTaken) {
  std::mt19937_64 random(1);
  const RandomTiling tiling(random);
  const auto grid = overlappingGrid(tiling.layout, 0.1);
  EXPECT_TRUE(tilingPlaceOf(*grid).has_value());
  grid->attributes().setAttribute(
      LidarLib::kFragLengthAttribute,
      MemCore::makeStrong<MemCore::Chunk<PhysicalSpace::point>>(1, PhysicalSpace::point{1, 2, 3}));
  EXPECT_FALSE(tilingPlaceOf(*grid).has_value());
  EXPECT_FALSE(TileOwnership::of(*grid).ok());
}

TEST(TileOwnership, DamagedOriginIsNone) {
  std::mt19937_64 random(1);
  const RandomTiling tiling(random);
  const auto grid = overlappingGrid(tiling.layout, 0.1);
  grid->attributes().setAttribute(
      "TilingOrigin",
      MemCore::makeStrong<MemCore::Chunk<PhysicalSpace::point>>(1, PhysicalSpace::point{}));
  EXPECT_FALSE(tilingPlaceOf(*grid).has_value());
  grid->attributes().setAttribute("TilingOrigin", MemCore::makeStrong<MemCore::Chunk<double>>(6));
  EXPECT_FALSE(tilingPlaceOf(*grid).has_value());
}

}  // namespace
}  // namespace Host
