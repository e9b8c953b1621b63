// SPDX-License-Identifier: Apache-2.0
//
// Attributes of groups and datasets: typed chunks of the data model, and the few numbers and texts
// that the bundle format itself keeps. Only small values: the library keeps large ones outside its
// checksummed blocks, and reads whatever a damaged one claims to be (see ValueDatasets).
// Everything here requires Hdf5Lock to be held.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/memcore/Chunk.hpp"

namespace Fiber::Container {

/// Writes one value. Errors: "attribute <name>: ..." when its element type is none that files can
/// hold or the library refuses.
MemCore::Outcome<void> writeAttribute(hid_t object, const std::string& storedName,
                                      const MemCore::ChunkBase& value);
/// Writes the one element of a chunk as a scalar. Errors: as writeAttribute.
MemCore::Outcome<void> writeScalar(hid_t object, const std::string& storedName,
                                   const MemCore::ChunkBase& value);

/// Reads one value. Errors: "attribute <name>: ..." when it is missing, of a form that bundle
/// files do not use, or claims more than `byteLimit` bytes.
MemCore::Outcome<MemCore::StrongPtr<MemCore::ChunkBase>> readAttribute(
    hid_t object, const std::string& storedName, std::uint64_t byteLimit);

/// The stored names of all attributes of an object, in ascending order.
MemCore::Outcome<std::vector<std::string>> attributeNames(hid_t object);

bool hasAttribute(hid_t object, const std::string& storedName);

/// Writes numbers, one number (as a scalar), a text, or a list of texts of the format itself.
template <class T>
MemCore::Outcome<void> writeNumbers(hid_t object, const std::string& name,
                                    std::span<const T> numbers) {
  return writeAttribute(object, name, MemCore::Chunk<T>(numbers));
}
template <class T>
MemCore::Outcome<void> writeNumber(hid_t object, const std::string& name, T number) {
  return writeScalar(object, name, MemCore::Chunk<T>{number});
}
MemCore::Outcome<void> writeText(hid_t object, const std::string& name, std::string_view text);
MemCore::Outcome<void> writeTexts(hid_t object, const std::string& name,
                                  const std::vector<std::string>& texts);

/// Reads exactly `count` numbers of exactly that type. Errors: missing, or of another kind.
template <class T>
MemCore::Outcome<std::vector<T>> readNumbers(hid_t object, const std::string& name,
                                             std::size_t count);
template <class T>
MemCore::Outcome<T> readNumber(hid_t object, const std::string& name) {
  auto numbers = readNumbers<T>(object, name, 1);
  if (!numbers.ok()) return numbers.failure();
  return numbers->front();
}
MemCore::Outcome<std::string> readText(hid_t object, const std::string& name,
                                       std::uint64_t byteLimit);
MemCore::Outcome<std::vector<std::string>> readTexts(hid_t object, const std::string& name,
                                                     std::uint64_t byteLimit);

extern template MemCore::Outcome<std::vector<std::uint32_t>> readNumbers(hid_t, const std::string&,
                                                                         std::size_t);
extern template MemCore::Outcome<std::vector<std::int32_t>> readNumbers(hid_t, const std::string&,
                                                                        std::size_t);
extern template MemCore::Outcome<std::vector<std::uint64_t>> readNumbers(hid_t, const std::string&,
                                                                         std::size_t);
extern template MemCore::Outcome<std::vector<double>> readNumbers(hid_t, const std::string&,
                                                                  std::size_t);

}  // namespace Fiber::Container
