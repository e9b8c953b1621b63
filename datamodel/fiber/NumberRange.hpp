// SPDX-License-Identifier: Apache-2.0
//
// The range of numbers that stand in memory one after another. The kernel exists once per
// instruction set; the best one is chosen at run time.

#pragma once

#include <optional>
#include <span>

#include "datamodel/fiber/DataRange.hpp"
#include "datamodel/fiber/MemBase.hpp"

namespace Fiber {

/// The kind of the elements of an array when they are single numbers; otherwise absent.
FIBER_API std::optional<ScalarKind> numberKindOf(const MemBase& data);

/// The range of numbers of one kind; absent when there are none, or all are NaN. Of zeros that
/// differ in sign the first one counts. Requires: whole, aligned numbers.
FIBER_API std::optional<ValueRange> rangeOfNumbers(ScalarKind kind,
                                                   std::span<const std::byte> numbers);

/// The range of two runs of numbers, one behind the other.
FIBER_API std::optional<ValueRange> rangeOfBoth(const std::optional<ValueRange>& first,
                                                const std::optional<ValueRange>& second);

/// The highest of some indices; 0 without any. Every list is looked through once per field.
FIBER_API unsigned int highestIndex(std::span<const unsigned int> indices);

}  // namespace Fiber
