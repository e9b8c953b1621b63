// SPDX-License-Identifier: Apache-2.0
//
// Pieces of an open file by address. The end of the file, where the metadata of bundle files lie,
// can be read at once; what lies elsewhere is read when it is asked for.

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace Fiber::Container {

class FileWindow {
 public:
  /// Reads the last `tailBytes` now. Requires: the descriptor stays open.
  FileWindow(int descriptor, std::uint64_t fileBytes, std::uint64_t tailBytes = 0);

  std::uint64_t fileBytes() const { return fileBytes_; }
  /// The bytes at an address, which stay as long as the window; none when the file does not have
  /// so many there or cannot be read.
  std::span<const std::byte> at(std::uint64_t address, std::uint64_t byteCount);

 private:
  std::span<const std::byte> readAside(std::uint64_t address, std::size_t byteCount);

  int descriptor_;
  std::uint64_t fileBytes_;
  std::uint64_t tailAddress_ = 0;
  std::vector<std::byte> tail_;
  std::deque<std::vector<std::byte>> pieces_;  ///< read outside the tail
};

}  // namespace Fiber::Container
