// SPDX-License-Identifier: Apache-2.0
//
// For tests that run out of memory, in a process of their own.

#pragma once

#include <cstdint>

namespace LidarLib::TestSupport {

/// Limits the process's address space to what it has and so many bytes more; false when the system
/// does not allow it.
bool leaveMemory(std::uint64_t bytes);

}  // namespace LidarLib::TestSupport
