// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ObjectFile.hpp"

#include <fmt/format.h>
#include <libdeflate.h>

#include <algorithm>
#include <cstring>

#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/LibraryFile.hpp"
#include "datamodel/container/ParallelTexts.hpp"
#include "datamodel/container/objects/TreeDecoder.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

Outcome<ObjectFile> ObjectFile::open(const std::string& path) {
  auto opened = openRegularFile(path);
  if (!opened.ok()) return opened.failure();
  auto tree = decodeTree(opened->descriptor.get(), opened->stamp.sizeBytes);
  if (!tree) return openByLibrary(path);
  ObjectFile file;
  file.descriptor_ = std::move(opened->descriptor);
  file.fileBytes_ = opened->stamp.sizeBytes;
  file.root_ = std::move(*tree);
  return file;
}

Outcome<ObjectFile> ObjectFile::openByLibrary(const std::string& path) {
  auto library = LibraryFile::open(path);
  if (!library.ok()) return library.failure();
  auto descriptor = (*library)->ownDescriptor();
  if (!descriptor.ok()) return descriptor.failure();
  auto tree = (*library)->readTree();
  if (!tree.ok()) return Failure{fmt::format("{}: {}", path, tree.error())};
  ObjectFile file;
  file.descriptor_ = std::move(descriptor).value();
  file.fileBytes_ = (*library)->fileBytes();
  file.root_ = std::move(tree).value();
  file.library_ = *library;
  return file;
}

Outcome<void> ObjectFile::readValues(const ObjectDataset& dataset,
                                     std::span<std::byte> bytes) const {
  if (dataset.storage == ObjectDataset::Storage::kInHeader) {
    if (dataset.value.bytes.size() != bytes.size()) return Failure{"its values are not all there"};
    if (!bytes.empty()) std::memcpy(bytes.data(), dataset.value.bytes.data(), bytes.size());
    return {};
  }
  if (dataset.storage != ObjectDataset::Storage::kPiece) {
    return Failure{"stored in a way that bundle files do not use"};
  }
  if (bytes.empty()) return {};
  if (dataset.address == kNoAddress) return Failure{"its values were never written"};
  if (readInBlocks(dataset.address, bytes)) return {};
  return readAt(descriptor_.get(), dataset.address, bytes, "values");
}

/// Reads by several threads at once, which mostly have to fetch fresh pages; false when a block
/// cannot be read: reading as a whole then tells why.
bool ObjectFile::readInBlocks(std::uint64_t address, std::span<std::byte> bytes) const {
  constexpr std::size_t kBlockBytes = std::size_t{4} << 20U;
  const std::size_t blocks = bytes.size() / kBlockBytes + 1;
  if (blocks == 1) return false;
  return parallelTexts(blocks, bytes.size(),
                       [&](std::size_t b) {
                         const std::size_t begin = b * kBlockBytes;
                         const auto block =
                             bytes.subspan(begin, std::min(kBlockBytes, bytes.size() - begin));
                         return readAt(descriptor_.get(), address + begin, block, "values");
                       })
      .ok();
}

Outcome<ObjectValue> ObjectFile::checkedValue(const ObjectDataset& dataset) const {
  const ObjectValue& form = dataset.value;
  const std::uint64_t count = form.extents.counts[0];
  if (form.extents.rank > 1 || form.type.bytes == 0) return Failure{"no list of values"};
  if (count > fileBytes_ / form.type.bytes) {
    return Failure{
        fmt::format("claims {} values of {} bytes, more than the file", count, form.type.bytes)};
  }
  ObjectValue value{form.type, form.extents, {}};
  value.bytes.resize(static_cast<std::size_t>(count * form.type.bytes));
  if (auto read = readValues(dataset, value.bytes); !read.ok()) return read.failure();
  const auto expected = numberIn<std::uint32_t>(dataset.attributes, kChecksumAttribute);
  if (!expected.ok()) return expected.failure();
  if (*expected != libdeflate_crc32(0, value.bytes.data(), value.bytes.size())) {
    return Failure{"damaged, its checksum differs"};
  }
  return value;
}

Outcome<std::vector<ChunkPlace>> ObjectFile::chunksOf(const std::string& path,
                                                      const ObjectDataset& dataset,
                                                      std::uint64_t count) const {
  if (library_) return library_->chunksOf(path, dataset, count);
  auto chunks = decodeChunks(descriptor_.get(), fileBytes_, dataset, count);
  if (!chunks) return Failure{"the list of its chunks is damaged"};
  return std::move(*chunks);
}

}  // namespace Fiber::Container
