// SPDX-License-Identifier: Apache-2.0

#include "tests/assembly/PlainSelection.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace LidarLib::TestSupport {

namespace {

using Limits = std::numeric_limits<double>;

constexpr std::uint64_t kNever = ~std::uint64_t{0};

bool isInside(const Point& p, const Eagle::BoundingBox& box, const Index3& index) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (index[axis] != 0) {
      if (!(p[axis] > box.min()[axis])) return false;
    } else {
      if (!(p[axis] >= box.min()[axis])) return false;
    }
    if (p[axis] > box.max()[axis]) return false;
  }
  return true;
}

double specialValue(std::mt19937_64& random) {
  const double values[] = {Limits::quiet_NaN(),
                           Limits::infinity(),
                           -Limits::infinity(),
                           0.0,
                           -0.0,
                           Limits::denorm_min(),
                           -Limits::denorm_min(),
                           Limits::max(),
                           Limits::lowest()};
  return values[random() % std::size(values)];
}

}  // namespace

std::vector<unsigned int> selectPlainly(const std::vector<Point>& points,
                                        const Eagle::BoundingBox& box, const Index3& index) {
  std::vector<unsigned int> selected;
  for (unsigned int i = 0; i < points.size(); ++i) {
    if (isInside(points[i], box, index)) selected.push_back(i);
  }
  return selected;
}

MemCore::StrongPtr<PositionArray> positionsOf(const std::vector<Point>& points) {
  return Fiber::makeArray(
      MemCore::makeStrong<MemCore::Chunk<Point>>(std::span<const Point>(points)));
}

std::vector<unsigned int> elementsOf(const MemCore::StrongPtr<Fiber::IndexList>& list) {
  EXPECT_TRUE(bool(list));
  return list ? std::vector<unsigned int>(list->begin(), list->end()) : std::vector<unsigned int>();
}

std::vector<Point> nastyCloud(std::mt19937_64& random, std::size_t count,
                              const Eagle::BoundingBox& box) {
  std::uniform_real_distribution<double> step(-0.05, 0.05);
  // Clouds without any special value have blocks that lie wholly inside a box.
  const std::uint64_t specialEvery = random() % 2 == 0 ? kNever : 1 + random() % 400;
  std::vector<Point> points;
  Point p{step(random), step(random), step(random)};
  while (points.size() < count) {
    for (std::size_t axis = 0; axis < 3; ++axis) p[axis] += step(random);
    Point written = p;
    const std::size_t axis = random() % 3;
    if (random() % specialEvery == 0) written[axis] = specialValue(random);
    if (random() % specialEvery == 0) written[axis] = box.min()[axis];
    if (random() % specialEvery == 0) written[axis] = box.max()[axis];
    points.push_back(written);
    if (random() % specialEvery == 0) points.push_back(points[random() % points.size()]);
  }
  points.resize(count);
  return points;
}

Eagle::BoundingBox nastyBox(std::mt19937_64& random) {
  std::uniform_real_distribution<double> corner(-4.0, 4.0);
  Point low;
  Point high;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    low[axis] = random() % 12 == 0 ? specialValue(random) : corner(random);
    high[axis] = random() % 12 == 0 ? specialValue(random) : low[axis] + corner(random) + 3.0;
  }
  return {low, high};
}

Index3 someIndex(std::mt19937_64& random) {
  return {{random() % 2, random() % 2 * 7, random() % 2 * 12}};
}

}  // namespace LidarLib::TestSupport
