// SPDX-License-Identifier: Apache-2.0
//
// How the typed chunks of attribute tables look in a file, whether they are stored as attributes
// or as small datasets: numbers as one-dimensional arrays, points as compounds {x, y, z}, vectors
// as arrays of three, a text as one fixed-length string, raw bytes as opaque ones. Everything here
// requires Hdf5Lock to be held.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/memcore/Chunk.hpp"

namespace Fiber::Container {

/// Type and extent of a value in a file.
struct ValueForm {
  DatatypeHandle type;
  DataspaceHandle space;
};

/// The form of a chunk. Errors: its element type is none that files can hold (numbers, point,
/// vector3, char, std::byte).
MemCore::Outcome<ValueForm> formOf(const MemCore::ChunkBase& value);

/// A chunk of zeros for a value found in a file, to be filled through the found type. Errors: a
/// form that bundle files do not use, or one that claims more than `byteLimit` bytes.
MemCore::Outcome<MemCore::StrongPtr<MemCore::ChunkBase>> chunkFor(const ValueForm& found,
                                                                  std::uint64_t byteLimit);

/// A list of texts as an array of strings of one length, shorter ones padded with zero bytes.
struct TextList {
  ValueForm form;
  std::string padded;
};
TextList textListOf(const std::vector<std::string>& texts);
/// Room for a list found in a file, to be filled through the found type. Errors: as chunkFor.
MemCore::Outcome<std::string> roomForTexts(const ValueForm& found, std::uint64_t byteLimit);
/// The texts of a filled list.
std::vector<std::string> textsOf(const std::string& padded, const ValueForm& found);

}  // namespace Fiber::Container
