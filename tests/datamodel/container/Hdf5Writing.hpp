// SPDX-License-Identifier: Apache-2.0
//
// What other programs do to files through the HDF5 library, for tests. Requires Hdf5Lock to be
// held.

#pragma once

#include <span>
#include <string>
#include <vector>

#include "datamodel/container/ChunkCodec.hpp"
#include "datamodel/container/Hdf5Types.hpp"

namespace Fiber::Container {

/// Opens a file for changes; a failure fails the test.
FileHandle openToChange(const std::string& path);

/// How a dataset is stored: in chunks of these extents through those filters.
PropertyHandle chunkedCreation(std::span<const hsize_t> chunk, ChunkFilter filter);

/// A text type of fixed length, padded with zero bytes.
DatatypeHandle fixedText(std::size_t length);

/// Put an attribute in the place of whatever has its name. A failure fails the test.
void putNumber(hid_t object, const char* name, double number);
void putNumber(hid_t object, const char* name, std::uint32_t number);
void putText(hid_t object, const char* name, const std::string& text);
void putTexts(hid_t object, const char* name, const std::vector<std::string>& texts);

}  // namespace Fiber::Container
