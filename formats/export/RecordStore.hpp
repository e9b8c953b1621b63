// SPDX-License-Identifier: Apache-2.0
//
// RecordStore: room for all point records of a file that is not written yet, in any order: a
// nameless temporary file in the folder of the output, mapped into memory. It is gone with the
// object, or with the process. Threads: the bytes may be written by several threads, each its own.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "datamodel/memcore/Outcome.hpp"

namespace Formats {

class RecordStore {
 public:
  /// Zero bytes. Errors: no room for them in the folder of `path`.
  static MemCore::Outcome<RecordStore> make(const std::string& path, std::uint64_t byteCount);

  RecordStore(RecordStore&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  RecordStore& operator=(RecordStore&&) = delete;
  ~RecordStore();

  std::span<std::byte> bytes() { return {data_, size_}; }
  std::span<const std::byte> bytes() const { return {data_, size_}; }

 private:
  RecordStore(std::byte* data, std::size_t size) : data_(data), size_(size) {}

  std::byte* data_;
  std::size_t size_;
};

}  // namespace Formats
