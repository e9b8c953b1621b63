// SPDX-License-Identifier: Apache-2.0

#include "tests/operation/RandomCase.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace LidarLib::TestSupport {

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Coordinates are multiples of 1/4, so that tile boxes are exact and points on faces are common.
constexpr double kStep = 0.25;

}  // namespace

double checkOf(std::uint32_t id) { return std::sin(static_cast<double>(id)) * 1e6; }
std::uint16_t shortCheckOf(std::uint32_t id) {
  return static_cast<std::uint16_t>(id * 40503U + 7U);
}

void RandomCase::prepare(RefragmentAndSplit& operation) const {
  operation.inputBundle = cloud.bundle();
  operation.FragmentLength = length;
  operation.NormalizedOverlap = overlap;
  if (!hasCorners) return;
  operation.StartPoint = MemCore::makeStrong<MemCore::Chunk<Point>>(1, start);
  operation.EndPoint = MemCore::makeStrong<MemCore::Chunk<Point>>(1, end);
}

RandomCase CaseMaker::make() {
  RandomCase result;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    extent_[axis] = static_cast<int>(pick(0, axis == 2 ? 40 : 400));
    result.length[axis] = axis == 2 && pick(0, 2) == 0 ? 0.0 : kStep * pick(17, 160);
  }
  result.hasCorners = pick(0, 2) == 0;
  result.start = {kStep * pick(-40, 40), kStep * pick(-40, 40), kStep * pick(-8, 8)};
  result.end = {result.start.x + kStep * pick(0, 300), result.start.y + kStep * pick(0, 300),
                result.start.z + kStep * pick(0, 40)};
  result.overlap = pick(0, 2) == 0 ? 0.125 : 0.0;
  result.cloud.grid("g");
  const int fragments = pick(1, 6);
  for (int f = 0; f < fragments; ++f) addFragment(result);
  return result;
}

int CaseMaker::fragmentSize() {
  constexpr int kSizes[] = {0, 1, 7, 60, 900, 5000};
  return kSizes[pick(0, 5)];
}

Point CaseMaker::point(const RandomCase& target) {
  if (!target.points.empty() && pick(0, 19) == 0) return target.points.back();
  Point p{kStep * pick(0, extent_[0]), kStep * pick(0, extent_[1]), kStep * pick(0, extent_[2])};
  // Without corners a NaN or an infinity would make the box, and so the tiling, meaningless.
  if (target.hasCorners && pick(0, 49) == 0) {
    constexpr double kOdd[] = {kNan, kInfinity, -kInfinity};
    p[static_cast<std::size_t>(pick(0, 2))] = kOdd[pick(0, 2)];
  }
  return p;
}

void CaseMaker::addFragment(RandomCase& target) {
  const int count = std::max(fragmentSize(), target.points.empty() ? 1 : 0);
  std::vector<Point> points;
  std::vector<std::uint32_t> ids;
  std::vector<double> checks;
  std::vector<std::uint16_t> shortChecks;
  for (int i = 0; i < count; ++i) {
    const auto id = static_cast<std::uint32_t>(target.points.size());
    points.push_back(point(target));
    target.points.push_back(points.back());
    ids.push_back(id);
    checks.push_back(checkOf(id));
    shortChecks.push_back(shortCheckOf(id));
  }
  target.cloud.fragment(points).field("Id", ids).field("Check", checks).field("Short", shortChecks);
}

}  // namespace LidarLib::TestSupport
