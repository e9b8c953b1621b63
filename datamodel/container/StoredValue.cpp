// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/StoredValue.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "datamodel/eagle/PhysicalSpace.hpp"

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

ObjectType pointType() {
  const ObjectType coordinate = ObjectType::number(ScalarKind::Float64);
  return {ObjectType::Kind::kRecord,
          ScalarKind::UInt8,
          sizeof(PhysicalSpace::point),
          {{"x", offsetof(PhysicalSpace::point, x), coordinate},
           {"y", offsetof(PhysicalSpace::point, y), coordinate},
           {"z", offsetof(PhysicalSpace::point, z), coordinate}}};
}

ObjectType vectorType() { return ObjectType::numbers(ScalarKind::Float64, 3); }

/// One element type that a value can have: its stored type, and how to make its chunk.
struct ValueKind {
  const std::type_info* type;
  ObjectType stored;
  StrongPtr<ChunkBase> (*make)(std::size_t);
};

template <class T>
StrongPtr<ChunkBase> makeChunk(std::size_t n) {
  return makeStrong<Chunk<T>>(n);
}

template <class T>
ValueKind numberKind(ScalarKind kind) {
  return {&typeid(T), ObjectType::number(kind), makeChunk<T>};
}

/// Texts are apart: a whole chunk of char is one string, whose length is part of its type.
const std::array<ValueKind, 13>& valueKinds() {
  static const std::array<ValueKind, 13> kinds = {{
      numberKind<double>(ScalarKind::Float64),
      numberKind<std::uint32_t>(ScalarKind::UInt32),
      {&typeid(PhysicalSpace::point), pointType(), makeChunk<PhysicalSpace::point>},
      numberKind<std::uint64_t>(ScalarKind::UInt64),
      numberKind<std::int32_t>(ScalarKind::Int32),
      numberKind<std::int64_t>(ScalarKind::Int64),
      numberKind<std::uint8_t>(ScalarKind::UInt8),
      numberKind<std::int8_t>(ScalarKind::Int8),
      numberKind<std::uint16_t>(ScalarKind::UInt16),
      numberKind<std::int16_t>(ScalarKind::Int16),
      numberKind<float>(ScalarKind::Float32),
      {&typeid(Vector3), vectorType(), makeChunk<Vector3>},
      {&typeid(std::byte), ObjectType::byte(), makeChunk<std::byte>},
  }};
  return kinds;
}

/// Elements of a value, which must be one, or a list, and all there.
Outcome<std::size_t> countOf(const ObjectValue& value) {
  if (value.extents.rank > 1 || value.type.bytes == 0) return Failure{"no list of values"};
  const std::uint64_t count = value.extents.counts[0];
  if (value.bytes.size() % value.type.bytes != 0 ||
      count != value.bytes.size() / value.type.bytes) {
    return Failure{fmt::format("claims {} values of {} bytes, found {} bytes", count,
                               value.type.bytes, value.bytes.size())};
  }
  return static_cast<std::size_t>(count);
}

StrongPtr<ChunkBase> filled(const StrongPtr<ChunkBase>& chunk, const ObjectValue& value) {
  if (!value.bytes.empty()) std::memcpy(chunk->bytes(), value.bytes.data(), value.bytes.size());
  return chunk;
}

std::vector<std::byte> copyOf(const ChunkBase& value) {
  if (value.size() == 0) return {};
  return {value.bytes(), value.bytes() + value.byteCount()};
}

}  // namespace

Outcome<ObjectValue> valueOf(const ChunkBase& value) {
  if (value.elementType() == typeid(char)) {
    return ObjectValue{ObjectType::text(value.size()),
                       value.size() == 0 ? ObjectExtents::none() : ObjectExtents::one(),
                       copyOf(value)};
  }
  const auto& kinds = valueKinds();
  const auto* kind = std::find_if(kinds.begin(), kinds.end(), [&](const ValueKind& k) {
    return *k.type == value.elementType();
  });
  if (kind == kinds.end()) {
    return Failure{
        fmt::format("cannot be stored, found element type \"{}\"", value.elementType().name())};
  }
  return ObjectValue{kind->stored, ObjectExtents::list(value.size()), copyOf(value)};
}

Outcome<StrongPtr<ChunkBase>> chunkOf(const ObjectValue& value) {
  if (value.type.kind == ObjectType::Kind::kForeign) {
    return Failure{"of a type that bundle files do not use"};
  }
  const auto count = countOf(value);
  if (!count.ok()) return count.failure();
  if (value.type.kind == ObjectType::Kind::kText) {
    if (*count > 1) return Failure{"a list of texts, expected one"};
    return filled(makeStrong<Chunk<char>>(value.bytes.size()), value);
  }
  for (const ValueKind& kind : valueKinds()) {
    if (value.type == kind.stored) return filled(kind.make(*count), value);
  }
  return Failure{"of a type that bundle files do not use"};
}

ObjectValue textListOf(const std::vector<std::string>& texts) {
  std::size_t length = 1;
  for (const std::string& text : texts) length = std::max(length, text.size());
  ObjectValue list{ObjectType::text(length), ObjectExtents::list(texts.size()), {}};
  list.bytes.resize(length * texts.size());
  for (std::size_t t = 0; t < texts.size(); ++t) {
    std::ranges::copy(std::as_bytes(std::span(texts[t])),
                      list.bytes.begin() + static_cast<std::ptrdiff_t>(t * length));
  }
  return list;
}

Outcome<std::vector<std::string>> textsOf(const ObjectValue& value) {
  if (value.type.kind != ObjectType::Kind::kText) return Failure{"no list of texts"};
  const auto count = countOf(value);
  if (!count.ok()) return count.failure();
  std::vector<std::string> texts;
  texts.reserve(*count);
  for (std::size_t t = 0; t < *count; ++t) {
    const auto* text = reinterpret_cast<const char*>(value.bytes.data()) + t * value.type.bytes;
    texts.emplace_back(text, ::strnlen(text, value.type.bytes));
  }
  return texts;
}

}  // namespace Fiber::Container
