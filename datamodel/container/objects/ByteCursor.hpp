// SPDX-License-Identifier: Apache-2.0
//
// Reads little-endian numbers and texts from bytes that may say anything: what goes beyond the end
// gives zeros and is remembered, so that a whole structure is read first and judged once.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

namespace Fiber::Container {

class ByteCursor {
 public:
  explicit ByteCursor(std::span<const std::byte> bytes) : rest_(bytes) {}

  /// Whether everything that was asked for was there.
  bool ok() const { return ok_; }
  std::size_t left() const { return rest_.size(); }

  std::uint64_t u8() { return uint(1); }
  std::uint64_t u16() { return uint(2); }
  std::uint64_t u32() { return uint(4); }
  std::uint64_t u64() { return uint(8); }
  /// A number of up to eight bytes.
  std::uint64_t uint(std::size_t count) {
    std::uint64_t value = 0;
    const auto found = bytes(count);
    if (!found.empty()) std::memcpy(&value, found.data(), found.size());
    return value;
  }
  /// The next bytes; none of them when there are fewer.
  std::span<const std::byte> bytes(std::size_t count) {
    if (count > rest_.size()) {
      ok_ = false;
      rest_ = {};
      return {};
    }
    const auto found = rest_.first(count);
    rest_ = rest_.subspan(count);
    return found;
  }
  std::string text(std::size_t count) {
    const auto found = bytes(count);
    return {reinterpret_cast<const char*>(found.data()), found.size()};
  }
  /// A text that ends with a zero byte, which is passed over.
  std::string textToZero() {
    const void* end = rest_.empty() ? nullptr : std::memchr(rest_.data(), 0, rest_.size());
    if (end == nullptr) {
      ok_ = false;
      return {};
    }
    const auto length = static_cast<std::size_t>(static_cast<const std::byte*>(end) - rest_.data());
    std::string found = text(length);
    bytes(1);
    return found;
  }

 private:
  std::span<const std::byte> rest_;
  bool ok_ = true;
};

}  // namespace Fiber::Container
