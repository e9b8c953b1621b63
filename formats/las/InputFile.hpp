// SPDX-License-Identifier: Apache-2.0
//
// InputFile: a regular file, read by offset. It exists so that readers of untrusted files share one
// careful way in: no FIFO or device is ever opened, no read shares a file position.
// Threads: const members may be called by any number of threads at once.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"

namespace Formats {

/// An open file descriptor with the path and size that it had when opened.
class InputFile {
 public:
  /// Errors: missing, unreadable, or not a regular file (directory, FIFO, device).
  static MemCore::Outcome<std::shared_ptr<const InputFile>> open(const std::string& path);

  /// Takes over an open descriptor of a regular file without a name of its own; failures name
  /// `path`. Errors: its size cannot be told, or it is no regular file; it is then closed.
  static MemCore::Outcome<std::shared_ptr<const InputFile>> adopt(const std::string& path,
                                                                  int descriptor);

  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  const std::string& path() const { return path_; }
  std::uint64_t sizeBytes() const { return sizeBytes_; }

  /// Fills `out` from `offset` on. Errors: the range reaches past the end, or the read fails.
  MemCore::Outcome<void> read(std::uint64_t offset, std::span<std::byte> out) const;

  /// The same into a new vector; checks the range before it allocates.
  MemCore::Outcome<std::vector<std::byte>> read(std::uint64_t offset,
                                                std::uint64_t byteCount) const;

 private:
  InputFile(std::string path, int descriptor, std::uint64_t sizeBytes)
      : path_(std::move(path)), descriptor_(descriptor), sizeBytes_(sizeBytes) {}

  std::string path_;
  int descriptor_;
  std::uint64_t sizeBytes_;
};

}  // namespace Formats
