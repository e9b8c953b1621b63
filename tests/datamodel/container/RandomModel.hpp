// SPDX-License-Identifier: Apache-2.0
//
// Random bundles for tests: every element type and attribute type, odd names, several grids,
// skeletons and charts, waveforms of differing lengths, fragments without data, fields of differing
// lengths, regular fragmentations.

#pragma once

#include <cstdint>
#include <random>

#include "datamodel/fiber/Bundle.hpp"

namespace Fiber::Container {

/// How much of everything.
struct RandomModelSize {
  std::uint64_t maxPoints = 700;  ///< per fragment
  std::uint64_t maxFragments = 5;
};

BundlePtr randomModel(std::mt19937_64& random, const RandomModelSize& size = {});

}  // namespace Fiber::Container
