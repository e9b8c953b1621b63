// SPDX-License-Identifier: Apache-2.0
//
// How the typed chunks of attribute tables look in a file, whether they are stored as attributes
// or as small datasets: numbers as one-dimensional arrays, points as compounds {x, y, z}, vectors
// as arrays of three, a text as one fixed-length string, raw bytes as opaque ones.

#pragma once

#include <string>
#include <vector>

#include "datamodel/container/objects/ObjectTree.hpp"
#include "datamodel/memcore/Chunk.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// The stored form of a chunk. Errors: its element type is none that files can hold (numbers,
/// point, vector3, char, std::byte).
MemCore::Outcome<ObjectValue> valueOf(const MemCore::ChunkBase& value);

/// The chunk of a stored value. Errors: a form that bundle files do not use, or other bytes than
/// the form says.
MemCore::Outcome<MemCore::StrongPtr<MemCore::ChunkBase>> chunkOf(const ObjectValue& value);

/// A list of texts as an array of strings of one length, shorter ones padded with zero bytes.
ObjectValue textListOf(const std::vector<std::string>& texts);
/// The texts of such a list. Errors: as chunkOf.
MemCore::Outcome<std::vector<std::string>> textsOf(const ObjectValue& value);

}  // namespace Fiber::Container
