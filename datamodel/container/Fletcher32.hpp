// SPDX-License-Identifier: Apache-2.0
//
// Fletcher's 32-bit checksum as HDF5's checksum filter defines it (big-endian 16-bit words, an odd
// last byte as a high one). Every filtered chunk ends with it: the Adler-32 within a zlib stream
// misses one flipped bit in some thousands when the data have few different values, this sum
// notices every single one.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Fiber::Container {

/// The checksum of `bytes`. Source: HDF5 file format specification, Fletcher32 filter.
std::uint32_t fletcher32(std::span<const std::byte> bytes);

}  // namespace Fiber::Container
