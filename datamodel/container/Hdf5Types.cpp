// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Hdf5Types.hpp"

#include <algorithm>
#include <array>
#include <bit>

namespace Fiber::Container {

static_assert(std::endian::native == std::endian::little, "bundle files are little-endian");

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

DatatypeHandle pointType() {
  DatatypeHandle type(H5Tcreate(H5T_COMPOUND, sizeof(Eagle::PhysicalSpace::point)));
  H5Tinsert(type.get(), "x", offsetof(Eagle::PhysicalSpace::point, x), H5T_IEEE_F64LE);
  H5Tinsert(type.get(), "y", offsetof(Eagle::PhysicalSpace::point, y), H5T_IEEE_F64LE);
  H5Tinsert(type.get(), "z", offsetof(Eagle::PhysicalSpace::point, z), H5T_IEEE_F64LE);
  return type;
}

DatatypeHandle textType(std::size_t length) {
  DatatypeHandle type(H5Tcopy(H5T_C_S1));
  H5Tset_size(type.get(), std::max<std::size_t>(length, 1));
  H5Tset_strpad(type.get(), H5T_STR_NULLPAD);
  H5Tset_cset(type.get(), H5T_CSET_UTF8);
  return type;
}

PropertyHandle fileAccess(FileFormat format) {
  PropertyHandle access(H5Pcreate(H5P_FILE_ACCESS));
  const H5F_libver_t version = format == FileFormat::kCompressed ? H5F_LIBVER_V110 : H5F_LIBVER_V18;
  H5Pset_libver_bounds(access.get(), version, H5F_LIBVER_V110);
  H5Pset_fclose_degree(access.get(), H5F_CLOSE_SEMI);
  // Writers own their temporaries alone, and readers must not lock out a run on another machine.
  H5Pset_file_locking(access.get(), false, true);
  if (format == FileFormat::kRaw) {
    constexpr hsize_t kAlignFromBytes = 4096;
    constexpr hsize_t kAlignmentBytes = 64;
    H5Pset_alignment(access.get(), kAlignFromBytes, kAlignmentBytes);
  }
  return access;
}

namespace {

/// Up to this many attributes or members stay in the object's own header, which has a checksum and
/// is read in one go: quicker than the library's structures for many, and sounder when damaged.
constexpr unsigned kMostInHeader = 500;

void keepAttributesInHeader(const PropertyHandle& creation) {
  H5Pset_attr_phase_change(creation.get(), kMostInHeader, kMostInHeader - 1);
}

void keepInHeader(const PropertyHandle& creation) {
  H5Pset_link_phase_change(creation.get(), kMostInHeader, kMostInHeader - 1);
  keepAttributesInHeader(creation);
}

}  // namespace

// Times in a file would make two runs over the same data differ.
PropertyHandle fileCreation() {
  PropertyHandle creation(H5Pcreate(H5P_FILE_CREATE));
  H5Pset_obj_track_times(creation.get(), false);
  keepInHeader(creation);
  return creation;
}

PropertyHandle groupCreation() {
  PropertyHandle creation(H5Pcreate(H5P_GROUP_CREATE));
  H5Pset_obj_track_times(creation.get(), false);
  keepInHeader(creation);
  return creation;
}

PropertyHandle linkCreation() {
  PropertyHandle creation(H5Pcreate(H5P_LINK_CREATE));
  H5Pset_char_encoding(creation.get(), H5T_CSET_UTF8);
  return creation;
}

PropertyHandle datasetCreation(const StorageLayout& layout) {
  PropertyHandle creation(H5Pcreate(H5P_DATASET_CREATE));
  H5Pset_obj_track_times(creation.get(), false);
  H5Pset_fill_time(creation.get(), H5D_FILL_TIME_NEVER);
  keepAttributesInHeader(creation);
  if (layout.chunkExtents.empty()) {
    H5Pset_layout(creation.get(), H5D_CONTIGUOUS);
    H5Pset_alloc_time(creation.get(), H5D_ALLOC_TIME_EARLY);
    return creation;
  }
  H5Pset_chunk(creation.get(), static_cast<int>(layout.chunkExtents.size()),
               layout.chunkExtents.data());
  constexpr unsigned kLevel = 1;
  if (layout.filter.shuffle) H5Pset_shuffle(creation.get());
  if (layout.filter.deflate) H5Pset_deflate(creation.get(), kLevel);
  if (layout.filter.checksum) H5Pset_fletcher32(creation.get());
  return creation;
}

}  // namespace Fiber::Container
