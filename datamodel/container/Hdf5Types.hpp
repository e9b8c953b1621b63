// SPDX-License-Identifier: Apache-2.0
//
// HDF5 datatypes of the numbers that the data model knows, and the property lists of bundle files.
// Files are little-endian, as is every machine that this system supports: numbers pass between
// file and memory without conversion.

#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "datamodel/container/ChunkCodec.hpp"
#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/fiber/FiberType.hpp"

namespace Fiber::Container {

/// The file type of a kind of number; owned by the library. Requires: Hdf5Lock held.
hid_t hdf5Type(ScalarKind kind);

/// The kind of number that a type holds; empty when it is none of ours (big-endian ones included).
/// Requires: Hdf5Lock held.
std::optional<ScalarKind> scalarKindOf(hid_t type);

/// The compound {x, y, z} of doubles that stands for a point. Requires: Hdf5Lock held.
DatatypeHandle pointType();

/// A fixed-length text of `length` bytes (at least 1), padded with zero bytes.
/// Requires: Hdf5Lock held.
DatatypeHandle textType(std::size_t length);

/// How a file is opened or created. Compressed files take the 1.10 format, whose metadata and
/// chunk indexes are checksummed; raw ones the 1.8 format, which older readers know as well.
enum class FileFormat { kCompressed, kRaw };
PropertyHandle fileAccess(FileFormat format);
PropertyHandle fileCreation();
PropertyHandle groupCreation();
PropertyHandle linkCreation();

/// How the values of a dataset lie in the file. Without chunk extents: in one piece, allocated
/// when the dataset is made.
struct StorageLayout {
  std::span<const hsize_t> chunkExtents;
  ChunkFilter filter;
};
PropertyHandle datasetCreation(const StorageLayout& layout);

}  // namespace Fiber::Container
