// SPDX-License-Identifier: Apache-2.0
//
// Random clouds split and compared with a plain version: one loop over all points per tile.

#include <omp.h>

#include <algorithm>
#include <cmath>

#include "tests/operation/RandomCase.hpp"
#include "tests/operation/SplitFixture.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib::TestSupport {

namespace {

/// The plain version: the numbers of the points inside one tile.
std::vector<std::uint32_t> pointsOfTile(const RandomCase& test, const Point& corner,
                                        const Eagle::FixedArray<double, 3>& length,
                                        const std::array<std::uint64_t, 3>& index) {
  std::vector<std::uint32_t> ids;
  for (std::uint32_t id = 0; id < test.points.size(); ++id) {
    bool inside = true;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      double low = static_cast<double>(index[axis]) * length[axis] + corner[axis];
      double high = static_cast<double>(index[axis] + 1) * length[axis] + corner[axis];
      if (test.overlap > 0) {
        low -= test.overlap * length[axis];
        high += test.overlap * length[axis];
      }
      const double p = test.points[id][axis];
      inside = inside && (index[axis] == 0 ? p >= low : p > low) && !(p > high);
    }
    if (inside) ids.push_back(id);
  }
  return ids;
}

/// The corner and the settled lengths of the tiling, from the plain definition.
struct PlainTiling {
  Point corner;
  Eagle::FixedArray<double, 3> length;
  std::array<std::uint64_t, 3> counts;
};

PlainTiling plainTiling(const RandomCase& test) {
  PlainTiling tiling;
  Point high = test.end;
  tiling.corner = test.start;
  if (!test.hasCorners) {
    tiling.corner = high = test.points.front();
    for (const Point& p : test.points) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        tiling.corner[axis] = std::min(tiling.corner[axis], p[axis]);
        high[axis] = std::max(high[axis], p[axis]);
      }
    }
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double edge = high[axis] - tiling.corner[axis];
    const double length = test.length[axis];
    tiling.counts[axis] =
        length == 0
            ? 1
            : std::max<std::uint64_t>(1, static_cast<std::uint64_t>(std::ceil(edge / length)));
    tiling.length[axis] = length == 0 ? edge : length;
  }
  if (tiling.length[2] <= 0) tiling.length[2] = 1;
  return tiling;
}

class RunPropertyTest : public SplitFixture {
 protected:
  void run(const RandomCase& test, int threads) {
    std::filesystem::remove_all(folder / "out");
    omp_set_num_threads(threads);
    RefragmentAndSplit operation;
    prepare(operation, test.cloud.bundle());
    test.prepare(operation);
    ASSERT_TRUE(operation.Run());
    ASSERT_TRUE(operation.messages.empty()) << operation.messages.front();
  }

  /// Checks one tile file against the plain list of its points; returns how many there are.
  void expectTile(const RandomCase& test, const std::string& file,
                  const std::vector<std::uint32_t>& expected) const {
    if (expected.empty()) {
      EXPECT_FALSE(std::filesystem::exists(folder / file)) << file;
      return;
    }
    ASSERT_TRUE(std::filesystem::exists(folder / file)) << file;
    const auto bundle = load(file);
    const auto grid = (*bundle)[0.0]->findGrid("g");
    auto ids = fieldValues<std::uint32_t>(*grid, "Id");
    const auto positions = fieldValues<Point>(*grid, "Positions");
    const auto checks = fieldValues<double>(*grid, "Check");
    const auto shortChecks = fieldValues<std::uint16_t>(*grid, "Short");
    ASSERT_EQ(positions.size(), ids.size());
    ASSERT_EQ(checks.size(), ids.size());
    ASSERT_EQ(shortChecks.size(), ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) {
      ASSERT_EQ(positions[i], test.points[ids[i]]) << file;
      ASSERT_EQ(checks[i], checkOf(ids[i])) << file;
      ASSERT_EQ(shortChecks[i], shortCheckOf(ids[i])) << file;
    }
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(ids, expected) << file;
  }
};

bool isInside(const Point& p, const Point& low, const PlainTiling& tiling) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double high = low[axis] + static_cast<double>(tiling.counts[axis]) * tiling.length[axis];
    if (!(p[axis] >= low[axis] && p[axis] <= high)) return false;
  }
  return true;
}

}  // namespace

TEST_F(RunPropertyTest, TilesHoldExactlyThePointsOfThePlainVersion) {
  CaseMaker maker(testSeed());
  for (int round = 0; round < 25; ++round) {
    const RandomCase test = maker.make();
    const PlainTiling tiling = plainTiling(test);
    run(test, 2);
    std::size_t placed = 0;
    std::set<std::string> expectedFiles;
    for (std::uint64_t k = 0; k < tiling.counts[2]; ++k) {
      for (std::uint64_t j = 0; j < tiling.counts[1]; ++j) {
        for (std::uint64_t i = 0; i < tiling.counts[0]; ++i) {
          const auto expected = pointsOfTile(test, tiling.corner, tiling.length, {i, j, k});
          const std::string file = "F" + std::to_string(i) + "x" + std::to_string(j) + "x" +
                                   std::to_string(k) + "T0.000000Gg.f5";
          expectTile(test, "out/" + file, expected);
          placed += expected.size();
          if (!expected.empty()) expectedFiles.insert(file);
        }
      }
    }
    EXPECT_EQ(tileFiles(), expectedFiles);
    if (test.overlap == 0.0) {
      const auto inside =
          std::count_if(test.points.begin(), test.points.end(),
                        [&](const Point& p) { return isInside(p, tiling.corner, tiling); });
      EXPECT_EQ(placed, static_cast<std::size_t>(inside)) << "round " << round;
    }
    if (HasFailure()) return;
  }
}

TEST_F(RunPropertyTest, FilesAreIdenticalForAnyNumberOfThreads) {
  CaseMaker maker(testSeed());
  for (int round = 0; round < 4; ++round) {
    const RandomCase test = maker.make();
    std::map<std::string, std::string> reference;
    for (const int threads : {1, 2, 8, 1}) {
      run(test, threads);
      std::map<std::string, std::string> bytes;
      for (const std::string& name : tileFiles()) bytes[name] = readFile("out/" + name);
      if (reference.empty()) reference = bytes;
      ASSERT_EQ(bytes.size(), reference.size());
      EXPECT_TRUE(bytes == reference) << threads << " threads, round " << round;
    }
  }
}

}  // namespace LidarLib::TestSupport
