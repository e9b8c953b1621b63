// SPDX-License-Identifier: Apache-2.0
//
// A tree of objects as the metadata of an HDF5 file: object headers of version 2 with all links and
// attributes inside, one behind the other in one block, children before their parents. Every HDF5
// reader since 1.8 understands it (1.10 where there are chunks). Written here and not by the HDF5
// library because a file of a few hundred kilobytes takes the library, and with it every other
// thread, longer than all of its points.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "datamodel/container/objects/ObjectTree.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

inline constexpr std::size_t kSuperblockBytes = 48;

struct EncodedTree {
  std::vector<std::byte> bytes;  ///< to be written at the address asked for
  std::uint64_t rootAddress = 0;
};

/// Lays a tree down as a block that begins at `address` of the file. Errors: "<name>: ..." when a
/// value or a type is larger than a message of the format (64 KiB).
MemCore::Outcome<EncodedTree> encodeTree(const ObjectGroup& root, std::uint64_t address);

/// What stands at the very beginning of a file of `fileBytes`. Files with chunks need a reader of
/// HDF5 1.10, and say so.
std::array<std::byte, kSuperblockBytes> encodeSuperblock(std::uint64_t rootAddress,
                                                         std::uint64_t fileBytes, bool hasChunks);

}  // namespace Fiber::Container
