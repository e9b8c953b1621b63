// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/StoredValue.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "datamodel/container/Hdf5Types.hpp"

namespace Fiber::Container {

using MemCore::Chunk;
using MemCore::ChunkBase;
using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

using Eagle::PhysicalSpace;
using Vector3 = Eagle::FixedArray<double, 3>;

DatatypeHandle byteType() { return DatatypeHandle(H5Tcreate(H5T_OPAQUE, 1)); }

DatatypeHandle vectorType() {
  constexpr hsize_t kComponents = 3;
  return DatatypeHandle(H5Tarray_create2(H5T_IEEE_F64LE, 1, &kComponents));
}

/// One element type that a value can have: its file type, and how to make its chunk.
struct ValueKind {
  const std::type_info* type;
  DatatypeHandle (*fileType)();
  StrongPtr<ChunkBase> (*make)(std::size_t);
};

template <class T>
StrongPtr<ChunkBase> makeChunk(std::size_t n) {
  return makeStrong<Chunk<T>>(n);
}

template <ScalarKind kKind>
DatatypeHandle numberType() {
  return DatatypeHandle(H5Tcopy(hdf5Type(kKind)));
}

/// Texts are apart: a whole chunk of char is one string, whose length is part of its type.
const std::array<ValueKind, 13>& valueKinds() {
  static const std::array<ValueKind, 13> kinds = {{
      {&typeid(double), numberType<ScalarKind::Float64>, makeChunk<double>},
      {&typeid(std::uint32_t), numberType<ScalarKind::UInt32>, makeChunk<std::uint32_t>},
      {&typeid(PhysicalSpace::point), pointType, makeChunk<PhysicalSpace::point>},
      {&typeid(std::uint64_t), numberType<ScalarKind::UInt64>, makeChunk<std::uint64_t>},
      {&typeid(std::int32_t), numberType<ScalarKind::Int32>, makeChunk<std::int32_t>},
      {&typeid(std::int64_t), numberType<ScalarKind::Int64>, makeChunk<std::int64_t>},
      {&typeid(std::uint8_t), numberType<ScalarKind::UInt8>, makeChunk<std::uint8_t>},
      {&typeid(std::int8_t), numberType<ScalarKind::Int8>, makeChunk<std::int8_t>},
      {&typeid(std::uint16_t), numberType<ScalarKind::UInt16>, makeChunk<std::uint16_t>},
      {&typeid(std::int16_t), numberType<ScalarKind::Int16>, makeChunk<std::int16_t>},
      {&typeid(float), numberType<ScalarKind::Float32>, makeChunk<float>},
      {&typeid(Vector3), vectorType, makeChunk<Vector3>},
      {&typeid(std::byte), byteType, makeChunk<std::byte>},
  }};
  return kinds;
}

DataspaceHandle listSpace(std::size_t count) {
  const hsize_t extent = count;
  return DataspaceHandle(H5Screate_simple(1, &extent, nullptr));
}

bool isFixedText(hid_t type) {
  return H5Tget_class(type) == H5T_STRING && H5Tis_variable_str(type) == 0;
}

/// Elements of a found value; a null dataspace has none.
Outcome<std::uint64_t> countOf(const ValueForm& found, std::uint64_t byteLimit) {
  if (!found.type.ok() || !found.space.ok()) return Failure{takeHdf5Error()};
  const std::size_t elementBytes = H5Tget_size(found.type.get());
  const hssize_t count = H5Sget_simple_extent_npoints(found.space.get());
  if (H5Sget_simple_extent_ndims(found.space.get()) > 1 || count < 0 || elementBytes == 0) {
    return Failure{"no list of values"};
  }
  if (static_cast<std::uint64_t>(count) > byteLimit / elementBytes) {
    return Failure{
        fmt::format("claims {} values of {} bytes, more than the file", count, elementBytes)};
  }
  return static_cast<std::uint64_t>(count);
}

}  // namespace

Outcome<ValueForm> formOf(const ChunkBase& value) {
  if (value.elementType() == typeid(char)) {
    return ValueForm{textType(value.size()),
                     DataspaceHandle(H5Screate(value.size() == 0 ? H5S_NULL : H5S_SCALAR))};
  }
  const auto& kinds = valueKinds();
  const auto* kind = std::find_if(kinds.begin(), kinds.end(), [&](const ValueKind& k) {
    return *k.type == value.elementType();
  });
  if (kind == kinds.end()) {
    return Failure{
        fmt::format("cannot be stored, found element type \"{}\"", value.elementType().name())};
  }
  return ValueForm{kind->fileType(), listSpace(value.size())};
}

Outcome<StrongPtr<ChunkBase>> chunkFor(const ValueForm& found, std::uint64_t byteLimit) {
  const auto count = countOf(found, byteLimit);
  if (!count.ok()) return count.failure();
  if (isFixedText(found.type.get())) {
    if (*count > 1) return Failure{"a list of texts, expected one"};
    const std::size_t length = *count == 0 ? 0 : H5Tget_size(found.type.get());
    return StrongPtr<ChunkBase>(makeStrong<Chunk<char>>(length));
  }
  for (const ValueKind& kind : valueKinds()) {
    const DatatypeHandle type = kind.fileType();
    if (H5Tequal(found.type.get(), type.get()) > 0) {
      return kind.make(static_cast<std::size_t>(*count));
    }
  }
  return Failure{"of a type that bundle files do not use"};
}

TextList textListOf(const std::vector<std::string>& texts) {
  std::size_t length = 1;
  for (const std::string& text : texts) length = std::max(length, text.size());
  TextList list{{textType(length), listSpace(texts.size())}, {}};
  list.padded.reserve(length * texts.size());
  for (const std::string& text : texts) {
    list.padded += text;
    list.padded.append(length - text.size(), '\0');
  }
  return list;
}

Outcome<std::string> roomForTexts(const ValueForm& found, std::uint64_t byteLimit) {
  const auto count = countOf(found, byteLimit);
  if (!count.ok()) return count.failure();
  if (!isFixedText(found.type.get())) return Failure{"no list of texts"};
  return std::string(static_cast<std::size_t>(*count) * H5Tget_size(found.type.get()), '\0');
}

std::vector<std::string> textsOf(const std::string& padded, const ValueForm& found) {
  const std::size_t length = H5Tget_size(found.type.get());
  std::vector<std::string> texts;
  for (std::size_t start = 0; start < padded.size(); start += length) {
    const std::string text = padded.substr(start, length);
    texts.push_back(text.substr(0, text.find('\0')));
  }
  return texts;
}

}  // namespace Fiber::Container
