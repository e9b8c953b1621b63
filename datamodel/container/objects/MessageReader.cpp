// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/MessageReader.hpp"

#include <algorithm>
#include <limits>

#include "datamodel/container/objects/ByteCursor.hpp"
#include "datamodel/container/objects/ChunkArrayBytes.hpp"
#include "datamodel/container/objects/TypeBytes.hpp"

namespace Fiber::Container {

std::optional<std::uint64_t> product(std::uint64_t a, std::uint64_t b, std::uint64_t c) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  if (b != 0 && a > kMost / b) return std::nullopt;
  const std::uint64_t ab = a * b;
  if (c != 0 && ab > kMost / c) return std::nullopt;
  return ab * c;
}

namespace {

/// The bytes of all elements of a value.
std::optional<std::uint64_t> bytesOf(const ObjectValue& value) {
  return product(value.extents.counts[0], value.extents.counts[1], value.type.bytes);
}

bool saysNothingOutside(std::span<const std::byte> body) {
  ByteSink expected;
  encodeNothingOutside(expected);
  return std::ranges::equal(body, expected.from(0));
}

bool addAttribute(std::span<const std::byte> body, ObjectValues& attributes) {
  ByteCursor cursor(body);
  if (cursor.u8() != kAttributeVersion || cursor.u8() != 0) return false;
  const auto nameBytes = static_cast<std::size_t>(cursor.u16());
  const auto typeBytes = static_cast<std::size_t>(cursor.u16());
  const auto extentBytes = static_cast<std::size_t>(cursor.u16());
  if (cursor.u8() > kUtf8 || nameBytes == 0) return false;
  std::string name = cursor.text(nameBytes - 1);
  if (cursor.u8() != 0) return false;
  ByteCursor type(cursor.bytes(typeBytes));
  ByteCursor extents(cursor.bytes(extentBytes));
  ObjectValue value{decodeType(type), decodeExtents(extents), {}};
  const bool known = value.type.kind != ObjectType::Kind::kForeign &&
                     value.extents.rank <= ObjectExtents::kMostRank && type.left() == 0 &&
                     extents.left() == 0;
  const auto bytes = bytesOf(value);
  if (!cursor.ok() || !known || bytes != cursor.left()) return false;
  const auto data = cursor.bytes(cursor.left());
  value.bytes.assign(data.begin(), data.end());
  return attributes.emplace(std::move(name), std::move(value)).second;
}

bool readPlainLayout(ByteCursor& cursor, ObjectDataset& dataset) {
  const std::uint64_t way = cursor.u8();
  const auto expected = bytesOf(dataset.value);
  if (!expected) return false;
  if (way == kInHeaderClass) {
    dataset.storage = ObjectDataset::Storage::kInHeader;
    const auto bytes = cursor.bytes(static_cast<std::size_t>(cursor.u16()));
    dataset.value.bytes.assign(bytes.begin(), bytes.end());
    return bytes.size() == *expected;
  }
  if (way != kPieceClass) return false;
  dataset.storage = ObjectDataset::Storage::kPiece;
  dataset.address = cursor.u64();
  return cursor.u64() == *expected;
}

bool readIndex(ByteCursor& cursor, bool isOne, ChunkIndex& index) {
  const std::uint64_t kind = cursor.u8();
  if (!isOne) {
    index.kind = ChunkIndex::Kind::kArray;
    const bool known = kind == kArrayIndex && cursor.u8() == kChunkArrayPageBits;
    index.address = cursor.u64();
    return known;
  }
  index.kind = ChunkIndex::Kind::kOne;
  const std::uint64_t stored = cursor.u64();
  if (kind != kOneChunkIndex || stored > std::numeric_limits<std::uint32_t>::max()) return false;
  index.only.storedBytes = static_cast<std::uint32_t>(stored);
  index.only.skippedFilters = static_cast<std::uint32_t>(cursor.u32());
  index.only.address = cursor.u64();
  return true;
}

bool readChunkLayout(ByteCursor& cursor, ObjectDataset& dataset) {
  if (cursor.u8() != kChunkClass) return false;
  const std::uint64_t flags = cursor.u8();
  const auto rank = static_cast<std::uint64_t>(std::max(dataset.value.extents.rank, 0));
  const bool known =
      cursor.u8() == rank + 1 && rank > 0 && (flags == 0 || flags == kOneFilteredChunk);
  const auto countBytes = static_cast<std::size_t>(cursor.u8());
  if (!known || countBytes == 0 || countBytes > sizeof(std::uint64_t)) return false;
  dataset.storage = ObjectDataset::Storage::kChunks;
  for (std::size_t d = 0; d < rank; ++d) dataset.chunkCounts[d] = cursor.uint(countBytes);
  return cursor.uint(countBytes) == dataset.value.type.bytes &&
         readIndex(cursor, flags == kOneFilteredChunk, dataset.index);
}

bool readLayout(std::span<const std::byte> body, ObjectDataset& dataset) {
  ByteCursor cursor(body);
  const std::uint64_t version = cursor.u8();
  const bool read = version == kPlainLayoutVersion   ? readPlainLayout(cursor, dataset)
                    : version == kChunkLayoutVersion ? readChunkLayout(cursor, dataset)
                                                     : false;
  return read && cursor.ok() && cursor.left() == 0;
}

/// One filter with its flags and values; false when it is not the one expected.
bool readFilter(ByteCursor& cursor, std::uint32_t elementBytes, ChunkFilter& filter) {
  const std::uint64_t id = cursor.u16();
  cursor.u16();
  const std::uint64_t values = cursor.u16();
  const std::uint64_t value = values == 1 ? cursor.u32() : 0;
  // In this order; any other is for the library to judge.
  if (id == kShuffleFilter && !filter.shuffle && !filter.deflate && !filter.checksum) {
    filter.shuffle = true;
    return values == 1 && value == elementBytes;
  }
  if (id == kDeflateFilter && !filter.deflate && !filter.checksum) {
    filter.deflate = true;
    return values == 1;
  }
  if (id != kFletcherFilter || filter.checksum) return false;
  filter.checksum = true;
  return values == 0;
}

bool readFilters(std::span<const std::byte> body, ObjectDataset& dataset) {
  ByteCursor cursor(body);
  if (cursor.u8() != kFiltersVersion) return false;
  const std::uint64_t count = cursor.u8();
  for (std::uint64_t f = 0; f < count; ++f) {
    if (!readFilter(cursor, dataset.value.type.bytes, dataset.filter)) return false;
  }
  return cursor.ok() && cursor.left() == 0 && count > 0;
}

bool readForm(const Message& extents, const Message& type, ObjectValue& value) {
  ByteCursor extentBytes(extents.body);
  ByteCursor typeBytes(type.body);
  value.extents = decodeExtents(extentBytes);
  value.type = decodeType(typeBytes);
  return value.type.kind != ObjectType::Kind::kForeign &&
         value.extents.rank <= ObjectExtents::kMostRank && extentBytes.left() == 0 &&
         typeBytes.left() == 0;
}

}  // namespace

std::optional<Messages> messagesOf(std::span<const std::byte> bytes) {
  constexpr std::uint64_t kConstantFlag = 1;
  Messages messages;
  ByteCursor cursor(bytes);
  while (cursor.left() > 0) {
    const auto type = static_cast<MessageType>(cursor.u8());
    const std::uint64_t size = cursor.u16();
    const std::uint64_t flags = cursor.u8();
    const auto body = cursor.bytes(static_cast<std::size_t>(size));
    if (!cursor.ok() || flags > kConstantFlag) return std::nullopt;
    messages.push_back({type, body});
  }
  return messages;
}

std::optional<Link> linkOf(std::span<const std::byte> body) {
  ByteCursor cursor(body);
  if (cursor.u8() != kLinkVersion) return std::nullopt;
  const std::uint64_t flags = cursor.u8();
  const std::uint64_t encoding = cursor.u8();
  if ((flags & ~std::uint64_t{1}) != kUtf8Link || encoding != kUtf8) return std::nullopt;
  Link link;
  link.name = cursor.text(static_cast<std::size_t>(cursor.uint((flags & 1U) != 0 ? 2 : 1)));
  link.address = cursor.u64();
  return cursor.ok() && cursor.left() == 0 ? std::optional(std::move(link)) : std::nullopt;
}

const Message* MessageReader::next(MessageType type) {
  if (next_ == messages_.size() || messages_[next_].type != type) return nullptr;
  return &messages_[next_++];
}

bool MessageReader::skipNothingOutside(MessageType type) {
  const Message* message = next(type);
  return message != nullptr && saysNothingOutside(message->body);
}

bool MessageReader::readDataset(ObjectDataset& dataset) {
  const Message* extents = next(MessageType::kExtents);
  const Message* type = next(MessageType::kType);
  const Message* fill = next(MessageType::kFillValue);
  const Message* layout = next(MessageType::kLayout);
  if (extents == nullptr || type == nullptr || fill == nullptr || layout == nullptr) return false;
  if (!readForm(*extents, *type, dataset.value) || !readLayout(layout->body, dataset)) {
    return false;
  }
  const Message* filters = next(MessageType::kFilters);
  const bool isChunked = dataset.storage == ObjectDataset::Storage::kChunks;
  if ((filters != nullptr) != isChunked) return false;
  if (isChunked && !readFilters(filters->body, dataset)) return false;
  return readAttributes(dataset.attributes);
}

bool MessageReader::readAttributes(ObjectValues& attributes) {
  const Message* info = next(MessageType::kAttributeInfo);
  if (info != nullptr && !saysNothingOutside(info->body)) return false;
  while (const Message* message = next(MessageType::kAttribute)) {
    if (!addAttribute(message->body, attributes)) return false;
  }
  return next_ == messages_.size();
}

}  // namespace Fiber::Container
