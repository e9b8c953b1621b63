// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/LibraryFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>

#include "datamodel/container/Hdf5Types.hpp"
#include "datamodel/container/LibraryTree.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// A block in front of the file would shift all addresses in it.
Outcome<void> requireNoUserBlock(hid_t file) {
  const PropertyHandle creation(H5Fget_create_plist(file));
  hsize_t bytes = 0;
  if (H5Pget_userblock(creation.get(), &bytes) < 0 || bytes != 0) {
    return Failure{fmt::format("a foreign block precedes the data, found {} bytes", bytes)};
  }
  return {};
}

Outcome<ChunkPlace> chunkAt(hid_t dataset, std::uint64_t row, std::uint64_t column) {
  const std::array<hsize_t, ObjectExtents::kMostRank> offset = {row, column};
  unsigned skipped = 0;
  haddr_t address = HADDR_UNDEF;
  hsize_t bytes = 0;
  const auto found = checkHdf5(
      H5Dget_chunk_info_by_coord(dataset, offset.data(), &skipped, &address, &bytes), "chunk");
  if (!found.ok()) return found.failure();
  if (address == HADDR_UNDEF || bytes > UINT32_MAX) {
    return Failure{fmt::format("a chunk is missing at row {}, column {}", row, column)};
  }
  return ChunkPlace{address, static_cast<std::uint32_t>(bytes), skipped};
}

Outcome<void> requireCount(hid_t dataset, std::uint64_t count) {
  const DataspaceHandle space(H5Dget_space(dataset));
  hsize_t stored = 0;
  const auto counted = checkHdf5(H5Dget_num_chunks(dataset, space.get(), &stored), "chunks");
  if (!counted.ok()) return counted;
  if (stored == count) return {};
  return Failure{fmt::format("chunks are missing, found {}, expected {}", stored, count)};
}

}  // namespace

Outcome<std::shared_ptr<const LibraryFile>> LibraryFile::open(const std::string& path) {
  const auto stamp = stampOf(path);
  if (!stamp.ok()) return stamp.failure();
  const Hdf5Lock lock;
  const PropertyHandle access = readingAccess();
  auto file = ownHdf5<FileHandle>(H5Fopen(path.c_str(), H5F_ACC_RDONLY, access.get()),
                                  fmt::format("{}: cannot be opened as a bundle file", path));
  if (!file.ok()) return file.failure();
  if (auto plain = requireNoUserBlock(file->get()); !plain.ok()) {
    return Failure{fmt::format("{}: {}", path, plain.error())};
  }
  return std::shared_ptr<const LibraryFile>(
      new LibraryFile(path, std::move(file).value(), stamp->sizeBytes));
}

Outcome<FileDescriptor> LibraryFile::ownDescriptor() const {
  const Hdf5Lock lock;
  void* handle = nullptr;
  auto got = checkHdf5(H5Fget_vfd_handle(file_.get(), H5P_DEFAULT, &handle), path_);
  if (!got.ok()) return got.failure();
  FileDescriptor own(::fcntl(*static_cast<int*>(handle), F_DUPFD_CLOEXEC, 0));
  if (!own.ok()) {
    return Failure{fmt::format("{}: cannot be opened, found \"{}\"", path_, systemError(errno))};
  }
  return own;
}

Outcome<ObjectGroup> LibraryFile::readTree() const {
  const Hdf5Lock lock;
  return readLibraryTree(file_.get(), fileBytes_);
}

Outcome<std::vector<ChunkPlace>> LibraryFile::chunksOf(const std::string& path,
                                                       const ObjectDataset& dataset,
                                                       std::uint64_t count) const {
  const Hdf5Lock lock;
  const auto opened =
      ownHdf5<DatasetHandle>(H5Dopen2(file_.get(), path.c_str(), H5P_DEFAULT), "cannot be opened");
  if (!opened.ok()) return opened.failure();
  if (auto all = requireCount(opened->get(), count); !all.ok()) return all.failure();
  std::vector<ChunkPlace> chunks;
  chunks.reserve(static_cast<std::size_t>(count));
  const auto& extents = dataset.value.extents.counts;
  for (std::uint64_t row = 0; row < extents[0]; row += dataset.chunkCounts[0]) {
    for (std::uint64_t column = 0; column < extents[1]; column += dataset.chunkCounts[1]) {
      const auto place = chunkAt(opened->get(), row, column);
      if (!place.ok()) return place.failure();
      chunks.push_back(*place);
    }
  }
  return chunks;
}

}  // namespace Fiber::Container
