// SPDX-License-Identifier: Apache-2.0
//
// The checksum of HDF5's metadata: Bob Jenkins' lookup3 hash, little-endian form, initial value 0.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Fiber::Container {

std::uint32_t lookup3(std::span<const std::byte> bytes);

}  // namespace Fiber::Container
