// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Hdf5Attributes.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "datamodel/container/Hdf5Types.hpp"

namespace Fiber::Container {

using MemCore::Attributes;
using MemCore::Chunk;
using MemCore::ChunkBase;
using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

using Eagle::PhysicalSpace;
using Vector3 = Eagle::FixedArray<double, 3>;

Failure attributeFailure(const std::string& name, std::string_view what) {
  return Failure{fmt::format("attribute {}: {}", name, what)};
}

DatatypeHandle byteType() { return DatatypeHandle(H5Tcreate(H5T_OPAQUE, 1)); }

DatatypeHandle vectorType() {
  constexpr hsize_t kComponents = 3;
  return DatatypeHandle(H5Tarray_create2(H5T_IEEE_F64LE, 1, &kComponents));
}

/// One element type that an attribute can have: its file type, and how to make its chunk.
struct AttributeKind {
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
const std::array<AttributeKind, 13>& attributeKinds() {
  static const std::array<AttributeKind, 13> kinds = {{
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

Outcome<void> writeValue(hid_t object, const std::string& name, hid_t type, hid_t space,
                         const void* value) {
  auto attribute = ownHdf5<AttributeHandle>(
      H5Acreate2(object, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT),
      fmt::format("attribute {}: cannot be made", name));
  if (!attribute.ok()) return attribute.failure();
  const std::string what = fmt::format("attribute {}: cannot be written", name);
  if (value != nullptr) {
    if (auto written = checkHdf5(H5Awrite(attribute->get(), type, value), what); !written.ok()) {
      return written;
    }
  }
  return attribute->close(what);
}

DataspaceHandle listSpace(std::size_t count) {
  const hsize_t extent = count;
  return DataspaceHandle(H5Screate_simple(1, &extent, nullptr));
}

/// An attribute as found in a file, its extent already judged.
struct FoundAttribute {
  AttributeHandle attribute;
  DatatypeHandle type;
  std::size_t elementBytes = 0;
  std::uint64_t count = 0;
};

Outcome<FoundAttribute> openAttribute(hid_t object, const std::string& name,
                                      std::uint64_t byteLimit) {
  auto attribute = ownHdf5<AttributeHandle>(H5Aopen(object, name.c_str(), H5P_DEFAULT),
                                            fmt::format("attribute {}: missing", name));
  if (!attribute.ok()) return attribute.failure();
  FoundAttribute found;
  found.attribute = std::move(attribute).value();
  found.type = DatatypeHandle(H5Aget_type(found.attribute.get()));
  const DataspaceHandle space(H5Aget_space(found.attribute.get()));
  if (!found.type.ok() || !space.ok()) return attributeFailure(name, takeHdf5Error());
  found.elementBytes = H5Tget_size(found.type.get());
  const hssize_t count = H5Sget_simple_extent_npoints(space.get());
  if (H5Sget_simple_extent_ndims(space.get()) > 1 || count < 0 || found.elementBytes == 0) {
    return attributeFailure(name, "no list of values");
  }
  found.count = static_cast<std::uint64_t>(count);
  if (found.count > byteLimit / found.elementBytes) {
    return attributeFailure(name, fmt::format("claims {} values of {} bytes, more than the file",
                                              found.count, found.elementBytes));
  }
  return found;
}

bool isFixedText(hid_t type) {
  return H5Tget_class(type) == H5T_STRING && H5Tis_variable_str(type) == 0;
}

/// The text of one string attribute; a null dataspace (count 0) is the empty text.
Outcome<StrongPtr<ChunkBase>> readTextChunk(const FoundAttribute& found, const std::string& name) {
  auto chunk = makeStrong<Chunk<char>>(found.count == 0 ? 0 : found.elementBytes);
  if (found.count > 1) return attributeFailure(name, "a list of texts, expected one");
  if (found.count == 1) {
    const auto read = checkHdf5(H5Aread(found.attribute.get(), found.type.get(), chunk->data()),
                                fmt::format("attribute {}: cannot be read", name));
    if (!read.ok()) return read.failure();
  }
  return StrongPtr<ChunkBase>(chunk);
}

}  // namespace

Outcome<void> writeAttribute(hid_t object, const std::string& storedName, const ChunkBase& value) {
  if (value.elementType() == typeid(char)) {
    return writeText(object, storedName,
                     {reinterpret_cast<const char*>(value.bytes()), value.size()});
  }
  const auto& kinds = attributeKinds();
  const auto* kind = std::find_if(kinds.begin(), kinds.end(), [&](const AttributeKind& k) {
    return *k.type == value.elementType();
  });
  if (kind == kinds.end()) {
    return attributeFailure(storedName, fmt::format("cannot be stored, found element type \"{}\"",
                                                    value.elementType().name()));
  }
  const DatatypeHandle type = kind->fileType();
  const DataspaceHandle space = listSpace(value.size());
  return writeValue(object, storedName, type.get(), space.get(),
                    value.size() == 0 ? nullptr : value.bytes());
}

Outcome<void> writeText(hid_t object, const std::string& name, std::string_view text) {
  const DatatypeHandle type = textType(text.size());
  const DataspaceHandle space(H5Screate(text.empty() ? H5S_NULL : H5S_SCALAR));
  return writeValue(object, name, type.get(), space.get(), text.empty() ? nullptr : text.data());
}

Outcome<void> writeTexts(hid_t object, const std::string& name,
                         const std::vector<std::string>& texts) {
  std::size_t length = 1;
  for (const std::string& text : texts) length = std::max(length, text.size());
  std::string padded;
  for (const std::string& text : texts) {
    padded += text;
    padded.append(length - text.size(), '\0');
  }
  const DatatypeHandle type = textType(length);
  const DataspaceHandle space = listSpace(texts.size());
  return writeValue(object, name, type.get(), space.get(), texts.empty() ? nullptr : padded.data());
}

Outcome<StrongPtr<ChunkBase>> readAttribute(hid_t object, const std::string& storedName,
                                            std::uint64_t byteLimit) {
  const auto found = openAttribute(object, storedName, byteLimit);
  if (!found.ok()) return found.failure();
  if (isFixedText(found->type.get())) return readTextChunk(*found, storedName);
  for (const AttributeKind& kind : attributeKinds()) {
    const DatatypeHandle type = kind.fileType();
    if (H5Tequal(found->type.get(), type.get()) <= 0) continue;
    const auto chunk = kind.make(static_cast<std::size_t>(found->count));
    if (found->count == 0) return chunk;
    const auto read = checkHdf5(H5Aread(found->attribute.get(), type.get(), chunk->bytes()),
                                fmt::format("attribute {}: cannot be read", storedName));
    if (!read.ok()) return read.failure();
    return chunk;
  }
  return attributeFailure(storedName, "of a type that bundle files do not use");
}

Outcome<std::vector<std::string>> attributeNames(hid_t object) {
  H5O_info_t info{};
  if (auto got = checkHdf5(H5Oget_info2(object, &info, H5O_INFO_NUM_ATTRS), "attributes");
      !got.ok()) {
    return got.failure();
  }
  std::vector<std::string> names;
  if (info.num_attrs == 0) return names;
  const auto collect = [](hid_t, const char* name, const H5A_info_t*, void* data) -> herr_t {
    static_cast<std::vector<std::string>*>(data)->emplace_back(name);
    return 0;
  };
  const herr_t walked = H5Aiterate2(object, H5_INDEX_NAME, H5_ITER_INC, nullptr, collect, &names);
  if (auto done = checkHdf5(walked, "attributes"); !done.ok()) return done.failure();
  std::sort(names.begin(), names.end());
  return names;
}

bool hasAttribute(hid_t object, const std::string& storedName) {
  return H5Aexists(object, storedName.c_str()) > 0;
}

template <class T>
Outcome<std::vector<T>> readNumbers(hid_t object, const std::string& name, std::size_t count) {
  const auto chunk = readAttribute(object, name, count * sizeof(T));
  if (!chunk.ok()) return chunk.failure();
  const auto numbers = MemCore::chunkCast<T>(*chunk);
  if (!numbers || numbers->size() != count) {
    return attributeFailure(name, fmt::format("of another type or length, expected {} values of "
                                              "{} bytes",
                                              count, sizeof(T)));
  }
  return std::vector<T>(numbers->begin(), numbers->end());
}

template Outcome<std::vector<std::uint32_t>> readNumbers(hid_t, const std::string&, std::size_t);
template Outcome<std::vector<std::int32_t>> readNumbers(hid_t, const std::string&, std::size_t);
template Outcome<std::vector<std::uint64_t>> readNumbers(hid_t, const std::string&, std::size_t);
template Outcome<std::vector<double>> readNumbers(hid_t, const std::string&, std::size_t);

Outcome<std::string> readText(hid_t object, const std::string& name, std::uint64_t byteLimit) {
  const auto chunk = readAttribute(object, name, byteLimit);
  if (!chunk.ok()) return chunk.failure();
  const auto text = MemCore::chunkCast<char>(*chunk);
  if (!text) return attributeFailure(name, "no text");
  return std::string(text->begin(), text->end());
}

Outcome<std::vector<std::string>> readTexts(hid_t object, const std::string& name,
                                            std::uint64_t byteLimit) {
  const auto found = openAttribute(object, name, byteLimit);
  if (!found.ok()) return found.failure();
  if (!isFixedText(found->type.get())) return attributeFailure(name, "no list of texts");
  std::string padded(static_cast<std::size_t>(found->count) * found->elementBytes, '\0');
  if (found->count != 0) {
    const auto read = checkHdf5(H5Aread(found->attribute.get(), found->type.get(), padded.data()),
                                fmt::format("attribute {}: cannot be read", name));
    if (!read.ok()) return read.failure();
  }
  std::vector<std::string> texts;
  for (std::size_t start = 0; start < padded.size(); start += found->elementBytes) {
    const std::string text = padded.substr(start, found->elementBytes);
    texts.push_back(text.substr(0, text.find('\0')));
  }
  return texts;
}

}  // namespace Fiber::Container
