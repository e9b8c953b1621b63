// SPDX-License-Identifier: Apache-2.0
//
// Types as the HDF5 library encodes and understands them.

#include "datamodel/container/objects/TypeBytes.hpp"

#include <gtest/gtest.h>

#include "datamodel/container/Hdf5Types.hpp"

namespace Fiber::Container {
namespace {

std::vector<ObjectType> someTypes() {
  std::vector<ObjectType> types = {ObjectType::byte(), ObjectType::text(1), ObjectType::text(300),
                                   ObjectType::numbers(ScalarKind::Float64, 3),
                                   ObjectType::numbers(ScalarKind::UInt8, 70000)};
  for (const ScalarKind kind :
       {ScalarKind::Int8, ScalarKind::UInt8, ScalarKind::Int16, ScalarKind::UInt16,
        ScalarKind::Int32, ScalarKind::UInt32, ScalarKind::Int64, ScalarKind::UInt64,
        ScalarKind::Float32, ScalarKind::Float64}) {
    types.push_back(ObjectType::number(kind));
  }
  // Offsets of members take as many bytes as the size of the record needs.
  for (const std::uint32_t bytes : {24U, 255U, 256U, 65535U, 65536U, 1U << 24U}) {
    ObjectType record{ObjectType::Kind::kRecord, ScalarKind::UInt8, bytes, {}};
    record.members.push_back({"first", 0, ObjectType::number(ScalarKind::Float64)});
    record.members.push_back({"t\xC3\xA9xt", 8, ObjectType::text(5)});
    record.members.push_back({"last", bytes - 6, ObjectType::numbers(ScalarKind::Int16, 3)});
    types.push_back(record);
  }
  return types;
}

TEST(TypeBytes, EveryTypeReturns) {
  for (const ObjectType& type : someTypes()) {
    ByteSink sink;
    encodeType(sink, type);
    ByteCursor cursor(sink.from(0));
    EXPECT_EQ(decodeType(cursor), type);
    EXPECT_TRUE(cursor.ok());
    EXPECT_EQ(cursor.left(), 0U);
  }
}

TEST(TypeBytes, LibraryUnderstandsEveryType) {
  const Hdf5Lock lock;
  for (const ObjectType& type : someTypes()) {
    ByteSink sink;
    // What the library puts before an encoded type: the kind of message, and a version.
    sink.u8(3);
    sink.u8(0);
    encodeType(sink, type);
    const std::vector<std::byte> bytes = sink.take();
    const DatatypeHandle decoded(H5Tdecode(bytes.data()));
    ASSERT_TRUE(decoded.ok()) << takeHdf5Error();
    EXPECT_EQ(objectTypeOf(decoded.get()), type);
    EXPECT_EQ(H5Tget_size(decoded.get()), type.bytes);
  }
}

TEST(TypeBytes, CutTypesAreForeign) {
  for (const ObjectType& type : someTypes()) {
    ByteSink sink;
    encodeType(sink, type);
    for (std::size_t length = 0; length < sink.size(); ++length) {
      ByteCursor cursor(sink.from(0).first(length));
      EXPECT_EQ(decodeType(cursor).kind, ObjectType::Kind::kForeign);
    }
  }
}

TEST(TypeBytes, TypesOfOthersAreForeign) {
  const Hdf5Lock lock;
  for (const hid_t type : {H5T_STD_I32BE, H5T_IEEE_F64BE, H5T_STD_B32LE, H5T_UNIX_D32LE,
                           H5T_STD_REF_OBJ, H5T_VAX_F32}) {
    std::size_t size = 0;
    ASSERT_GE(H5Tencode(type, nullptr, &size), 0);
    std::vector<std::byte> bytes(size);
    ASSERT_GE(H5Tencode(type, bytes.data(), &size), 0);
    ByteCursor cursor(std::span<const std::byte>(bytes).subspan(2));
    EXPECT_EQ(decodeType(cursor).kind, ObjectType::Kind::kForeign);
    EXPECT_EQ(objectTypeOf(type).kind, ObjectType::Kind::kForeign);
  }
}

TEST(TypeBytes, ExtentsReturn) {
  for (const ObjectExtents& extents :
       {ObjectExtents::none(), ObjectExtents::one(), ObjectExtents::list(0),
        ObjectExtents::list(~std::uint64_t{0}), ObjectExtents::table(7, 3)}) {
    ByteSink sink;
    encodeExtents(sink, extents);
    ByteCursor cursor(sink.from(0));
    EXPECT_EQ(decodeExtents(cursor), extents);
    EXPECT_EQ(cursor.left(), 0U);
    ByteCursor cut(sink.from(0).first(sink.size() - 1));
    EXPECT_GT(decodeExtents(cut).rank, ObjectExtents::kMostRank);
  }
}

}  // namespace
}  // namespace Fiber::Container
