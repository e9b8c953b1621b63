// SPDX-License-Identifier: Apache-2.0
//
// A bundle file as the HDF5 library reads it: for files that it, or a program that uses it, has
// written or changed.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "datamodel/container/FileDescriptor.hpp"
#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/container/objects/ObjectTree.hpp"

namespace Fiber::Container {

/// Threads: any; every call takes the library's lock.
class LibraryFile {
 public:
  /// Errors: "<path>: ..." when it cannot be opened, or begins with a foreign block.
  static MemCore::Outcome<std::shared_ptr<const LibraryFile>> open(const std::string& path);
  ~LibraryFile() = default;
  LibraryFile(const LibraryFile&) = delete;
  LibraryFile& operator=(const LibraryFile&) = delete;

  /// A descriptor of our own for the very file that the library has open: opening the path again
  /// might yield another one. Errors: "<path>: ...".
  MemCore::Outcome<FileDescriptor> ownDescriptor() const;
  std::uint64_t fileBytes() const { return fileBytes_; }

  /// All objects that hard links lead to; values of a foreign type have no bytes. Errors:
  /// "<name>: ..." when they cannot be read, or a group is reached twice.
  MemCore::Outcome<ObjectGroup> readTree() const;
  /// The chunks of the dataset at a path. Errors: they are not as many, or not all there.
  MemCore::Outcome<std::vector<ChunkPlace>> chunksOf(const std::string& path,
                                                     const ObjectDataset& dataset,
                                                     std::uint64_t count) const;

 private:
  LibraryFile(std::string path, FileHandle file, std::uint64_t fileBytes)
      : path_(std::move(path)), file_(std::move(file)), fileBytes_(fileBytes) {}

  std::string path_;
  FileHandle file_;
  std::uint64_t fileBytes_;
};

}  // namespace Fiber::Container
