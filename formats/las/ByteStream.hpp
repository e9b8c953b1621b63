// SPDX-License-Identifier: Apache-2.0
//
// ByteStream: the little-endian values of LAS structures, read from and written to byte buffers.
// Both sides walk a structure in the order of its table in the standard, so that no offset is
// spelled out.

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Formats {

static_assert(std::endian::native == std::endian::little, "LAS values are copied as they stand");

/// A value from any address, aligned or not.
template <class T>
T loadValue(const std::byte* from) {
  static_assert(std::is_trivially_copyable_v<T>);
  T value;
  std::memcpy(&value, from, sizeof(T));
  return value;
}

/// A value to any address.
template <class T>
void storeValue(std::byte* to, const T& value) {
  static_assert(std::is_trivially_copyable_v<T>);
  std::memcpy(to, &value, sizeof(T));
}

/// Reads values one after the other. Past the end everything is zero and isShort() turns true, so
/// that a structure can be read whole and checked once.
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::byte> bytes) : bytes_(bytes) {}

  template <class T>
  T take() {
    const std::span<const std::byte> part = takeBytes(sizeof(T));
    return part.empty() ? T{} : loadValue<T>(part.data());
  }

  /// A fixed-size text, without its trailing NULs.
  std::string takeText(std::size_t byteCount) {
    const std::span<const std::byte> part = takeBytes(byteCount);
    std::string text(part.size(), '\0');
    std::transform(part.begin(), part.end(), text.begin(),
                   [](std::byte byte) { return static_cast<char>(byte); });
    text.erase(text.find_last_not_of('\0') + 1);
    return text;
  }

  /// The next bytes, or nothing when so many are not left.
  std::span<const std::byte> takeBytes(std::size_t byteCount) {
    if (byteCount > bytes_.size() - position_) {
      isShort_ = true;
      position_ = bytes_.size();
      return bytes_.first(0);
    }
    position_ += byteCount;
    return bytes_.subspan(position_ - byteCount, byteCount);
  }

  std::size_t position() const { return position_; }
  bool isShort() const { return isShort_; }

 private:
  std::span<const std::byte> bytes_;
  std::size_t position_ = 0;
  bool isShort_ = false;
};

/// Writes values one after the other.
class ByteWriter {
 public:
  template <class T>
  void put(const T& value) {
    const std::size_t at = bytes_.size();
    bytes_.resize(at + sizeof(T));
    storeValue(bytes_.data() + at, value);
  }

  /// A fixed-size text, filled up with NULs; what is too long is cut off.
  void putText(std::string_view text, std::size_t byteCount) {
    const std::size_t at = bytes_.size();
    bytes_.resize(at + byteCount);
    const auto part = std::as_bytes(std::span(text)).first(std::min(text.size(), byteCount));
    std::copy(part.begin(), part.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(at));
  }

  void putBytes(std::span<const std::byte> bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }

  std::size_t size() const { return bytes_.size(); }
  std::vector<std::byte> finish() { return std::move(bytes_); }

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace Formats
