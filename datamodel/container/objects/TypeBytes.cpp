// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/TypeBytes.hpp"

#include <bit>
#include <optional>

namespace Fiber::Container {

namespace {

// Classes of types, and the versions of their messages. Numbers and texts never left version 1.
enum Class : std::uint8_t {
  kFixedPoint = 0,
  kFloatingPoint = 1,
  kString = 3,
  kOpaque = 5,
  kCompound = 6,
  kArray = 10,
};
constexpr std::uint8_t kSimpleVersion = 1;
constexpr std::uint8_t kComplexVersion = 3;

constexpr std::uint32_t kSignedBit = 0x08;
constexpr std::uint32_t kZeroPaddedUtf8 = 0x11;
constexpr std::uint64_t kBitsPerByte = 8;
constexpr std::uint8_t kExtentsVersion = 2;

/// The layout of IEEE numbers within their bits.
struct FloatForm {
  std::uint32_t classBits;  ///< leading mantissa bit implied; place of the sign
  std::uint8_t exponentAt, exponentBits, mantissaBits;
  std::uint32_t bias;
};
constexpr FloatForm kFloat32 = {0x1F20, 23, 8, 23, 127};
constexpr FloatForm kFloat64 = {0x3F20, 52, 11, 52, 1023};

bool isFloat(ScalarKind kind) { return kind == ScalarKind::Float32 || kind == ScalarKind::Float64; }

bool isSigned(ScalarKind kind) {
  return kind == ScalarKind::Int8 || kind == ScalarKind::Int16 || kind == ScalarKind::Int32 ||
         kind == ScalarKind::Int64;
}

void encodeHead(ByteSink& sink, Class kind, std::uint8_t version, std::uint32_t bits,
                std::uint32_t size) {
  constexpr std::size_t kClassBitBytes = 3;
  sink.u8(static_cast<std::uint8_t>(kind | (version << 4U)));
  sink.uint(bits, kClassBitBytes);
  sink.u32(size);
}

void encodeNumber(ByteSink& sink, ScalarKind kind) {
  const auto size = static_cast<std::uint32_t>(scalarBytes(kind));
  if (!isFloat(kind)) {
    encodeHead(sink, kFixedPoint, kSimpleVersion, isSigned(kind) ? kSignedBit : 0, size);
    sink.u16(0);
    sink.u16(size * kBitsPerByte);
    return;
  }
  const FloatForm& form = kind == ScalarKind::Float32 ? kFloat32 : kFloat64;
  encodeHead(sink, kFloatingPoint, kSimpleVersion, form.classBits, size);
  sink.u16(0);
  sink.u16(size * kBitsPerByte);
  sink.u8(form.exponentAt);
  sink.u8(form.exponentBits);
  sink.u8(0);
  sink.u8(form.mantissaBits);
  sink.u32(form.bias);
}

/// Bytes that the offset of a member takes: as many as the size of the record needs.
std::size_t offsetBytes(std::uint32_t recordBytes) {
  return (static_cast<std::size_t>(std::bit_width(recordBytes | 1U)) - 1) / kBitsPerByte + 1;
}

void encodeRecord(ByteSink& sink, const ObjectType& type) {
  encodeHead(sink, kCompound, kComplexVersion, static_cast<std::uint32_t>(type.members.size()),
             type.bytes);
  for (const ObjectType::Member& member : type.members) {
    sink.text(member.name);
    sink.u8(0);
    sink.uint(member.offset, offsetBytes(type.bytes));
    encodeType(sink, member.type);
  }
}

std::optional<ScalarKind> integerOf(bool hasSign, std::uint64_t size) {
  switch (size) {
    case 1:
      return hasSign ? ScalarKind::Int8 : ScalarKind::UInt8;
    case 2:
      return hasSign ? ScalarKind::Int16 : ScalarKind::UInt16;
    case 4:
      return hasSign ? ScalarKind::Int32 : ScalarKind::UInt32;
    case 8:
      return hasSign ? ScalarKind::Int64 : ScalarKind::UInt64;
    default:
      return std::nullopt;
  }
}

struct Head {
  std::uint8_t kind;
  std::uint8_t version;
  std::uint32_t bits;
  std::uint32_t size;
};

ObjectType decodeInteger(ByteCursor& cursor, const Head& head) {
  const std::uint64_t offset = cursor.u16();
  const std::uint64_t precision = cursor.u16();
  const auto kind = integerOf(head.bits == kSignedBit, head.size);
  const bool plain = offset == 0 && precision == head.size * kBitsPerByte &&
                     (head.bits == 0 || head.bits == kSignedBit);
  return kind && plain ? ObjectType::number(*kind) : ObjectType();
}

ObjectType decodeFloat(ByteCursor& cursor, const Head& head) {
  const ScalarKind kind = head.size == 4 ? ScalarKind::Float32 : ScalarKind::Float64;
  ByteSink expected;
  encodeNumber(expected, kind);
  constexpr std::size_t kHeadBytes = 8;
  const auto rest = expected.from(kHeadBytes);
  const auto found = cursor.bytes(rest.size());
  const FloatForm& form = kind == ScalarKind::Float32 ? kFloat32 : kFloat64;
  const bool same = head.bits == form.classBits && head.size == scalarBytes(kind) &&
                    found.size() == rest.size() &&
                    std::memcmp(found.data(), rest.data(), rest.size()) == 0;
  return same ? ObjectType::number(kind) : ObjectType();
}

ObjectType decodeArray(ByteCursor& cursor, const Head& head) {
  const std::uint64_t rank = cursor.u8();
  if (rank != 1) return {};
  const std::uint64_t count = cursor.u32();
  const ObjectType element = decodeType(cursor);
  if (element.kind != ObjectType::Kind::kNumber || count * element.bytes != head.size) return {};
  return ObjectType::numbers(element.scalar, static_cast<std::size_t>(count));
}

ObjectType decodeRecord(ByteCursor& cursor, const Head& head) {
  constexpr std::uint32_t kCountBits = 0xFFFF;
  ObjectType record{ObjectType::Kind::kRecord, ScalarKind::UInt8, head.size, {}};
  for (std::uint32_t m = 0; m < (head.bits & kCountBits) && cursor.ok(); ++m) {
    ObjectType::Member member;
    member.name = cursor.textToZero();
    member.offset = static_cast<std::uint32_t>(cursor.uint(offsetBytes(head.size)));
    member.type = decodeType(cursor);
    // A record of records would let the nesting grow with the file.
    const bool isPlain = member.type.kind != ObjectType::Kind::kForeign &&
                         member.type.kind != ObjectType::Kind::kRecord;
    if (!isPlain) return {};
    record.members.push_back(std::move(member));
  }
  return record;
}

ObjectType decodeKind(ByteCursor& cursor, const Head& head) {
  if (head.version == kSimpleVersion) {
    if (head.kind == kFixedPoint) return decodeInteger(cursor, head);
    if (head.kind == kFloatingPoint) return decodeFloat(cursor, head);
    if (head.kind == kString && head.bits == kZeroPaddedUtf8) return ObjectType::text(head.size);
    if (head.kind == kOpaque && head.bits == 0 && head.size == 1) return ObjectType::byte();
  }
  if (head.version == kComplexVersion) {
    if (head.kind == kArray) return decodeArray(cursor, head);
    if (head.kind == kCompound) return decodeRecord(cursor, head);
  }
  return {};
}

}  // namespace

void encodeType(ByteSink& sink, const ObjectType& type) {
  switch (type.kind) {
    case ObjectType::Kind::kNumber:
      return encodeNumber(sink, type.scalar);
    case ObjectType::Kind::kText:
      return encodeHead(sink, kString, kSimpleVersion, kZeroPaddedUtf8, type.bytes);
    case ObjectType::Kind::kByte:
      return encodeHead(sink, kOpaque, kSimpleVersion, 0, type.bytes);
    case ObjectType::Kind::kNumbers:
      encodeHead(sink, kArray, kComplexVersion, 0, type.bytes);
      sink.u8(1);
      sink.u32(type.bytes / scalarBytes(type.scalar));
      return encodeNumber(sink, type.scalar);
    case ObjectType::Kind::kRecord:
      return encodeRecord(sink, type);
    case ObjectType::Kind::kForeign:
      return;
  }
}

ObjectType decodeType(ByteCursor& cursor) {
  constexpr std::size_t kClassBitBytes = 3;
  const std::uint64_t first = cursor.u8();
  const auto bits = static_cast<std::uint32_t>(cursor.uint(kClassBitBytes));
  const auto size = static_cast<std::uint32_t>(cursor.u32());
  const ObjectType type = decodeKind(cursor, {static_cast<std::uint8_t>(first & 0x0FU),
                                              static_cast<std::uint8_t>(first >> 4U), bits, size});
  return cursor.ok() ? type : ObjectType();
}

void encodeExtents(ByteSink& sink, const ObjectExtents& extents) {
  const int rank = extents.rank == ObjectExtents::kNone ? 0 : extents.rank;
  sink.u8(kExtentsVersion);
  sink.u8(static_cast<std::uint64_t>(rank));
  sink.u8(0);
  sink.u8(extents.rank == ObjectExtents::kNone ? 2 : rank == 0 ? 0 : 1);
  for (int d = 0; d < rank; ++d) sink.u64(extents.counts[static_cast<std::size_t>(d)]);
}

ObjectExtents decodeExtents(ByteCursor& cursor) {
  const ObjectExtents foreign{ObjectExtents::kMostRank + 1, {0, 1}};
  const bool known = cursor.u8() == kExtentsVersion;
  const std::uint64_t rank = cursor.u8();
  const std::uint64_t flags = cursor.u8();
  const std::uint64_t kind = cursor.u8();
  if (!known || flags != 0 || rank > ObjectExtents::kMostRank) return foreign;
  if (kind == 2) return rank == 0 ? ObjectExtents::none() : foreign;
  if ((kind == 0) != (rank == 0) || kind > 1) return foreign;
  ObjectExtents extents{static_cast<int>(rank), {1, 1}};
  for (std::size_t d = 0; d < rank; ++d) extents.counts[d] = cursor.u64();
  return cursor.ok() ? extents : foreign;
}

}  // namespace Fiber::Container
