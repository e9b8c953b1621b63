// SPDX-License-Identifier: Apache-2.0
//
// DataRangeBase: the smallest and largest value of a field or of one fragment, as an interface that
// hangs on the thing it describes.

#pragma once

#include <string>

#include "datamodel/memcore/Intercube.hpp"

namespace Fiber {

/// Smallest and largest value, NaN left out. 64-bit integers are rounded to double.
struct ValueRange {
  double min = 0.0;
  double max = 0.0;
  friend bool operator==(const ValueRange&, const ValueRange&) = default;
};

class FIBER_API DataRangeBase : public MemCore::InterfaceBase {
 public:
  explicit DataRangeBase(const ValueRange& range) : range_(range) {}
  const ValueRange& range() const { return range_; }
  /// "min .. max", for people.
  std::string text() const;

 private:
  ValueRange range_;
};

}  // namespace Fiber
