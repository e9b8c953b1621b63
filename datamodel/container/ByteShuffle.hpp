// SPDX-License-Identifier: Apache-2.0
//
// The byte shuffle of bundle files: byte 0 of every element first, then byte 1 of every element,
// and so on. It puts the slowly changing high bytes of numbers side by side, which is what makes
// deflate worth its time on coordinates and intensities. The order is that of the shuffle filter
// of HDF5, so that any HDF5 reader undoes it; bytes behind the last whole element stay in place.

#pragma once

#include <cstddef>
#include <span>

namespace Fiber::Container {

/// Shuffles `plain` into `shuffled`. Requires: equal sizes, no overlap, elementSize > 0.
/// Element sizes 2, 4 and 8 run vectorised; 1 is a plain copy.
void shuffleBytes(std::span<const std::byte> plain, std::size_t elementSize,
                  std::span<std::byte> shuffled);

/// The inverse of shuffleBytes, with the same requirements.
void unshuffleBytes(std::span<const std::byte> shuffled, std::size_t elementSize,
                    std::span<std::byte> plain);

}  // namespace Fiber::Container
