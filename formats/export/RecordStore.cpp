// SPDX-License-Identifier: Apache-2.0

#include "formats/export/RecordStore.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "formats/las/NamelessFile.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

Outcome<RecordStore> RecordStore::make(const std::string& path, std::uint64_t byteCount) {
  if (byteCount == 0) return RecordStore(nullptr, 0);
  const std::string folder = std::filesystem::path(path).parent_path().string();
  const auto failure = [&](int error) {
    return Failure{fmt::format("{}: no room for {} bytes of points in between: {}", path, byteCount,
                               std::generic_category().message(error))};
  };
  const int file = openNamelessFile(folder.empty() ? "." : folder);
  if (file < 0) return failure(errno);
  // Taken now: a full disk later on would end the process at a write into the mapping.
  const int allocated = ::posix_fallocate(file, 0, static_cast<off_t>(byteCount));
  if (allocated != 0) {
    ::close(file);
    return failure(allocated);
  }
  void* mapped = ::mmap(nullptr, byteCount, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  const int error = errno;
  ::close(file);
  if (mapped == MAP_FAILED) return failure(error);
  return RecordStore(static_cast<std::byte*>(mapped), byteCount);
}

RecordStore::~RecordStore() {
  if (data_ != nullptr) ::munmap(data_, size_);
}

}  // namespace Formats
