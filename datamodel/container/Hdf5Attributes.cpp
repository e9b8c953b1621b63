// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Hdf5Attributes.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "datamodel/container/StoredValue.hpp"

namespace Fiber::Container {

using MemCore::Chunk;
using MemCore::ChunkBase;
using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

Failure attributeFailure(const std::string& name, std::string_view what) {
  return Failure{fmt::format("attribute {}: {}", name, what)};
}

/// Writes a value of a form; null when there is nothing but the form.
Outcome<void> writeForm(hid_t object, const std::string& name, const ValueForm& form,
                        const void* value) {
  auto attribute = ownHdf5<AttributeHandle>(
      H5Acreate2(object, name.c_str(), form.type.get(), form.space.get(), H5P_DEFAULT, H5P_DEFAULT),
      fmt::format("attribute {}: cannot be made", name));
  if (!attribute.ok()) return attribute.failure();
  const std::string what = fmt::format("attribute {}: cannot be written", name);
  if (value != nullptr) {
    auto written = checkHdf5(H5Awrite(attribute->get(), form.type.get(), value), what);
    if (!written.ok()) return written;
  }
  return attribute->close(what);
}

struct FoundAttribute {
  AttributeHandle attribute;
  ValueForm form;
};

Outcome<FoundAttribute> openAttribute(hid_t object, const std::string& name) {
  auto attribute = ownHdf5<AttributeHandle>(H5Aopen(object, name.c_str(), H5P_DEFAULT),
                                            fmt::format("attribute {}: missing", name));
  if (!attribute.ok()) return attribute.failure();
  FoundAttribute found;
  found.attribute = std::move(attribute).value();
  found.form = {DatatypeHandle(H5Aget_type(found.attribute.get())),
                DataspaceHandle(H5Aget_space(found.attribute.get()))};
  return found;
}

Outcome<void> readInto(const FoundAttribute& found, const std::string& name, void* bytes) {
  return checkHdf5(H5Aread(found.attribute.get(), found.form.type.get(), bytes),
                   fmt::format("attribute {}: cannot be read", name));
}

}  // namespace

Outcome<void> writeAttribute(hid_t object, const std::string& storedName, const ChunkBase& value) {
  const auto form = formOf(value);
  if (!form.ok()) return attributeFailure(storedName, form.error());
  return writeForm(object, storedName, *form, value.size() == 0 ? nullptr : value.bytes());
}

Outcome<void> writeScalar(hid_t object, const std::string& storedName, const ChunkBase& value) {
  auto form = formOf(value);
  if (!form.ok()) return attributeFailure(storedName, form.error());
  form->space = DataspaceHandle(H5Screate(H5S_SCALAR));
  return writeForm(object, storedName, *form, value.bytes());
}

Outcome<void> writeText(hid_t object, const std::string& name, std::string_view text) {
  return writeAttribute(object, name, Chunk<char>(std::span<const char>(text)));
}

Outcome<void> writeTexts(hid_t object, const std::string& name,
                         const std::vector<std::string>& texts) {
  const TextList list = textListOf(texts);
  return writeForm(object, name, list.form, texts.empty() ? nullptr : list.padded.data());
}

Outcome<StrongPtr<ChunkBase>> readAttribute(hid_t object, const std::string& storedName,
                                            std::uint64_t byteLimit) {
  const auto found = openAttribute(object, storedName);
  if (!found.ok()) return found.failure();
  auto chunk = chunkFor(found->form, byteLimit);
  if (!chunk.ok()) return attributeFailure(storedName, chunk.error());
  if ((*chunk)->size() == 0) return chunk;
  const auto read = readInto(*found, storedName, (*chunk)->bytes());
  if (!read.ok()) return read.failure();
  return chunk;
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
  // In the order of storage, for the reason given in Hdf5Walk.
  const herr_t walked =
      H5Aiterate2(object, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, collect, &names);
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
  const auto found = openAttribute(object, name);
  if (!found.ok()) return found.failure();
  auto padded = roomForTexts(found->form, byteLimit);
  if (!padded.ok()) return attributeFailure(name, padded.error());
  if (!padded->empty()) {
    const auto read = readInto(*found, name, padded->data());
    if (!read.ok()) return read.failure();
  }
  return textsOf(*padded, found->form);
}

}  // namespace Fiber::Container
