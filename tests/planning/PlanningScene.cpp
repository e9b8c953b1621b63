// SPDX-License-Identifier: Apache-2.0

#include "tests/planning/PlanningScene.hpp"

#include <omp.h>

#include <cmath>
#include <limits>

namespace LidarLib::TestSupport {

using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

StrongPtr<Fiber::FiberTypeBase> pointType() { return Fiber::FiberTypeBase::find(typeid(Point)); }

/// The extent of a random cloud and where it lies.
struct Extent {
  Point origin;
  Point size;
};

Extent randomExtent(std::mt19937_64& random) {
  std::uniform_real_distribution<double> exponent(-1.0, 2.0);
  const auto edge = [&] { return std::pow(10.0, exponent(random)); };
  Extent extent{{0, 0, 0}, {edge(), edge(), edge()}};
  if (random() % 3 == 0) extent.origin = {431000.25, 5388000.75, -12.5};
  if (random() % 4 == 0) extent.size.z = 0.0;
  if (random() % 6 == 0) extent.size.x = 0.0;
  if (random() % 6 == 0) extent.size.y = 0.0;
  return extent;
}

double oddNumber(std::mt19937_64& random) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const double odd[] = {std::nan(""), std::nan(""), kInfinity, -kInfinity};
  return odd[random() % 4];
}

std::vector<Point> randomPoints(std::mt19937_64& random, const Extent& extent, std::size_t count) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<Point> points(count);
  for (Point& point : points) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      point[axis] = extent.origin[axis] + unit(random) * extent.size[axis];
    }
  }
  return points;
}

/// A part of an extent, from a tenth to all of it along each axis.
Extent randomPart(std::mt19937_64& random, const Extent& whole) {
  std::uniform_real_distribution<double> share(0.1, 1.0);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Extent part = whole;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    part.size[axis] *= share(random);
    part.origin[axis] += unit(random) * (whole.size[axis] - part.size[axis]);
  }
  return part;
}

}  // namespace

MemCore::Outcome<StrongPtr<Fiber::MemBase>> WatchedCreator::create() {
  ++createCalls;
  threadsAtCreation = omp_get_num_threads();
  if (!data_) return MemCore::Failure{"watched creator: has no data"};
  return data_;
}

BoxHandle makeBox(const Point& min, const Point& max) {
  return makeStrong<Eagle::BoundingBox>(min, max);
}

StrongPtr<WatchedCreator> promisedPoints(std::uint64_t pointCount, const BoxHandle& box) {
  return makeStrong<WatchedCreator>(
      Fiber::ArrayFacts{pointType(), Fiber::DynamicSize{pointCount}, box, std::nullopt});
}

StrongPtr<WatchedCreator> lazyPoints(const std::vector<Point>& points) {
  return makeStrong<WatchedCreator>(Fiber::ArrayFacts{}, positionCreator(points)->data());
}

std::vector<std::vector<Point>> randomCloud(std::mt19937_64& random, bool withOddNumbers) {
  const Extent whole = randomExtent(random);
  std::vector<std::vector<Point>> fragments(1 + random() % 12);
  for (auto& points : fragments) {
    const std::size_t sizes[] = {0, 1, 2, 30, 400, 3000};
    points = randomPoints(random, randomPart(random, whole), sizes[random() % 6]);
    if (!withOddNumbers || points.empty() || random() % 4 != 0) continue;
    for (std::size_t n = 1 + random() % 3; n > 0; --n) {
      points[random() % points.size()][random() % 3] = oddNumber(random);
    }
  }
  return fragments;
}

StrongPtr<Fiber::Field> positionsOf(const std::vector<std::vector<Point>>& fragments) {
  CloudBuilder builder;
  for (const auto& points : fragments) builder.fragment(points);
  return builder.positions();
}

BoxHandle boxOfPoints(const std::vector<std::vector<Point>>& fragments) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  // A fragment with an axis of nothing but NaN has no box and adds nothing.
  Point min{kInfinity, kInfinity, kInfinity};
  Point max{-kInfinity, -kInfinity, -kInfinity};
  bool any = false;
  for (const auto& points : fragments) {
    Point low{kInfinity, kInfinity, kInfinity};
    Point high{-kInfinity, -kInfinity, -kInfinity};
    for (const Point& point : points) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        if (std::isnan(point[axis])) continue;
        low[axis] = std::fmin(low[axis], point[axis]);
        high[axis] = std::fmax(high[axis], point[axis]);
      }
    }
    if (!(low.x <= high.x && low.y <= high.y && low.z <= high.z)) continue;
    any = true;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      min[axis] = std::fmin(min[axis], low[axis]);
      max[axis] = std::fmax(max[axis], high[axis]);
    }
  }
  return any ? makeBox(min, max) : nullptr;
}

Fiber::FragmentedUniformGrid3D outputView(const Fiber::MultiIndex<3>& counts) {
  const auto grid = makeStrong<Fiber::Grid>("output");
  const auto field =
      makeStrong<Fiber::RegularlyFragmentedField<3>>(counts, std::string("Positions"), nullptr);
  const Fiber::GridWithCartesianVertices vertices(grid, field);
  return Fiber::FragmentedUniformGrid3D(vertices.grid());
}

TilingLayout makeLayout(const Point& corner, const Lengths& length,
                        const Fiber::MultiIndex<3>& counts) {
  TilingLayout layout;
  layout.fragmentLength = length;
  layout.nx = counts[0];
  layout.ny = counts[1];
  layout.nz = counts[2];
  layout.origin = {{corner.x, corner.y, corner.z}};
  Point far = corner;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    far[axis] += static_cast<double>(counts[axis]) * length[axis];
  }
  layout.globalBox = makeBox(corner, far);
  layout.tiledBox = makeBox(corner, far);
  return layout;
}

}  // namespace LidarLib::TestSupport
