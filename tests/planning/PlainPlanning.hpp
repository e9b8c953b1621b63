// SPDX-License-Identifier: Apache-2.0
//
// Planning once more, step by step and without any cleverness: the judge of the real one. The
// conversions are the processor's own instructions, so this builds for x86-64 alone.

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "planning/FragmentMapping.hpp"
#include "planning/TilingLayout.hpp"

namespace LidarLib::TestSupport {

/// cvttsd2si, 32 and 64 bit.
std::int32_t processorInt32(double value);
std::int64_t processorInt64(double value);

struct PlainTiling {
  std::array<double, 3> length{};  ///< as the caller's copy ends
  std::array<std::uint64_t, 3> counts{1, 1, 1};
  std::string message;
  std::string info;
  std::string console;  ///< all messages, each with a line break after it
  Eagle::PhysicalSpace::point tiledMin;
  Eagle::PhysicalSpace::point tiledMax;
};

PlainTiling plainTiling(const Eagle::BoundingBox& globalBox, const std::array<double, 3>& length,
                        const MemCore::StrongPtr<Fiber::Field>& positions, bool hasWaveforms);

/// Every tile against every fragment.
struct PlainMapping {
  std::uint32_t tilesWithData = 0;
  std::uint64_t inputPointTotal = 0;
  std::vector<TileCell> tileCells;
};

PlainMapping plainMapping(const TilingLayout& layout, const Fiber::FragmentedUniformGrid3D& view,
                          double normalizedOverlap,
                          const std::vector<Fiber::FragmentHandle>& fragmentIDs,
                          const MemCore::StrongPtr<Fiber::Field>& positions);

}  // namespace LidarLib::TestSupport
