// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/ChunkArrayBytes.hpp"

#include <algorithm>
#include <bit>

#include "datamodel/container/objects/ByteCursor.hpp"
#include "datamodel/container/objects/Lookup3.hpp"

namespace Fiber::Container {

namespace {

constexpr std::string_view kHeaderMark = "FAHD";
constexpr std::string_view kBlockMark = "FADB";
constexpr std::uint8_t kVersion = 0;
constexpr std::uint8_t kFilteredChunks = 1;  ///< elements have size and mask
constexpr std::uint64_t kHeaderBytes = 28;
constexpr std::uint64_t kBlockPrefixBytes = 14;
constexpr std::uint64_t kChecksumBytes = 4;
constexpr std::uint64_t kAddressBytes = 8;
constexpr std::uint64_t kMaskBytes = 4;
constexpr std::uint64_t kPageElements = std::uint64_t{1} << kChunkArrayPageBits;

/// What follows from the number and kind of the chunks.
struct ArrayForm {
  std::uint64_t count;
  std::uint64_t sizeBytes;  ///< that the stored size of a chunk takes

  ArrayForm(std::uint64_t chunkCount, std::uint64_t chunkBytes)
      : count(chunkCount), sizeBytes(sizeBytesFor(chunkBytes)) {}

  /// One byte more than the plain size needs: filters may make a chunk larger.
  static std::uint64_t sizeBytesFor(std::uint64_t chunkBytes) {
    const auto log2 = static_cast<std::uint64_t>(std::bit_width(chunkBytes | 1U)) - 1;
    return std::min<std::uint64_t>(1 + (log2 + 8) / 8, 8);
  }
  std::uint64_t elementBytes() const { return kAddressBytes + sizeBytes + kMaskBytes; }
  bool isPaged() const { return count > kPageElements; }
  std::uint64_t pages() const {
    return isPaged() ? (count + kPageElements - 1) / kPageElements : 0;
  }
  std::uint64_t bitmapBytes() const { return (pages() + 7) / 8; }
  std::uint64_t blockBytes() const {
    return kBlockPrefixBytes + bitmapBytes() + kChecksumBytes + count * elementBytes() +
           pages() * kChecksumBytes;
  }
};

void addChecksum(ByteSink& sink, std::size_t from) { sink.u32(lookup3(sink.from(from))); }

void encodeElements(ByteSink& sink, const ArrayForm& form, std::span<const ChunkPlace> chunks) {
  for (const ChunkPlace& chunk : chunks) {
    sink.u64(chunk.address);
    sink.uint(chunk.storedBytes, form.sizeBytes);
    sink.u32(chunk.skippedFilters);
  }
}

void encodeHeader(ByteSink& sink, const ArrayForm& form, std::uint64_t blockAddress) {
  const std::size_t from = sink.size();
  sink.text(kHeaderMark);
  sink.u8(kVersion);
  sink.u8(kFilteredChunks);
  sink.u8(form.elementBytes());
  sink.u8(kChunkArrayPageBits);
  sink.u64(form.count);
  sink.u64(blockAddress);
  addChecksum(sink, from);
}

/// All pages are there; the first bit is the highest of the first byte.
void encodeBitmap(ByteSink& sink, const ArrayForm& form) {
  for (std::uint64_t page = 0; page < form.pages(); page += 8) {
    const std::uint64_t used = std::min<std::uint64_t>(8, form.pages() - page);
    sink.u8(0xFFU << (8 - used));
  }
}

void encodeBlock(ByteSink& sink, const ArrayForm& form, std::uint64_t headerAddress,
                 std::span<const ChunkPlace> chunks) {
  const std::size_t from = sink.size();
  sink.text(kBlockMark);
  sink.u8(kVersion);
  sink.u8(kFilteredChunks);
  sink.u64(headerAddress);
  if (!form.isPaged()) {
    encodeElements(sink, form, chunks);
    return addChecksum(sink, from);
  }
  encodeBitmap(sink, form);
  addChecksum(sink, from);
  while (!chunks.empty()) {
    const std::size_t pageStart = sink.size();
    const auto page = chunks.first(std::min<std::size_t>(kPageElements, chunks.size()));
    encodeElements(sink, form, page);
    addChecksum(sink, pageStart);
    chunks = chunks.subspan(page.size());
  }
}

/// Takes the checksum off the end of some bytes; none when it is wrong.
std::span<const std::byte> checked(std::span<const std::byte> bytes) {
  if (bytes.size() < kChecksumBytes) return {};
  const auto content = bytes.first(bytes.size() - kChecksumBytes);
  ByteCursor checksum(bytes.subspan(content.size()));
  return checksum.u32() == lookup3(content) ? content : std::span<const std::byte>();
}

/// The address of the data block that a header names; empty when it is not the header expected.
std::optional<std::uint64_t> decodeHeader(std::span<const std::byte> bytes, const ArrayForm& form) {
  ByteCursor cursor(checked(bytes));
  const bool same = cursor.text(kHeaderMark.size()) == kHeaderMark && cursor.u8() == kVersion &&
                    cursor.u8() == kFilteredChunks && cursor.u8() == form.elementBytes() &&
                    cursor.u8() == kChunkArrayPageBits && cursor.u64() == form.count;
  const std::uint64_t address = cursor.u64();
  return same && cursor.ok() ? std::optional(address) : std::nullopt;
}

bool decodeElements(std::span<const std::byte> bytes, const ArrayForm& form,
                    std::vector<ChunkPlace>& chunks) {
  ByteCursor cursor(bytes);
  while (cursor.left() >= form.elementBytes()) {
    ChunkPlace chunk;
    chunk.address = cursor.u64();
    const std::uint64_t stored = cursor.uint(form.sizeBytes);
    if (stored > UINT32_MAX) return false;
    chunk.storedBytes = static_cast<std::uint32_t>(stored);
    chunk.skippedFilters = static_cast<std::uint32_t>(cursor.u32());
    chunks.push_back(chunk);
  }
  return cursor.left() == 0;
}

/// The part of a data block before its pages, or all of it when it has none, without its checksum.
std::span<const std::byte> blockFront(std::span<const std::byte> block, const ArrayForm& form,
                                      std::uint64_t headerAddress) {
  const std::uint64_t frontBytes =
      form.isPaged() ? kBlockPrefixBytes + form.bitmapBytes() + kChecksumBytes : block.size();
  const auto front = checked(block.first(frontBytes));
  ByteCursor cursor(front);
  const bool same = cursor.text(kBlockMark.size()) == kBlockMark && cursor.u8() == kVersion &&
                    cursor.u8() == kFilteredChunks && cursor.u64() == headerAddress;
  return same ? front : std::span<const std::byte>();
}

bool decodePages(std::span<const std::byte> pages, const ArrayForm& form,
                 std::vector<ChunkPlace>& chunks) {
  const std::uint64_t pageBytes = kPageElements * form.elementBytes() + kChecksumBytes;
  while (!pages.empty()) {
    const auto page = pages.first(std::min<std::size_t>(pageBytes, pages.size()));
    const auto elements = checked(page);
    if (elements.empty() || !decodeElements(elements, form, chunks)) return false;
    pages = pages.subspan(page.size());
  }
  return true;
}

bool hasAllPages(std::span<const std::byte> bitmap, const ArrayForm& form) {
  ByteSink expected;
  encodeBitmap(expected, form);
  return std::ranges::equal(bitmap, expected.from(0));
}

}  // namespace

std::uint64_t encodeChunkArray(ByteSink& sink, std::uint64_t start,
                               const std::vector<ChunkPlace>& chunks, std::uint64_t chunkBytes) {
  const ArrayForm form(chunks.size(), chunkBytes);
  const std::uint64_t headerAddress = start + sink.size();
  encodeHeader(sink, form, headerAddress + kHeaderBytes);
  encodeBlock(sink, form, headerAddress, chunks);
  return headerAddress;
}

std::optional<std::vector<ChunkPlace>> decodeChunkArray(const ReadBytes& read,
                                                        std::uint64_t address, std::uint64_t count,
                                                        std::uint64_t chunkBytes) {
  const ArrayForm form(count, chunkBytes);
  const auto header = read(address, kHeaderBytes);
  const auto blockAddress = decodeHeader(header, form);
  if (!blockAddress) return std::nullopt;
  const std::vector<std::byte> block = read(*blockAddress, form.blockBytes());
  if (block.empty()) return std::nullopt;
  const auto front = blockFront(block, form, address);
  if (front.empty()) return std::nullopt;
  std::vector<ChunkPlace> chunks;
  chunks.reserve(static_cast<std::size_t>(count));
  const auto rest = front.subspan(kBlockPrefixBytes);
  bool sound = false;
  if (form.isPaged()) {
    const auto pages = std::span<const std::byte>(block).subspan(front.size() + kChecksumBytes);
    sound = hasAllPages(rest, form) && decodePages(pages, form, chunks);
  } else {
    sound = decodeElements(rest, form, chunks);
  }
  if (!sound || chunks.size() != count) return std::nullopt;
  return chunks;
}

}  // namespace Fiber::Container
