// SPDX-License-Identifier: Apache-2.0
//
// Reads back what TreeEncoder writes, and nothing else: a file that another program has touched,
// or that is damaged, is left to the HDF5 library, which knows all of the format and says what is
// wrong. A tile's whole metadata come in with two short reads.

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "datamodel/container/objects/ObjectTree.hpp"

namespace Fiber::Container {

/// The objects of an open file of `fileBytes`. Empty: not written by TreeEncoder alone, changed
/// since, damaged, or not readable.
std::optional<ObjectGroup> decodeTree(int descriptor, std::uint64_t fileBytes);

/// The chunks of a dataset that decodeTree found, `count` of them. Empty: as above.
std::optional<std::vector<ChunkPlace>> decodeChunks(int descriptor, std::uint64_t fileBytes,
                                                    const ObjectDataset& dataset,
                                                    std::uint64_t count);

}  // namespace Fiber::Container
