// SPDX-License-Identifier: Apache-2.0
//
// Random clouds for runs of any kind. Every point carries its number ("Id"), and every other field
// is a function of that number, so that a lost, doubled, shuffled or shifted value shows.

#pragma once

#include <random>

#include "operation/RefragmentAndSplit.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace LidarLib::TestSupport {

/// The values of the fields "Check" and "Short" of a point.
double checkOf(std::uint32_t id);
std::uint16_t shortCheckOf(std::uint32_t id);

/// One cloud, in the grid "g", and the parameters of its run.
struct RandomCase {
  std::vector<Point> points;  ///< by number
  CloudBuilder cloud;
  Eagle::FixedArray<double, 3> length;
  Point start;
  Point end;
  bool hasCorners = false;
  double overlap = 0.0;

  /// Sets the input and the parameters.
  void prepare(RefragmentAndSplit& operation) const;
};

class CaseMaker {
 public:
  explicit CaseMaker(std::uint64_t seed) : random_(seed) {}

  RandomCase make();

 private:
  int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
  int fragmentSize();
  Point point(const RandomCase& target);
  void addFragment(RandomCase& target);

  std::mt19937_64 random_;
  int extent_[3] = {};
};

}  // namespace LidarLib::TestSupport
