// SPDX-License-Identifier: Apache-2.0
//
// HuffmanBlock: a deflate block without a search for matches: every byte for itself. Looking for
// matches takes several times as long, and finds nothing of use in numbers whose bytes vary but
// rarely repeat each other. Built with ISA-L only, which makes the codes.

#pragma once

#include <isa-l/igzip_lib.h>

#include <cstddef>
#include <span>

namespace Fiber::Container {

/// Writes a block of literals that ends at a whole byte, and that others must follow. Returns its
/// length; 0 when `out` may not have room for it, of which some is written then. Requires: tables
/// with codes for all that `plain` holds.
std::size_t writeLiterals(std::span<const std::byte> plain, const isal_hufftables& tables,
                          std::span<std::byte> out);

/// Adds the bytes to a histogram as literals, and one end of block.
void countLiterals(std::span<const std::byte> plain, isal_huff_histogram& histogram);

}  // namespace Fiber::Container
