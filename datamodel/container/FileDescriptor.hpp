// SPDX-License-Identifier: Apache-2.0
//
// An owned file descriptor with whole reads and writes at an offset: the bulk bytes of bundle
// files go through these, beside the container library and its lock.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// Owns a descriptor of the operating system; closes it when destroyed. Empty: get() is -1.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  bool ok() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  void reset() noexcept;

 private:
  int descriptor_ = -1;
};

/// Size and last modification of a file: together they tell whether it is still the same one.
struct FileStamp {
  std::uint64_t sizeBytes = 0;
  std::int64_t modifiedNanoseconds = 0;  // since 1970
  bool operator==(const FileStamp&) const = default;
};

/// A regular file opened for reading, and its stamp at that moment.
struct OpenedFile {
  FileDescriptor descriptor;
  FileStamp stamp;
};

/// Opens a regular file for reading. Errors: "<path>: ..." when it is missing, not readable, or no
/// regular file (folder, pipe, device, link to itself); never waits for a pipe's other end.
MemCore::Outcome<OpenedFile> openRegularFile(const std::string& path);

/// The stamp of a regular file that is not opened. Errors: as openRegularFile.
MemCore::Outcome<FileStamp> stampOf(const std::string& path);

/// Fills `bytes` from `offsetBytes` on. Errors: "<name>: ..." when the file ends before or the
/// system refuses.
MemCore::Outcome<void> readAt(int descriptor, std::uint64_t offsetBytes, std::span<std::byte> bytes,
                              std::string_view name);

/// Writes all of `bytes` at `offsetBytes`. Errors: "<name>: ..." with the system's reason.
MemCore::Outcome<void> writeAt(int descriptor, std::uint64_t offsetBytes,
                               std::span<const std::byte> bytes, std::string_view name);

/// Writes pieces one behind the other from `offsetBytes` on, with as few calls as possible. Errors:
/// as writeAt.
MemCore::Outcome<void> writeAllAt(int descriptor, std::uint64_t offsetBytes,
                                  std::span<const std::span<const std::byte>> pieces,
                                  std::string_view name);

/// The system's words for an error number (strerror without its shared buffer).
std::string systemError(int errorNumber);

}  // namespace Fiber::Container
