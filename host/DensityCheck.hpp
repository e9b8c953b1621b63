// SPDX-License-Identifier: Apache-2.0
//
// DensityCheck: judges whether the operation's estimate of a tile length can be trusted. The
// estimate works on cells of 8 bits, which cut off fractions and wrap beyond 255 points per square
// unit, and says nothing of it; here the same sums are formed in full.

#pragma once

#include <string>

#include "datamodel/fiber/Field.hpp"
#include "planning/TilingLayout.hpp"

namespace Host {

/// Points per square unit, from the sizes and boxes of the fragments.
struct DensityFigures {
  double mean = 0.0;  ///< over the cells that hold any; 0 when none does
  double peak = 0.0;  ///< of the fullest cell
};

DensityFigures measureDensity(const MemCore::StrongPtr<Fiber::Field>& positions);

/// What to tell the user about the estimate of a layout; empty when all is well or nothing had to
/// be estimated.
std::string densityWarning(const LidarLib::TilingLayout& layout, bool wantsEstimate);

}  // namespace Host
