// SPDX-License-Identifier: Apache-2.0

#include "tests/datamodel/container/Hdf5Writing.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace Fiber::Container {

namespace {

void put(hid_t object, const char* name, hid_t type, const DataspaceHandle& space,
         const void* value) {
  if (H5Aexists(object, name) > 0) H5Adelete(object, name);
  const AttributeHandle attribute(
      H5Acreate2(object, name, type, space.get(), H5P_DEFAULT, H5P_DEFAULT));
  EXPECT_GE(H5Awrite(attribute.get(), type, value), 0) << name;
}

DataspaceHandle oneElement() { return DataspaceHandle(H5Screate(H5S_SCALAR)); }

}  // namespace

FileHandle openToChange(const std::string& path) {
  FileHandle file(H5Fopen(path.c_str(), H5F_ACC_RDWR, H5P_DEFAULT));
  EXPECT_TRUE(file.ok()) << takeHdf5Error();
  return file;
}

PropertyHandle chunkedCreation(std::span<const hsize_t> chunk, ChunkFilter filter) {
  PropertyHandle creation(H5Pcreate(H5P_DATASET_CREATE));
  H5Pset_chunk(creation.get(), static_cast<int>(chunk.size()), chunk.data());
  if (filter.shuffle) H5Pset_shuffle(creation.get());
  if (filter.deflate) H5Pset_deflate(creation.get(), 1);
  if (filter.checksum) H5Pset_fletcher32(creation.get());
  return creation;
}

DatatypeHandle fixedText(std::size_t length) {
  DatatypeHandle type(H5Tcopy(H5T_C_S1));
  H5Tset_size(type.get(), std::max<std::size_t>(length, 1));
  H5Tset_strpad(type.get(), H5T_STR_NULLPAD);
  return type;
}

void putNumber(hid_t object, const char* name, double number) {
  put(object, name, H5T_IEEE_F64LE, oneElement(), &number);
}

void putNumber(hid_t object, const char* name, std::uint32_t number) {
  put(object, name, H5T_STD_U32LE, oneElement(), &number);
}

void putText(hid_t object, const char* name, const std::string& text) {
  put(object, name, fixedText(text.size()).get(), oneElement(), text.data());
}

void putTexts(hid_t object, const char* name, const std::vector<std::string>& texts) {
  std::size_t length = 1;
  for (const std::string& text : texts) length = std::max(length, text.size());
  std::string padded;
  for (const std::string& text : texts) padded += text + std::string(length - text.size(), '\0');
  const hsize_t count = texts.size();
  put(object, name, fixedText(length).get(), DataspaceHandle(H5Screate_simple(1, &count, nullptr)),
      padded.data());
}

}  // namespace Fiber::Container
