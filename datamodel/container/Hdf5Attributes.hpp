// SPDX-License-Identifier: Apache-2.0
//
// Attributes of groups and datasets: the data model's typed chunks with exact type and value, and
// the few numbers and texts that the bundle format itself keeps. Numbers are one-dimensional
// arrays, points compounds {x, y, z}, vectors arrays of three, texts fixed-length strings, raw
// bytes opaque. Everything here requires Hdf5Lock to be held.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/memcore/Attributes.hpp"

namespace Fiber::Container {

/// Writes one value. Errors: "attribute <name>: ..." when its element type is none that files can
/// hold (numbers, point, vector3, char, std::byte) or the library refuses.
MemCore::Outcome<void> writeAttribute(hid_t object, const std::string& storedName,
                                      const MemCore::ChunkBase& value);

/// Reads one value of any of those types. Errors: "attribute <name>: ..." when it is missing, of
/// another type, or claims more than `byteLimit` bytes.
MemCore::Outcome<MemCore::StrongPtr<MemCore::ChunkBase>> readAttribute(
    hid_t object, const std::string& storedName, std::uint64_t byteLimit);

/// The stored names of all attributes of an object, in ascending order.
MemCore::Outcome<std::vector<std::string>> attributeNames(hid_t object);

bool hasAttribute(hid_t object, const std::string& storedName);

/// Writes numbers, or a text, of the format itself.
template <class T>
MemCore::Outcome<void> writeNumbers(hid_t object, const std::string& name,
                                    std::span<const T> numbers) {
  return writeAttribute(object, name, MemCore::Chunk<T>(numbers));
}
template <class T>
MemCore::Outcome<void> writeNumber(hid_t object, const std::string& name, T number) {
  return writeNumbers<T>(object, name, std::span<const T>(&number, 1));
}
MemCore::Outcome<void> writeText(hid_t object, const std::string& name, std::string_view text);
/// Writes a list of texts, as an array of strings of one length.
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
