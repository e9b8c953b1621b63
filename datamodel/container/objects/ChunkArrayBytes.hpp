// SPDX-License-Identifier: Apache-2.0
//
// The list of a dataset's chunks as HDF5's fixed array: a header, and a data block that is cut into
// pages where there are many chunks. Only for chunks that go through filters, as all of bundle
// files do.

#pragma once

#include <functional>
#include <optional>

#include "datamodel/container/objects/ByteSink.hpp"
#include "datamodel/container/objects/ObjectTree.hpp"

namespace Fiber::Container {

/// Elements of a page, as a power of two: the library's own choice.
inline constexpr std::uint8_t kChunkArrayPageBits = 10;

/// Appends the array; `start` is the address of the sink's first byte in the file, `chunkBytes` the
/// plain size of a chunk. Returns the header's address.
std::uint64_t encodeChunkArray(ByteSink& sink, std::uint64_t start,
                               const std::vector<ChunkPlace>& chunks, std::uint64_t chunkBytes);

/// Bytes of a file from an address on: exactly as many as asked for, or none.
using ReadBytes =
    std::function<std::vector<std::byte>(std::uint64_t address, std::uint64_t byteCount)>;

/// Reads `count` chunks back. Empty: there is no sound array of that many at the address.
std::optional<std::vector<ChunkPlace>> decodeChunkArray(const ReadBytes& read,
                                                        std::uint64_t address, std::uint64_t count,
                                                        std::uint64_t chunkBytes);

}  // namespace Fiber::Container
