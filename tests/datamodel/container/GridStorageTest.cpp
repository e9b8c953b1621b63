// SPDX-License-Identifier: Apache-2.0
//
// Coordinates stored as integers where that is exact, and as doubles where it is not.

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <random>

#include "datamodel/container/Hdf5Handle.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/GridSteps.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;

bool hasScale(const std::string& file) {
  const Hdf5Lock lock;
  const FileHandle opened(H5Fopen(file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
  return H5Aexists_by_name(opened.get(), kPositionsPath, "scale_factor", H5P_DEFAULT) > 0;
}

TEST(GridStorage, PointsOnAGridAreStoredAsIntegers) {
  const TempDir folder;
  CloudBuilder cloud;
  cloud.fragment(gridPoints(150000, 0.01, 202500, 1)).fragment(gridPoints(10, 0.01, 202500, 2));
  saveTo(folder / "a.f5", cloud.bundle());
  EXPECT_EQ(storedClass(folder / "a.f5"), H5T_INTEGER);
  EXPECT_TRUE(hasScale(folder / "a.f5"));
  expectRoundTrip(cloud.bundle(), folder / "a.f5");
}

TEST(GridStorage, HintOfTheFieldIsUsed) {
  const TempDir folder;
  // A scale that no search among powers of ten would find.
  CloudBuilder cloud;
  cloud.fragment(gridPoints(1000, 1.16451e-06, 1692500.352, 3));
  saveTo(folder / "without.f5", cloud.bundle());
  EXPECT_EQ(storedClass(folder / "without.f5"), H5T_FLOAT);
  constexpr AxisGrid kAxis{1.16451e-06, 1692500.352};
  setHint(cloud, {kAxis, kAxis, kAxis});
  saveTo(folder / "with.f5", cloud.bundle());
  EXPECT_EQ(storedClass(folder / "with.f5"), H5T_INTEGER);
  expectRoundTrip(cloud.bundle(), folder / "with.f5");
}

TEST(GridStorage, OnePointOffTheGridMakesAllDoubles) {
  const TempDir folder;
  for (const double odd : {std::sqrt(2.0), std::numeric_limits<double>::quiet_NaN(), 1e300}) {
    auto points = gridPoints(5000, 0.01, 0, 4);
    points[4321].y = odd;
    CloudBuilder cloud;
    cloud.fragment(gridPoints(100, 0.01, 0, 5)).fragment(points);
    saveTo(folder / "a.f5", cloud.bundle());
    EXPECT_EQ(storedClass(folder / "a.f5"), H5T_FLOAT);
    EXPECT_FALSE(hasScale(folder / "a.f5"));
    expectRoundTrip(cloud.bundle(), folder / "a.f5");
  }
}

TEST(GridStorage, FragmentsOnDifferentGridsKeepTheirOwn) {
  const TempDir folder;
  CloudBuilder cloud;
  cloud.fragment(gridPoints(70000, 0.01, 202500, 6)).fragment(gridPoints(70000, 0.001, 0, 7));
  saveTo(folder / "a.f5", cloud.bundle());
  EXPECT_EQ(storedClass(folder / "a.f5"), H5T_INTEGER);
  EXPECT_FALSE(hasScale(folder / "a.f5"));
  expectRoundTrip(cloud.bundle(), folder / "a.f5");
}

TEST(GridStorage, OtherKindsStoreDoubles) {
  const TempDir folder;
  CloudBuilder cloud;
  cloud.fragment(gridPoints(1000, 0.01, 0, 8));
  for (const StorageKind kind : {StorageKind::Deflate, StorageKind::Raw}) {
    saveTo(folder / "a.f5", cloud.bundle(), kind);
    EXPECT_EQ(storedClass(folder / "a.f5"), H5T_FLOAT);
    expectRoundTrip(cloud.bundle(), folder / "a.f5");
  }
}

TEST(GridStorage, LaterBatchOffTheGridBeginsAgainWithDoubles) {
  const TempDir folder;
  CloudBuilder cloud;
  for (std::uint64_t k = 0; k < 6; ++k) {
    auto points = gridPoints(30000, 0.01, 100, 20 + k);
    if (k == 4) points[77].x = std::sqrt(3.0);
    std::vector<unsigned short> intensity(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      intensity[i] = static_cast<unsigned short>(i * (k + 1));
    }
    cloud.fragment(points).field("Intensity", intensity);
  }
  EXPECT_EQ(writeInBatches(cloud.bundle(), folder / "a.f5", StorageKind::Grid, {1, 0}), 2);
  EXPECT_EQ(storedClass(folder / "a.f5"), H5T_FLOAT);
  expectRoundTrip(cloud.bundle(), folder / "a.f5");
  EXPECT_EQ(entryCount(folder.path()), 1);
}

TEST(GridStorage, BatchesOfAnySizeGiveTheSameBundle) {
  const TempDir folder;
  CloudBuilder cloud;
  for (std::uint64_t k = 0; k < 9; ++k) {
    const std::size_t count = k % 3 == 1 ? 0 : 20000 + 7 * k;
    std::vector<unsigned short> samples(5 * count, static_cast<unsigned short>(k));
    cloud.fragment(gridPoints(count, 0.01, 100, 40 + k)).waveforms("Waveforms", 5, samples);
  }
  for (const std::uint64_t batchBytes : {1U, 700000U, 100000000U}) {
    EXPECT_EQ(writeInBatches(cloud.bundle(), folder / "a.f5", StorageKind::Grid, {batchBytes, 0}),
              1);
    expectRoundTrip(cloud.bundle(), folder / "a.f5");
  }
}

TEST(GridStorage, FilesDoNotDependOnHowManyGroupsAreEncodedAtOnce) {
  const TempDir folder;
  CloudBuilder cloud;
  std::mt19937_64 random(5);
  for (std::uint64_t k = 0; k < 9; ++k) {
    const std::size_t count = 15000 + 7 * k;
    // Off any grid, so that the first chunk of rows decides on their filters.
    std::vector<Point> points = gridPoints(count, 0.01, 100, 40 + k);
    for (Point& point : points) point.z += static_cast<double>(random() % 1000) / 7e5;
    cloud.fragment(points).field("Intensity", std::vector<unsigned short>(count, 3));
  }
  const std::string file = folder / "a.f5";
  std::string expected;
  for (const std::uint64_t perThread :
       {std::uint64_t{0}, std::uint64_t{2000000}, ~std::uint64_t{0} >> 10U}) {
    writeInBatches(cloud.bundle(), file, StorageKind::Deflate, {700000, perThread});
    if (expected.empty()) expected = contentsOf(file);
    EXPECT_EQ(contentsOf(file) == expected, true) << perThread;
  }
}

}  // namespace
}  // namespace Fiber::Container
