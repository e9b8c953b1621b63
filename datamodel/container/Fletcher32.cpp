// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Fletcher32.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Fiber::Container {
namespace {

static_assert(std::endian::native == std::endian::little, "words are loaded as they lie");

/// The two sums of words read so far: of the words, and of the first sum after each of them. The
/// checksum keeps each as 16 bits, where a sum is zero only if there was nothing but zeros.
class Sums {
 public:
  /// Adds words of which both sums are known as if nothing had come before.
  void add(std::uint64_t words, std::uint64_t first, std::uint64_t second) {
    second_ = folded(second_ + words * first_ + second);
    first_ = folded(first_ + first);
  }
  std::uint32_t checksum() const {
    return static_cast<std::uint32_t>(second_) << 16U | static_cast<std::uint32_t>(first_);
  }

 private:
  static std::uint64_t folded(std::uint64_t sum) {
    constexpr std::uint64_t kModulus = 0xFFFF;
    return sum == 0 ? 0 : (sum - 1) % kModulus + 1;
  }

  std::uint64_t first_ = 0;
  std::uint64_t second_ = 0;
};

/// Words that are summed up side by side, which compilers turn into vectors.
constexpr std::size_t kLanes = 8;
constexpr std::size_t kRowBytes = 2 * kLanes;
/// As many rows as can be summed up in 32 bits: the sum of first sums grows with the square.
constexpr std::size_t kMostRows = 256;

/// Adds whole rows, at most kMostRows.
void addRows(const std::byte* bytes, std::size_t rows, Sums& sums) {
  std::array<std::uint32_t, kLanes> first{};   // of each lane
  std::array<std::uint32_t, kLanes> before{};  // the sum of `first` as it was before each row
  for (std::size_t row = 0; row < rows; ++row, bytes += kRowBytes) {
    std::array<std::uint16_t, kLanes> words;
    std::memcpy(words.data(), bytes, sizeof(words));
#pragma omp simd
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      // The first byte of a word is its high one.
      const auto word = static_cast<std::uint16_t>(words[lane] << 8U | words[lane] >> 8U);
      before[lane] += first[lane];
      first[lane] += word;
    }
  }
  std::uint64_t ofFirst = 0;
  std::uint64_t ofSecond = 0;
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    // A word is part of the first sums of all later rows, and of those from its own place on.
    ofFirst += first[lane];
    ofSecond += kLanes * std::uint64_t{before[lane]} + (kLanes - lane) * std::uint64_t{first[lane]};
  }
  sums.add(rows * kLanes, ofFirst, ofSecond);
}

std::uint64_t word(std::byte high, std::byte low) {
  return std::to_integer<std::uint64_t>(high) << 8U | std::to_integer<std::uint64_t>(low);
}

}  // namespace

std::uint32_t fletcher32(std::span<const std::byte> bytes) {
  Sums sums;
  while (bytes.size() >= kRowBytes) {
    const std::size_t rows = std::min(bytes.size() / kRowBytes, kMostRows);
    addRows(bytes.data(), rows, sums);
    bytes = bytes.subspan(rows * kRowBytes);
  }
  for (; !bytes.empty(); bytes = bytes.subspan(std::min<std::size_t>(2, bytes.size()))) {
    const std::uint64_t value = word(bytes[0], bytes.size() > 1 ? bytes[1] : std::byte{0});
    sums.add(1, value, value);
  }
  return sums.checksum();
}

}  // namespace Fiber::Container
