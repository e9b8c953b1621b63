// SPDX-License-Identifier: Apache-2.0
//
// The machine's memory, what of it the process may take, and how much freed memory the process
// keeps for its next need. Point columns are allocated and freed by the megabyte; handing each back
// to the system costs a page fault for every page of the next one, keeping all of it adds to the
// process's size what no budget counts.

#pragma once

#include <cstdint>

#include "datamodel/memcore/Export.hpp"

namespace MemCore {

/// Fits the process's allocator to a budget of bytes: the larger, the more freed memory stays for
/// reuse, never more than a small part of it. For a program to call once, before its threads
/// start; libraries leave the choice to it. Does nothing where the allocator has no such setting.
FIBER_API void fitAllocator(std::uint64_t budgetBytes);

/// The machine's memory in bytes; 2 GiB where the system does not tell.
FIBER_API std::uint64_t machineMemory();

/// The bytes that the process may still take: what its limit of address space leaves, and no more
/// than the machine has.
FIBER_API std::uint64_t usableMemory();

}  // namespace MemCore
