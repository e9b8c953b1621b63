// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/TreeDecoder.hpp"

#include <algorithm>
#include <set>

#include "datamodel/container/objects/ByteCursor.hpp"
#include "datamodel/container/objects/ChunkArrayBytes.hpp"
#include "datamodel/container/objects/FileWindow.hpp"
#include "datamodel/container/objects/Lookup3.hpp"
#include "datamodel/container/objects/MessageReader.hpp"
#include "datamodel/container/objects/TreeEncoder.hpp"

namespace Fiber::Container {

namespace {

/// Levels of groups from the root down; bundle files have seven.
constexpr int kMostLevels = 16;

/// More than the metadata of most tiles.
constexpr std::uint64_t kTailBytes = std::uint64_t{1} << 15U;

class Decoder {
 public:
  explicit Decoder(FileWindow& file) : file_(file) {}

  bool group(const Messages& messages, int levels, ObjectGroup& group) {
    MessageReader reader(messages);
    if (!reader.skipNothingOutside(MessageType::kLinkInfo)) return false;
    if (reader.next(MessageType::kGroupInfo) == nullptr) return false;
    while (const auto* message = reader.next(MessageType::kLink)) {
      const auto link = linkOf(message->body);
      if (!link || !member(*link, levels, group)) return false;
    }
    return reader.readAttributes(group.attributes);
  }

  /// The messages of the object at an address. Every object is entered once.
  std::optional<Messages> header(std::uint64_t address) {
    constexpr std::uint64_t kPrefixBytes = 14;
    if (!entered_.insert(address).second) return std::nullopt;
    ByteCursor prefix(file_.at(address, kPrefixBytes));
    const bool known = prefix.text(kHeaderMark.size()) == kHeaderMark &&
                       prefix.u8() == kHeaderVersion && prefix.u8() == kHeaderFlags;
    prefix.u32();
    const std::uint64_t messageBytes = prefix.u32();
    if (!known || !prefix.ok()) return std::nullopt;
    const std::uint64_t summedBytes = kPrefixBytes + messageBytes;
    const auto bytes = file_.at(address, summedBytes + kChecksumBytes);
    if (bytes.empty()) return std::nullopt;
    const auto summed = bytes.first(static_cast<std::size_t>(summedBytes));
    ByteCursor checksum(bytes.subspan(summed.size()));
    if (checksum.u32() != lookup3(summed)) return std::nullopt;
    return messagesOf(summed.subspan(kPrefixBytes));
  }

 private:
  bool member(const Link& link, int levels, ObjectGroup& group) {
    const auto messages = header(link.address);
    if (!messages || messages->empty() || levels == 0) return false;
    if (messages->front().type == MessageType::kLinkInfo) {
      const auto [child, isNew] = group.groups.try_emplace(link.name);
      return isNew && this->group(*messages, levels - 1, child->second);
    }
    const auto [child, isNew] = group.datasets.try_emplace(link.name);
    return isNew && MessageReader(*messages).readDataset(child->second);
  }

  FileWindow& file_;
  std::set<std::uint64_t> entered_;
};

/// The address of the root group that a superblock names, if it is one of ours.
std::optional<std::uint64_t> rootAddress(FileWindow& file) {
  const auto bytes = file.at(0, kSuperblockBytes);
  if (bytes.size() != kSuperblockBytes) return std::nullopt;
  ByteCursor cursor(bytes);
  constexpr std::size_t kVersionAt = 8;
  constexpr std::size_t kRootAt = 36;
  cursor.bytes(kVersionAt);
  const std::uint64_t version = cursor.u8();
  cursor.bytes(kRootAt - kVersionAt - 1);
  const std::uint64_t address = cursor.u64();
  const auto expected = encodeSuperblock(address, file.fileBytes(), version == kChunkFileVersion);
  return std::ranges::equal(bytes, expected) ? std::optional(address) : std::nullopt;
}

}  // namespace

std::optional<ObjectGroup> decodeTree(int descriptor, std::uint64_t fileBytes) {
  FileWindow file(descriptor, fileBytes, kTailBytes);
  const auto address = rootAddress(file);
  if (!address) return std::nullopt;
  Decoder decoder(file);
  const auto messages = decoder.header(*address);
  ObjectGroup root;
  if (!messages || !decoder.group(*messages, kMostLevels, root)) return std::nullopt;
  return root;
}

std::optional<std::vector<ChunkPlace>> decodeChunks(int descriptor, std::uint64_t fileBytes,
                                                    const ObjectDataset& dataset,
                                                    std::uint64_t count) {
  if (dataset.index.kind == ChunkIndex::Kind::kOne) {
    if (count != 1) return std::nullopt;
    return std::vector<ChunkPlace>{dataset.index.only};
  }
  FileWindow file(descriptor, fileBytes);
  const auto plainBytes =
      product(dataset.chunkCounts[0], dataset.chunkCounts[1], dataset.value.type.bytes);
  // Every chunk is listed, so there are fewer of them than bytes in the file.
  if (!plainBytes || dataset.index.kind != ChunkIndex::Kind::kArray || count > fileBytes) {
    return std::nullopt;
  }
  const auto read = [&file](std::uint64_t address, std::uint64_t bytes) {
    const auto found = file.at(address, bytes);
    return std::vector<std::byte>(found.begin(), found.end());
  };
  return decodeChunkArray(read, dataset.index.address, count, *plainBytes);
}

}  // namespace Fiber::Container
