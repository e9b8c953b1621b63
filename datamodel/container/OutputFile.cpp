// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/OutputFile.hpp"

#include <fmt/format.h>
#include <libdeflate.h>
#include <unistd.h>

#include <cerrno>

#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/FileDescriptor.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/objects/TreeEncoder.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Whether any dataset below a group has chunks.
bool hasChunks(const ObjectGroup& group) {
  for (const auto& [name, dataset] : group.datasets) {
    if (dataset.storage == ObjectDataset::Storage::kChunks) return true;
  }
  for (const auto& [name, child] : group.groups) {
    if (hasChunks(child)) return true;
  }
  return false;
}

}  // namespace

OutputFile::OutputFile(int descriptor, std::string name)
    : descriptor_(descriptor), name_(std::move(name)), end_(kSuperblockBytes) {}

Outcome<OutputFile> OutputFile::begin(int descriptor, std::string name) {
  OutputFile file(descriptor, std::move(name));
  if (auto emptied = file.cutTo(0); !emptied.ok()) return emptied.failure();
  return file;
}

Outcome<void> OutputFile::cutTo(std::uint64_t byteCount) const {
  if (::ftruncate(descriptor_, static_cast<off_t>(byteCount)) == 0) return {};
  return Failure{fmt::format("{}: cannot be cut to {} bytes, found \"{}\"", name_, byteCount,
                             systemError(errno))};
}

std::uint64_t OutputFile::reserve(std::uint64_t byteCount) {
  constexpr std::uint64_t kAlignFromBytes = 4096;
  constexpr std::uint64_t kAlignmentBytes = 64;
  if (byteCount >= kAlignFromBytes) {
    end_ = (end_ + kAlignmentBytes - 1) / kAlignmentBytes * kAlignmentBytes;
  }
  const std::uint64_t address = end_;
  end_ += byteCount;
  return address;
}

Outcome<void> OutputFile::write(std::uint64_t address, std::span<const std::byte> bytes) const {
  return writeAt(descriptor_, address, bytes, name_);
}

Outcome<std::uint64_t> OutputFile::append(std::span<const std::span<const std::byte>> pieces) {
  const std::uint64_t address = end_;
  const auto written = writeAllAt(descriptor_, address, pieces, name_);
  if (!written.ok()) return written.failure();
  for (const auto& piece : pieces) end_ += piece.size();
  return address;
}

Outcome<void> OutputFile::addDataset(ObjectGroup& group, const std::string& name,
                                     ObjectValue value) {
  ObjectDataset& dataset = group.datasets[name];
  const std::uint32_t checksum = libdeflate_crc32(0, value.bytes.data(), value.bytes.size());
  setNumber(dataset.attributes, kChecksumAttribute, checksum);
  if (!value.bytes.empty()) {
    dataset.address = reserve(value.bytes.size());
    if (auto written = write(dataset.address, value.bytes); !written.ok()) return written;
  }
  dataset.value = {std::move(value.type), value.extents, {}};
  return {};
}

Outcome<void> OutputFile::finish() {
  const auto tree = encodeTree(root_, end_);
  if (!tree.ok()) return Failure{fmt::format("{}: {}", name_, tree.error())};
  if (auto written = write(end_, tree->bytes); !written.ok()) return written;
  end_ += tree->bytes.size();
  return write(0, encodeSuperblock(tree->rootAddress, end_, hasChunks(root_)));
}

}  // namespace Fiber::Container
