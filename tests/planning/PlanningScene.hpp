// SPDX-License-Identifier: Apache-2.0
//
// What planning tests are made of: fragments that only claim to have data, random clouds of every
// awkward shape, and output grids to map onto.

#pragma once

#include <atomic>
#include <random>
#include <vector>

#include "planning/TilingLayout.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace LidarLib::TestSupport {

using Lengths = Eagle::FixedArray<double, 3>;
using BoxHandle = MemCore::StrongPtr<Eagle::BoundingBox>;

/// A creator that knows the facts it is given and counts what is asked of it.
class WatchedCreator final : public Fiber::CreativeArrayBase {
 public:
  explicit WatchedCreator(Fiber::ArrayFacts facts,
                          MemCore::StrongPtr<Fiber::MemBase> data = nullptr)
      : CreativeArrayBase(std::move(facts)), data_(std::move(data)) {}

  void finish() override { ++finishCalls; }

  std::atomic<int> createCalls = 0;
  std::atomic<int> finishCalls = 0;
  std::atomic<int> threadsAtCreation = 0;  ///< of the team that made the data

 protected:
  MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> create() override;

 private:
  MemCore::StrongPtr<Fiber::MemBase> data_;
};

BoxHandle makeBox(const Point& min, const Point& max);

/// A creator that promises so many points in a box and has no data.
MemCore::StrongPtr<WatchedCreator> promisedPoints(std::uint64_t pointCount, const BoxHandle& box);
/// A creator that knows nothing about its points until it is asked to make them.
MemCore::StrongPtr<WatchedCreator> lazyPoints(const std::vector<Point>& points);

/// The points of each fragment of a random cloud: of very different sizes, some empty, in an extent
/// that may be flat, a needle or far from the origin. A few coordinates are NaN or infinite if
/// `withOddNumbers`.
std::vector<std::vector<Point>> randomCloud(std::mt19937_64& random, bool withOddNumbers);

/// A positions field over fragments in memory.
MemCore::StrongPtr<Fiber::Field> positionsOf(const std::vector<std::vector<Point>>& fragments);

/// The box of all points, coordinate by coordinate, NaN left out; empty when an axis has nothing.
BoxHandle boxOfPoints(const std::vector<std::vector<Point>>& fragments);

/// A view of an output grid of nx x ny x nz fragments.
Fiber::FragmentedUniformGrid3D outputView(const Fiber::MultiIndex<3>& counts);

/// A layout that was not estimated but put together.
TilingLayout makeLayout(const Point& corner, const Lengths& length,
                        const Fiber::MultiIndex<3>& counts);

}  // namespace LidarLib::TestSupport
