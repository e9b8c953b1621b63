// SPDX-License-Identifier: Apache-2.0
//
// A bundle file open for reading: its objects, and the ways to their values. The objects are
// decoded here where the file is as the writer left it; else the HDF5 library reads them, which
// knows all of the format. What comes out is the same.

#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "datamodel/container/FileDescriptor.hpp"
#include "datamodel/container/objects/ObjectTree.hpp"

namespace Fiber::Container {

class LibraryFile;

class ObjectFile {
 public:
  /// Errors: "<path>: ..." when it is missing, no regular file, or no file of the format.
  static MemCore::Outcome<ObjectFile> open(const std::string& path);
  /// The same through the library alone.
  static MemCore::Outcome<ObjectFile> openByLibrary(const std::string& path);

  const ObjectGroup& root() const { return root_; }
  std::uint64_t fileBytes() const { return fileBytes_; }
  /// For readAt.
  int descriptor() const { return descriptor_.get(); }
  /// Whether the library had to be asked.
  bool isLibrarys() const { return library_ != nullptr; }

  /// Fills `bytes` with the values of a dataset that lie in its header or in one piece. Errors:
  /// they lie elsewhere, or are not as many.
  MemCore::Outcome<void> readValues(const ObjectDataset& dataset, std::span<std::byte> bytes) const;
  /// All values of a small dataset, whose checksum is checked. Errors: as readValues, or it claims
  /// more than the file holds, or is damaged.
  MemCore::Outcome<ObjectValue> checkedValue(const ObjectDataset& dataset) const;
  /// The chunks of the dataset at a path, `count` of them. Errors: they are not all there.
  MemCore::Outcome<std::vector<ChunkPlace>> chunksOf(const std::string& path,
                                                     const ObjectDataset& dataset,
                                                     std::uint64_t count) const;

 private:
  bool readInBlocks(std::uint64_t address, std::span<std::byte> bytes) const;

  FileDescriptor descriptor_;
  std::uint64_t fileBytes_ = 0;
  ObjectGroup root_;
  std::shared_ptr<const LibraryFile> library_;  ///< empty: not needed
};

}  // namespace Fiber::Container
