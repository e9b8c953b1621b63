// SPDX-License-Identifier: Apache-2.0
//
// The element types of arrays as files need them: the plain type of each kind of number, and new
// arrays whose elements are about to be read and need not be zeroed first.

#pragma once

#include "datamodel/fiber/FiberType.hpp"
#include "datamodel/fiber/MemBase.hpp"

namespace Fiber::Container {

/// The registered type of single numbers of a kind.
MemCore::StrongPtr<FiberTypeBase> plainType(ScalarKind kind);

/// An array for a reader that writes every element; empty when no array of that type and rank can
/// be made. May throw std::bad_alloc. Requires: the product of the extents fits 64 bits.
MemCore::StrongPtr<MemBase> arrayToFill(const MemCore::StrongPtr<FiberTypeBase>& type,
                                        const DynamicSize& size);

}  // namespace Fiber::Container
