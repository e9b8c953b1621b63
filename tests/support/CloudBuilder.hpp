// SPDX-License-Identifier: Apache-2.0
//
// CloudBuilder: builds an input bundle in memory for tests, in one chained expression:
//
//   auto bundle = CloudBuilder()
//                     .time(2.5).grid("scan")
//                     .fragment({{0, 0, 0}, {1, 1, 1}}).field<double>("GpsTime", {10, 11})
//                     .fragment({{5, 5, 5}}).field<double>("GpsTime", {12})
//                     .bundle();
//
// Every call acts on what the calls before it began: a fragment belongs to the latest grid, a
// field's values to the latest fragment. Without time() and grid() the grid is "points" at time 0.

#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"

namespace LidarLib::TestSupport {

using Point = Eagle::PhysicalSpace::point;

class CloudBuilder {
 public:
  CloudBuilder();

  /// Goes to the slice of a time; the next grid() belongs to it.
  CloudBuilder& time(double time);
  /// Goes to a grid of the slice, made when absent. A grid has no positions until its first
  /// fragment, so a grid without any is one call.
  CloudBuilder& grid(const std::string& name);

  /// Adds a fragment with these positions, held in memory; none at all are allowed.
  CloudBuilder& fragment(const std::vector<Point>& points);
  /// Adds a fragment whose positions come from any creator; an empty handle leaves the fragment
  /// without positions.
  CloudBuilder& fragmentOf(const Fiber::CreatorHandle& creator);

  /// Values of a field for the latest fragment; meant to be one per point, which is not checked.
  template <class T>
  CloudBuilder& field(const std::string& name, const std::vector<T>& values) {
    return array(name, MemCore::makeStrong<Fiber::MemArray<1, T>>(
                           std::array<std::uint64_t, 1>{values.size()}, chunkOf(values)));
  }
  /// Waveforms of the latest fragment. Shape: [points][samplesPerPoint], samples fastest.
  template <class T>
  CloudBuilder& waveforms(const std::string& name, std::uint64_t samplesPerPoint,
                          const std::vector<T>& samples) {
    const std::uint64_t points = samplesPerPoint == 0 ? 0 : samples.size() / samplesPerPoint;
    return array(name,
                 MemCore::makeStrong<Fiber::MemArray<2, T>>(
                     std::array<std::uint64_t, 2>{samplesPerPoint, points}, chunkOf(samples)));
  }
  /// Any array as the latest fragment's data of a field.
  CloudBuilder& array(const std::string& name, const MemCore::StrongPtr<Fiber::MemBase>& data);

  /// Sets an attribute of the latest grid.
  template <class T>
  CloudBuilder& gridAttribute(const std::string& name, const std::vector<T>& values) {
    currentGrid()->attributes().setAttribute(name, chunkOf(values));
    return *this;
  }

  /// The whole bundle. The builder can go on adding to it.
  const Fiber::BundlePtr& bundle() const { return bundle_; }
  /// The latest grid.
  MemCore::StrongPtr<Fiber::Grid> currentGrid();
  /// The latest grid's positions; empty before its first fragment.
  MemCore::StrongPtr<Fiber::Field> positions();

 private:
  template <class T>
  static MemCore::StrongPtr<MemCore::Chunk<T>> chunkOf(const std::vector<T>& values) {
    return MemCore::makeStrong<MemCore::Chunk<T>>(std::span<const T>(values));
  }
  MemCore::StrongPtr<Fiber::Field> fieldNamed(const std::string& name);

  Fiber::BundlePtr bundle_;
  MemCore::StrongPtr<Fiber::Slice> slice_;
  MemCore::StrongPtr<Fiber::Grid> grid_;
  Fiber::FragmentHandle fragment_;
};

/// Positions of a point cloud as a creator in memory, for CloudBuilder::fragmentOf and the like.
Fiber::CreatorHandle positionCreator(const std::vector<Point>& points);

}  // namespace LidarLib::TestSupport
