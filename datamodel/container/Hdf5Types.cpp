// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Hdf5Types.hpp"

#include <algorithm>
#include <array>

namespace Fiber::Container {

hid_t hdf5Type(ScalarKind kind) {
  switch (kind) {
    case ScalarKind::Int8:
      return H5T_STD_I8LE;
    case ScalarKind::UInt8:
      return H5T_STD_U8LE;
    case ScalarKind::Int16:
      return H5T_STD_I16LE;
    case ScalarKind::UInt16:
      return H5T_STD_U16LE;
    case ScalarKind::Int32:
      return H5T_STD_I32LE;
    case ScalarKind::UInt32:
      return H5T_STD_U32LE;
    case ScalarKind::Int64:
      return H5T_STD_I64LE;
    case ScalarKind::UInt64:
      return H5T_STD_U64LE;
    case ScalarKind::Float32:
      return H5T_IEEE_F32LE;
    case ScalarKind::Float64:
      return H5T_IEEE_F64LE;
  }
  return -1;
}

namespace {

std::optional<ScalarKind> scalarKindOf(hid_t type) {
  constexpr std::array kKinds = {ScalarKind::Int8,   ScalarKind::UInt8,  ScalarKind::Int16,
                                 ScalarKind::UInt16, ScalarKind::Int32,  ScalarKind::UInt32,
                                 ScalarKind::Int64,  ScalarKind::UInt64, ScalarKind::Float32,
                                 ScalarKind::Float64};
  const auto* found = std::find_if(kKinds.begin(), kKinds.end(), [&](ScalarKind kind) {
    return H5Tequal(type, hdf5Type(kind)) > 0;
  });
  return found == kKinds.end() ? std::nullopt : std::optional(*found);
}

ObjectType arrayType(hid_t type) {
  hsize_t count = 0;
  if (H5Tget_array_ndims(type) != 1 || H5Tget_array_dims2(type, &count) != 1) return {};
  const DatatypeHandle element(H5Tget_super(type));
  const auto kind = scalarKindOf(element.get());
  return kind ? ObjectType::numbers(*kind, static_cast<std::size_t>(count)) : ObjectType();
}

ObjectType byteType(hid_t type) {
  const DatatypeHandle byte(H5Tcreate(H5T_OPAQUE, 1));
  return H5Tequal(type, byte.get()) > 0 ? ObjectType::byte() : ObjectType();
}

ObjectType recordType(hid_t type) {
  ObjectType record{ObjectType::Kind::kRecord,
                    ScalarKind::UInt8,
                    static_cast<std::uint32_t>(H5Tget_size(type)),
                    {}};
  const int count = H5Tget_nmembers(type);
  for (int m = 0; m < count; ++m) {
    const auto number = static_cast<unsigned>(m);
    const DatatypeHandle member(H5Tget_member_type(type, number));
    // A record of records is none of ours, and need not be followed down.
    const bool isRecord = H5Tget_class(member.get()) == H5T_COMPOUND;
    char* name = H5Tget_member_name(type, number);
    if (name == nullptr) return {};
    record.members.push_back({name, static_cast<std::uint32_t>(H5Tget_member_offset(type, number)),
                              isRecord ? ObjectType() : objectTypeOf(member.get())});
    H5free_memory(name);
  }
  return record;
}

}  // namespace

ObjectType objectTypeOf(hid_t type) {
  switch (H5Tget_class(type)) {
    case H5T_INTEGER:
    case H5T_FLOAT:
      if (const auto kind = scalarKindOf(type)) return ObjectType::number(*kind);
      return {};
    case H5T_STRING:
      return H5Tis_variable_str(type) == 0 ? ObjectType::text(H5Tget_size(type)) : ObjectType();
    case H5T_OPAQUE:
      return byteType(type);
    case H5T_ARRAY:
      return arrayType(type);
    case H5T_COMPOUND:
      return recordType(type);
    default:
      return {};
  }
}

PropertyHandle readingAccess() {
  PropertyHandle access(H5Pcreate(H5P_FILE_ACCESS));
  H5Pset_fclose_degree(access.get(), H5F_CLOSE_SEMI);
  // Readers must not lock out a run on another machine.
  H5Pset_file_locking(access.get(), false, true);
  return access;
}

}  // namespace Fiber::Container
