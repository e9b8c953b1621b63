// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/DataRange.hpp"

#include "datamodel/memcore/Text.hpp"

namespace Fiber {

std::string DataRangeBase::text() const {
  return MemCore::formatFixed(range_.min) + " .. " + MemCore::formatFixed(range_.max);
}

}  // namespace Fiber
