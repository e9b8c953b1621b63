// SPDX-License-Identifier: Apache-2.0
//
// What the HDF5 library's types and properties mean to bundle files. Files are little-endian, as is
// every machine that this system supports: numbers pass between file and memory without
// conversion. Everything here requires Hdf5Lock to be held.

#pragma once

#include <optional>

#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/container/objects/ObjectTree.hpp"

namespace Fiber::Container {

/// The file type of a kind of number; owned by the library.
hid_t hdf5Type(ScalarKind kind);

/// The type that a library's type stands for; foreign for all that bundle files do not use
/// (big-endian numbers, texts of varying length).
ObjectType objectTypeOf(hid_t type);

/// How a file is opened for reading.
PropertyHandle readingAccess();

}  // namespace Fiber::Container
