// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ChunkCodec.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "datamodel/container/ByteShuffle.hpp"
#include "datamodel/container/Fletcher32.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// The mask bits of filters that stand behind others in the pipeline.
std::uint32_t deflateBit(ChunkFilter filter) { return filter.shuffle ? 2U : 1U; }
std::uint32_t checksumBit(ChunkFilter filter) {
  return filter.deflate ? deflateBit(filter) << 1U : deflateBit(filter);
}

/// The work space at the size asked for, grown only.
std::span<std::byte> scratchOf(std::vector<std::byte>& scratch, std::size_t size) {
  if (scratch.size() < size) scratch.resize(size);
  return std::span(scratch).first(size);
}

using Sum = std::array<std::byte, 4>;

/// The checksum as stored: low byte first.
Sum sumOf(std::span<const std::byte> bytes) {
  const std::uint32_t sum = fletcher32(bytes);
  return {static_cast<std::byte>(sum), static_cast<std::byte>(sum >> 8U),
          static_cast<std::byte>(sum >> 16U), static_cast<std::byte>(sum >> 24U)};
}

/// The bytes before the checksum, which must agree with it.
Outcome<std::span<const std::byte>> checked(std::span<const std::byte> stored) {
  if (stored.size() < Sum().size()) {
    return Failure{fmt::format("chunk: no room for its checksum, found {} bytes", stored.size())};
  }
  const auto bytes = stored.first(stored.size() - Sum().size());
  const Sum sum = sumOf(bytes);
  if (!std::equal(sum.begin(), sum.end(), stored.end() - Sum().size())) {
    return Failure{
        fmt::format("chunk: damaged, the checksum of its {} bytes differs", bytes.size())};
  }
  return bytes;
}

}  // namespace

Outcome<EncodedChunk> ChunkEncoder::encode(std::span<const std::byte> plain,
                                           std::size_t elementSize, ChunkFilter filter,
                                           StreamCodes codes) {
  std::span<const std::byte> current = plain;
  std::size_t sectionBytes = plain.size() + 1;
  if (filter.shuffle) {
    sectionBytes = std::max<std::size_t>(plain.size() / elementSize, 1);
    const std::span<std::byte> shuffled = scratchOf(shuffled_, plain.size());
    shuffleBytes(plain, elementSize, shuffled);
    current = shuffled;
  }
  EncodedChunk chunk;
  if (filter.deflate) {
    const auto stream = compressor_.compress(current, sectionBytes, codes);
    if (!stream.ok()) return stream.failure();
    current = *stream;
  }
  chunk.bytes.reserve(current.size() + Sum().size());
  chunk.bytes.assign(current.begin(), current.end());
  if (filter.checksum) {
    const Sum sum = sumOf(current);
    chunk.bytes.insert(chunk.bytes.end(), sum.begin(), sum.end());
  }
  return chunk;
}

Outcome<void> ChunkDecoder::decode(const StoredChunk& stored, std::size_t elementSize,
                                   ChunkFilter filter, std::span<std::byte> plain) {
  const bool summed = filter.checksum && (stored.skippedFilters & checksumBit(filter)) == 0;
  const bool deflated = filter.deflate && (stored.skippedFilters & deflateBit(filter)) == 0;
  const bool shuffled = filter.shuffle && (stored.skippedFilters & 1U) == 0;
  std::span<const std::byte> current = stored.bytes;
  if (summed) {
    const auto bytes = checked(current);
    if (!bytes.ok()) return bytes.failure();
    current = *bytes;
  }
  if (deflated) {
    const std::span<std::byte> target = shuffled ? scratchOf(shuffled_, plain.size()) : plain;
    if (auto expanded = expander_.expand(current, target); !expanded.ok()) return expanded;
    current = target;
  }
  if (current.size() != plain.size()) {
    return Failure{fmt::format("chunk: wrong length, found {} bytes, expected {}", current.size(),
                               plain.size())};
  }
  if (shuffled) {
    unshuffleBytes(current, elementSize, plain);
  } else if (!deflated) {
    std::copy(current.begin(), current.end(), plain.begin());
  }
  return {};
}

}  // namespace Fiber::Container
