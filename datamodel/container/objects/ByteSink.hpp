// SPDX-License-Identifier: Apache-2.0
//
// Bytes under construction: little-endian numbers, texts and raw bytes, one behind the other.

#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace Fiber::Container {

static_assert(std::endian::native == std::endian::little, "bundle files are little-endian");

class ByteSink {
 public:
  template <class T>
  void number(T value) {
    bytes(std::as_bytes(std::span(&value, 1)));
  }
  void u8(std::uint64_t value) { uint(value, 1); }
  void u16(std::uint64_t value) { uint(value, 2); }
  void u32(std::uint64_t value) { uint(value, 4); }
  void u64(std::uint64_t value) { uint(value, 8); }
  /// The lowest `count` bytes of a number.
  void uint(std::uint64_t value, std::size_t count) {
    bytes(std::as_bytes(std::span(&value, 1)).first(count));
  }
  void text(std::string_view text) { bytes(std::as_bytes(std::span(text))); }
  void bytes(std::span<const std::byte> bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }
  std::size_t size() const { return bytes_.size(); }
  std::span<const std::byte> from(std::size_t start) const {
    return std::span(bytes_).subspan(start);
  }
  std::vector<std::byte> take() { return std::move(bytes_); }

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace Fiber::Container
