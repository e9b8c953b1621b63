// SPDX-License-Identifier: Apache-2.0

#include "tests/datamodel/container/GridSteps.hpp"

namespace Fiber::Container {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using MemCore::Chunk;
using MemCore::makeStrong;

std::vector<Point> gridPoints(std::size_t count, double scale, double offset, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  const auto value = [&] {
    const volatile double product = static_cast<double>(random() % 1000000) * scale;
    return product + offset;
  };
  std::vector<Point> points(count);
  for (Point& p : points) p = {value(), value(), value()};
  return points;
}

H5T_class_t storedClass(const std::string& file) {
  const Hdf5Lock lock;
  const FileHandle opened(H5Fopen(file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
  const DatasetHandle dataset(H5Dopen2(opened.get(), kPositionsPath, H5P_DEFAULT));
  const DatatypeHandle type(H5Dget_type(dataset.get()));
  return H5Tget_class(type.get());
}

void expectRoundTrip(const BundlePtr& bundle, const std::string& file) {
  const BundlePtr back = loadBundle(file);
  ASSERT_TRUE(bool(back));
  EXPECT_EQ(differenceOf(*bundle, *back), "");
}

void setHint(CloudBuilder& cloud, const CoordinateGrid& grid) {
  const std::vector<double> scale{grid[0].scale, grid[1].scale, grid[2].scale};
  const std::vector<double> offset{grid[0].offset, grid[1].offset, grid[2].offset};
  cloud.positions()->properties().setAttribute(
      "GridScale", makeStrong<Chunk<double>>(std::span<const double>(scale)));
  cloud.positions()->properties().setAttribute(
      "GridOffset", makeStrong<Chunk<double>>(std::span<const double>(offset)));
}

}  // namespace Fiber::Container
