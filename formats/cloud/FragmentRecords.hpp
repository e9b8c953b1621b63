// SPDX-License-Identifier: Apache-2.0
//
// FragmentRecords: the plain point records of one fragment of a compressed file, and so the unit
// that the cache keeps or drops. Records take about half the room of the columns made of them.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "datamodel/memcore/Cache.hpp"
#include "datamodel/memcore/Chunk.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/FragmentRanges.hpp"

namespace Formats {

/// Invariant: never changes once made. Threads: reads may run at once.
class FragmentRecords final : public MemCore::Cacheable {
 public:
  explicit FragmentRecords(MemCore::StrongPtr<MemCore::Chunk<std::byte>> bytes)
      : bytes_(std::move(bytes)) {}

  std::span<const std::byte> bytes() const { return std::as_const(*bytes_).span(); }
  std::uint64_t byteCount() const override { return bytes_->size(); }

 private:
  MemCore::StrongPtr<MemCore::Chunk<std::byte>> bytes_;
};

using RecordsHandle = MemCore::StrongPtr<FragmentRecords>;

/// A range in pieces that are decoded at once: by chunks where the file has chunks.
std::vector<PointRange> piecesOf(const LasFile& file, const PointRange& range);

/// Reads records, naming file and points where that fails. Requires: room for all of them.
MemCore::Outcome<void> readRange(const LasFile& file, const PointRange& range,
                                 std::span<std::byte> out);

/// Decodes all records of a range. Requires: the range lies within the file.
/// Threads: may be called at once. Errors: those of readRange. May throw std::bad_alloc.
MemCore::Outcome<RecordsHandle> decodeRecords(const LasFile& file, const PointRange& range);

}  // namespace Formats
