// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/TreeEncoder.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

#include "datamodel/container/objects/ByteSink.hpp"
#include "datamodel/container/objects/ChunkArrayBytes.hpp"
#include "datamodel/container/objects/HeaderMessages.hpp"
#include "datamodel/container/objects/Lookup3.hpp"
#include "datamodel/container/objects/TypeBytes.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Up to this many links or attributes a library that adds some leaves them in the header; beyond
/// it, it would move them all to structures of its own.
constexpr std::uint16_t kMostInHeader = 500;
constexpr std::uint8_t kConstant = 0x01;  // flag of a message that never changes
constexpr std::uint32_t kDeflateLevel = 1;

/// The messages of one object.
class Messages {
 public:
  void add(MessageType type, const ByteSink& body, std::uint8_t flags = 0) {
    fits_ = fits_ && body.size() <= kMostMessageBytes;
    sink_.u8(static_cast<std::uint8_t>(type));
    sink_.u16(body.size());
    sink_.u8(flags);
    sink_.bytes(body.from(0));
  }
  bool fits() const { return fits_; }
  std::span<const std::byte> bytes() const { return sink_.from(0); }

 private:
  ByteSink sink_;
  bool fits_ = true;
};

ByteSink nothingOutside() {
  ByteSink body;
  encodeNothingOutside(body);
  return body;
}

ByteSink groupInfo() {
  constexpr std::uint8_t kLimitsSaid = 0x01;
  ByteSink body;
  body.u8(kInfoVersion);
  body.u8(kLimitsSaid);
  body.u16(kMostInHeader);
  body.u16(kMostInHeader - 1);
  return body;
}

ByteSink linkTo(const std::string& name, std::uint64_t address) {
  constexpr std::size_t kMostShortName = 0xFF;
  const bool isLong = name.size() > kMostShortName;
  ByteSink body;
  body.u8(kLinkVersion);
  body.u8(kUtf8Link | (isLong ? 1U : 0U));
  body.u8(kUtf8);
  body.uint(name.size(), isLong ? 2 : 1);
  body.text(name);
  body.u64(address);
  return body;
}

ByteSink attributeOf(const std::string& name, const ObjectValue& value) {
  ByteSink type;
  encodeType(type, value.type);
  ByteSink extents;
  encodeExtents(extents, value.extents);
  ByteSink body;
  body.u8(kAttributeVersion);
  body.u8(0);
  body.u16(name.size() + 1);
  body.u16(type.size());
  body.u16(extents.size());
  body.u8(kUtf8);
  body.text(name);
  body.u8(0);
  body.bytes(type.from(0));
  body.bytes(extents.from(0));
  body.bytes(value.bytes);
  return body;
}

/// No fill value, never written; room is there from the start but for chunks.
ByteSink fillValue(const ObjectDataset& dataset) {
  constexpr std::uint8_t kVersion = 3;
  constexpr std::uint8_t kNeverWritten = 1U << 2U;
  constexpr std::uint8_t kEarly = 1;
  constexpr std::uint8_t kIncrementally = 3;
  const bool isChunked = dataset.storage == ObjectDataset::Storage::kChunks;
  ByteSink body;
  body.u8(kVersion);
  body.u8(kNeverWritten | (isChunked ? kIncrementally : kEarly));
  return body;
}

std::uint64_t elementCount(const ObjectExtents& extents) {
  return extents.counts[0] * extents.counts[1];
}

ByteSink plainLayout(const ObjectDataset& dataset) {
  const bool isInHeader = dataset.storage == ObjectDataset::Storage::kInHeader;
  ByteSink body;
  body.u8(kPlainLayoutVersion);
  body.u8(isInHeader ? kInHeaderClass : kPieceClass);
  if (isInHeader) {
    body.u16(dataset.value.bytes.size());
    body.bytes(dataset.value.bytes);
  } else {
    body.u64(dataset.address);
    body.u64(elementCount(dataset.value.extents) * dataset.value.type.bytes);
  }
  return body;
}

std::uint64_t chunkBytes(const ObjectDataset& dataset) {
  return dataset.chunkCounts[0] * dataset.chunkCounts[1] * dataset.value.type.bytes;
}

/// Requires: at least one chunk.
ByteSink chunkLayout(const ObjectDataset& dataset, std::uint64_t indexAddress) {
  // The format wants the simple form for a chunk that is as large as its dataset.
  const bool isOne = dataset.chunks.size() == 1;
  const auto rank = static_cast<std::size_t>(dataset.value.extents.rank);
  const std::array<std::uint64_t, 2>& counts = dataset.chunkCounts;
  const std::uint64_t most =
      std::max({counts[0], counts[1], std::uint64_t{dataset.value.type.bytes}});
  const auto countBytes = static_cast<std::size_t>(std::bit_width(most) + 7) / 8;
  ByteSink body;
  body.u8(kChunkLayoutVersion);
  body.u8(kChunkClass);
  body.u8(isOne ? kOneFilteredChunk : 0);
  body.u8(rank + 1);
  body.u8(countBytes);
  for (std::size_t d = 0; d < rank; ++d) body.uint(counts[d], countBytes);
  body.uint(dataset.value.type.bytes, countBytes);
  body.u8(isOne ? kOneChunkIndex : kArrayIndex);
  if (isOne) {
    body.u64(dataset.chunks[0].storedBytes);
    body.u32(dataset.chunks[0].skippedFilters);
    body.u64(dataset.chunks[0].address);
  } else {
    body.u8(kChunkArrayPageBits);
    body.u64(indexAddress);
  }
  return body;
}

void addFilter(ByteSink& body, std::uint16_t filter, bool isOptional,
               std::initializer_list<std::uint32_t> values) {
  body.u16(filter);
  body.u16(isOptional ? 1 : 0);
  body.u16(values.size());
  for (const std::uint32_t value : values) body.u32(value);
}

ByteSink filtersOf(const ObjectDataset& dataset) {
  const ChunkFilter& filter = dataset.filter;
  ByteSink body;
  body.u8(kFiltersVersion);
  body.u8(static_cast<std::uint64_t>(filter.shuffle) + static_cast<std::uint64_t>(filter.deflate) +
          static_cast<std::uint64_t>(filter.checksum));
  if (filter.shuffle) addFilter(body, kShuffleFilter, true, {dataset.value.type.bytes});
  if (filter.deflate) addFilter(body, kDeflateFilter, true, {kDeflateLevel});
  if (filter.checksum) addFilter(body, kFletcherFilter, false, {});
  return body;
}

class Encoder {
 public:
  explicit Encoder(std::uint64_t start) : start_(start) {}

  /// Appends a group behind all that it holds; the address of its header.
  Outcome<std::uint64_t> group(const ObjectGroup& group) {
    std::map<std::string, std::uint64_t> links;
    for (const auto& [name, child] : group.groups) {
      const auto address = this->group(child);
      if (!address.ok()) return within(name, address.error());
      links[name] = *address;
    }
    for (const auto& [name, child] : group.datasets) {
      const auto address = dataset(child);
      if (!address.ok()) return within(name, address.error());
      links[name] = *address;
    }
    Messages messages;
    messages.add(MessageType::kLinkInfo, nothingOutside());
    messages.add(MessageType::kGroupInfo, groupInfo(), kConstant);
    for (const auto& [name, address] : links) {
      messages.add(MessageType::kLink, linkTo(name, address));
    }
    return finish(messages, group.attributes);
  }

  ByteSink& sink() { return sink_; }

 private:
  static Failure within(const std::string& name, const std::string& text) {
    return Failure{fmt::format("{}: {}", name, text)};
  }

  Outcome<std::uint64_t> dataset(const ObjectDataset& dataset) {
    std::uint64_t index = kNoAddress;
    const bool isChunked = dataset.storage == ObjectDataset::Storage::kChunks;
    if (isChunked && dataset.chunks.size() > 1) {
      index = encodeChunkArray(sink_, start_, dataset.chunks, chunkBytes(dataset));
    }
    ByteSink type;
    encodeType(type, dataset.value.type);
    ByteSink extents;
    encodeExtents(extents, dataset.value.extents);
    Messages messages;
    messages.add(MessageType::kExtents, extents);
    messages.add(MessageType::kType, type, kConstant);
    messages.add(MessageType::kFillValue, fillValue(dataset), kConstant);
    messages.add(MessageType::kLayout,
                 isChunked ? chunkLayout(dataset, index) : plainLayout(dataset));
    if (isChunked) messages.add(MessageType::kFilters, filtersOf(dataset), kConstant);
    return finish(messages, dataset.attributes);
  }

  /// Adds the attributes, and appends the header.
  Outcome<std::uint64_t> finish(Messages& messages, const ObjectValues& attributes) {
    if (!attributes.empty()) messages.add(MessageType::kAttributeInfo, nothingOutside());
    for (const auto& [name, value] : attributes) {
      messages.add(MessageType::kAttribute, attributeOf(name, value));
      if (!messages.fits()) {
        return Failure{
            fmt::format("attribute {}: cannot be stored, found {} bytes, expected less "
                        "than 64 KiB",
                        name, value.bytes.size())};
      }
    }
    if (!messages.fits()) return Failure{"cannot be stored, its description exceeds 64 KiB"};
    const std::size_t from = sink_.size();
    sink_.text(kHeaderMark);
    sink_.u8(kHeaderVersion);
    sink_.u8(kHeaderFlags);
    sink_.u16(kMostInHeader);
    sink_.u16(kMostInHeader - 1);
    sink_.u32(messages.bytes().size());
    sink_.bytes(messages.bytes());
    sink_.u32(lookup3(sink_.from(from)));
    return start_ + from;
  }

  std::uint64_t start_;
  ByteSink sink_;
};

}  // namespace

Outcome<EncodedTree> encodeTree(const ObjectGroup& root, std::uint64_t address) {
  Encoder encoder(address);
  const auto rootAddress = encoder.group(root);
  if (!rootAddress.ok()) return rootAddress.failure();
  return EncodedTree{encoder.sink().take(), *rootAddress};
}

std::array<std::byte, kSuperblockBytes> encodeSuperblock(std::uint64_t rootAddress,
                                                         std::uint64_t fileBytes, bool hasChunks) {
  constexpr std::uint8_t kNumberBytes = 8;
  ByteSink sink;
  sink.text(kFileMark);
  sink.u8(hasChunks ? kChunkFileVersion : kOldestVersion);
  sink.u8(kNumberBytes);
  sink.u8(kNumberBytes);
  sink.u8(0);
  sink.u64(0);
  sink.u64(kNoAddress);
  sink.u64(fileBytes);
  sink.u64(rootAddress);
  sink.u32(lookup3(sink.from(0)));
  std::array<std::byte, kSuperblockBytes> block{};
  std::ranges::copy(sink.from(0), block.begin());
  return block;
}

}  // namespace Fiber::Container
