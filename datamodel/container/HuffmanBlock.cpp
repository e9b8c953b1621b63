// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/HuffmanBlock.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Fiber::Container {
namespace {

static_assert(std::endian::native == std::endian::little, "bits are stored eight bytes at a time");

using Bytes = std::span<const std::byte>;

struct Code {
  std::uint16_t bits = 0;
  std::uint16_t length = 0;
};

constexpr std::size_t kEndOfBlock = 256;
constexpr unsigned kBitsOfByte = 8;

/// Bits on their way into memory, lowest first.
class BitWriter {
 public:
  /// What is stored at once reaches beyond the bits themselves by less than this.
  static constexpr std::size_t kOverhang = sizeof(std::uint64_t);

  explicit BitWriter(std::span<std::byte> out) : out_(out) {}

  std::size_t room() const { return out_.size() - at_; }
  std::size_t written() const { return at_; }

  /// Requires: `length` is at most 56, and there is room for kOverhang bytes.
  void put(std::uint64_t bits, unsigned length) {
    waiting_ |= bits << count_;
    count_ += length;
    std::memcpy(&out_[at_], &waiting_, sizeof(waiting_));
    at_ += count_ / kBitsOfByte;
    waiting_ >>= count_ & ~(kBitsOfByte - 1);
    count_ %= kBitsOfByte;
  }
  /// Fills the last byte with zero bits.
  void align() {
    if (count_ != 0) put(0, kBitsOfByte - count_);
  }

 private:
  std::span<std::byte> out_;
  std::size_t at_ = 0;
  std::uint64_t waiting_ = 0;  ///< fewer than 8 bits between calls
  unsigned count_ = 0;
};

std::array<Code, kEndOfBlock + 1> literalCodes(const isal_hufftables& tables) {
  std::array<Code, kEndOfBlock + 1> codes;
  for (std::size_t symbol = 0; symbol < codes.size(); ++symbol) {
    codes[symbol] = {tables.lit_table[symbol], tables.lit_table_sizes[symbol]};
  }
  return codes;
}

/// What begins the block: that it is not the last one, which the first bit says, and the codes.
void putHeader(const isal_hufftables& tables, BitWriter& writer) {
  constexpr unsigned kIsLast = 1;
  writer.put(tables.deflate_hdr[0] & ~kIsLast, kBitsOfByte);
  for (std::size_t i = 1; i < tables.deflate_hdr_count; ++i) {
    writer.put(tables.deflate_hdr[i], kBitsOfByte);
  }
  if (tables.deflate_hdr_extra_bits == 0) return;
  const unsigned rest = tables.deflate_hdr[tables.deflate_hdr_count];
  writer.put(rest & ((1U << tables.deflate_hdr_extra_bits) - 1), tables.deflate_hdr_extra_bits);
}

/// Ends the block, and begins and ends an empty stored one, which brings the rest to whole bytes.
void putEnd(const Code& endOfBlock, BitWriter& writer) {
  constexpr unsigned kStoredHeader = 3;
  constexpr std::uint64_t kNoBytes = 0xFFFF0000;
  writer.put(endOfBlock.bits, endOfBlock.length);
  writer.put(0, kStoredHeader);
  writer.align();
  writer.put(kNoBytes, 32);
}

}  // namespace

std::size_t writeLiterals(Bytes plain, const isal_hufftables& tables, std::span<std::byte> out) {
  constexpr std::size_t kTogether = 3;  // codes of up to 15 bits each
  constexpr std::size_t kBlock = 64 * kTogether;
  constexpr std::size_t kMostBytesOfCode = 2;
  constexpr std::size_t kMostEndBytes = 16 + BitWriter::kOverhang;
  if (out.size() < tables.deflate_hdr_count + kMostEndBytes) return 0;
  const auto codes = literalCodes(tables);
  const auto codeOf = [&](std::byte literal) -> const Code& {
    return codes[std::to_integer<std::size_t>(literal)];
  };
  BitWriter writer(out);
  putHeader(tables, writer);
  while (!plain.empty()) {
    const Bytes block = plain.first(std::min(kBlock, plain.size()));
    if (writer.room() < kMostBytesOfCode * block.size() + kMostEndBytes) return 0;
    const std::size_t inThrees = block.size() / kTogether * kTogether;
    for (std::size_t i = 0; i < inThrees; i += kTogether) {
      const Code& a = codeOf(block[i]);
      const Code& b = codeOf(block[i + 1]);
      const Code& c = codeOf(block[i + 2]);
      const std::uint64_t two = a.bits | std::uint64_t{b.bits} << a.length;
      const unsigned lengthOfTwo = a.length + b.length;
      writer.put(two | std::uint64_t{c.bits} << lengthOfTwo, lengthOfTwo + c.length);
    }
    for (const std::byte literal : block.subspan(inThrees)) {
      writer.put(codeOf(literal).bits, codeOf(literal).length);
    }
    plain = plain.subspan(block.size());
  }
  putEnd(codes[kEndOfBlock], writer);
  return writer.written();
}

void countLiterals(Bytes plain, isal_huff_histogram& histogram) {
  // Four counters for each byte: equal neighbours need not wait for each other.
  constexpr std::size_t kLanes = 4;
  std::array<std::array<std::uint32_t, kEndOfBlock>, kLanes> counts{};
  std::size_t i = 0;
  for (; i + kLanes <= plain.size(); i += kLanes) {
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      ++counts[lane][std::to_integer<std::size_t>(plain[i + lane])];
    }
  }
  for (; i < plain.size(); ++i) ++counts[0][std::to_integer<std::size_t>(plain[i])];
  for (std::size_t symbol = 0; symbol < kEndOfBlock; ++symbol) {
    for (const auto& lane : counts) histogram.lit_len_histogram[symbol] += lane[symbol];
  }
  ++histogram.lit_len_histogram[kEndOfBlock];
}

}  // namespace Fiber::Container
