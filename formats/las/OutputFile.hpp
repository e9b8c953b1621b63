// SPDX-License-Identifier: Apache-2.0
//
// OutputFile: a file that appears under its name only when it is complete. It is written as
// NAME.tmp.PID.N in the same folder; publish() renames it, anything else removes it.
// Threads: one thread at a time per object, but for writeReserved().

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"

namespace Formats {

/// A buffered stream into a temporary file. Movable; the moved-from object owns nothing.
class OutputFile {
 public:
  /// Errors: a folder that does not exist or cannot be written.
  static MemCore::Outcome<OutputFile> create(const std::string& path);

  OutputFile(OutputFile&& other) noexcept;
  OutputFile& operator=(OutputFile&& other) noexcept;
  ~OutputFile();

  const std::string& path() const { return path_; }

  /// Bytes appended so far.
  std::uint64_t sizeBytes() const { return sizeBytes_; }

  /// Appends. Errors: full disk or other write failures.
  MemCore::Outcome<void> append(std::span<const std::byte> bytes);

  /// Overwrites bytes that were appended before.
  MemCore::Outcome<void> overwrite(std::uint64_t offset, std::span<const std::byte> bytes);

  /// Makes room for bytes that writeReserved brings; what it leaves out reads as zeros and takes no
  /// room on the disk. Returns the offset of the first. Errors: more than a file can hold.
  MemCore::Outcome<std::uint64_t> reserve(std::uint64_t byteCount);

  /// Writes into what was reserved, in any order. Threads: any number of them at once, also beside
  /// one that appends. Requires: bytes that were reserved.
  MemCore::Outcome<void> writeReserved(std::uint64_t offset,
                                       std::span<const std::byte> bytes) const {
    return writeAt(offset, bytes);
  }

  /// Appends all that `source` holds, in pieces.
  MemCore::Outcome<void> appendAll(OutputFile& source);

  /// Gives the file its name, replacing an older one; with `durable` only after it is on the disk.
  MemCore::Outcome<void> publish(bool durable);

 private:
  OutputFile(std::string path, std::string temporaryPath, int descriptor);
  MemCore::Outcome<void> flush();
  MemCore::Outcome<void> writeAt(std::uint64_t offset, std::span<const std::byte> bytes) const;
  MemCore::Failure failure(const char* action, int error) const;
  void discard();

  std::string path_;
  std::string temporaryPath_;
  int descriptor_ = -1;
  std::uint64_t sizeBytes_ = 0;
  std::vector<std::byte> buffer_;  ///< The last, not yet written part.
};

}  // namespace Formats
