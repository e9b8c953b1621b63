// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/RecordSource.hpp"

#include <algorithm>

namespace Formats {

using MemCore::Cache;
using MemCore::Outcome;

std::uint64_t RecordView::pointCount() const { return source_->range().pointCount; }

std::size_t RecordView::recordBytes() const { return source_->file().recordBytes(); }

std::vector<PointRange> RecordView::pieces() const {
  std::vector<PointRange> pieces = piecesOf(source_->file(), source_->range());
  for (PointRange& piece : pieces) piece.firstPoint -= source_->range().firstPoint;
  return pieces;
}

Outcome<std::span<const std::byte>> RecordView::read(std::uint64_t first, std::uint64_t count) {
  const auto bytes = static_cast<std::size_t>(count * recordBytes());
  if (!inMemory_) {
    if (!buffer_ || buffer_->size() < bytes) {
      buffer_ = MemCore::Chunk<std::byte>::uninitialised(bytes);
    }
    const auto place = buffer_->span().first(bytes);
    const Outcome<void> isRead = readStored(first, place);
    if (!isRead) return isRead.failure();
    if (!inMemory_) return std::span<const std::byte>(place);
  }
  return inMemory_->bytes().subspan(static_cast<std::size_t>(first * recordBytes()), bytes);
}

Outcome<void> RecordView::copy(std::uint64_t first, std::span<std::byte> out) {
  if (!inMemory_) {
    Outcome<void> isRead = readStored(first, out);
    if (!isRead || !inMemory_) return isRead;
  }
  const auto from = inMemory_->bytes().begin() + static_cast<std::ptrdiff_t>(first * recordBytes());
  std::copy_n(from, out.size(), out.begin());
  return {};
}

/// Reads from file or spill; where the spill has lost the records, they are in memory afterwards.
Outcome<void> RecordView::readStored(std::uint64_t first, std::span<std::byte> out) {
  if (way_ == Way::ByDecoding) {
    const LasFile& file = source_->file();
    const std::uint64_t point = source_->range().firstPoint + first;
    return readRange(file, {point, out.size() / file.recordBytes()}, out);
  }
  while (!inMemory_) {
    const Outcome<bool> isRead = source_->readStored(first, out);
    if (!isRead) return isRead.failure();
    if (*isRead) return {};
    auto decoded = source_->decoded(Keep::Yes);
    if (!decoded) return decoded.failure();
    inMemory_ = *decoded;
  }
  return {};
}

Outcome<RecordView> RecordSource::open(Keep keep) {
  if (isStored()) return RecordView(shared_from_this(), RecordView::Way::FromStorage);
  if (keep == Keep::No && file().storage() == PointStorage::Chunked && !present()) {
    return RecordView(shared_from_this(), RecordView::Way::ByDecoding);
  }
  auto records = decoded(keep);
  if (!records) return records.failure();
  return RecordView(shared_from_this(), *records);
}

void RecordSource::release() const {
  if (const auto records = present()) Cache::MemCache()->remove(*records);
}

/// Empty when another thread has spilled them meanwhile.
Outcome<RecordsHandle> RecordSource::decoded(Keep keep) {
  if (auto records = present()) {
    records->markAsUsed();
    return records;
  }
  // One decoding at a time: whoever waited here finds what the first one decoded.
  const std::lock_guard decoding(decodeMutex_);
  if (isStored()) return RecordsHandle();
  if (auto records = present()) {
    records->markAsUsed();
    return records;
  }
  return file().storage() == PointStorage::Sequential ? decodeInTurn(keep) : decodeHere(keep);
}

Outcome<RecordsHandle> RecordSource::decodeHere(Keep keep) {
  Outcome<RecordsHandle> made = decodeRecords(file(), range_);
  if (!made) return made;
  if (observer_) observer_((*made)->bytes());
  store(*made, keep);
  return made;
}

Outcome<RecordsHandle> RecordSource::decodeInTurn(Keep keep) {
  const std::lock_guard turn(file_->streamMutex);
  if (isStored()) return RecordsHandle();
  if (auto records = present()) return records;
  while (file_->nextInStream < index_) {
    if (const auto predecessor = file_->fragments[file_->nextInStream].lock()) {
      const auto made = predecessor->decodeHere(Keep::Yes);
      if (!made) return made.failure();
    }
    ++file_->nextInStream;
  }
  file_->nextInStream = std::max(file_->nextInStream, index_ + 1);
  return decodeHere(keep);
}

RecordsHandle RecordSource::present() const {
  const std::lock_guard lock(stateMutex_);
  return records_.lock();
}

void RecordSource::store(const RecordsHandle& records, Keep keep) {
  {
    const std::lock_guard lock(stateMutex_);
    records_ = records;
  }
  const auto& spill = file_->spill;
  const std::uint64_t offset = file_->spillOffset + range_.firstPoint * file().recordBytes();
  if (spill && spill->write(offset, records->bytes())) {
    isSpilled_ = true;
  } else if (keep == Keep::Yes) {
    Cache::MemCache()->insert(records);
  }
}

Outcome<bool> RecordSource::readStored(std::uint64_t first, std::span<std::byte> out) {
  const std::uint64_t point = range_.firstPoint + first;
  if (file().storage() == PointStorage::Plain) {
    const auto read = readRange(file(), {point, out.size() / file().recordBytes()}, out);
    if (!read) return read.failure();
    return true;
  }
  return isSpilled_ && file_->spill->read(file_->spillOffset + point * file().recordBytes(), out);
}

bool RecordSource::isStored() const {
  return file().storage() == PointStorage::Plain || (isSpilled_ && file_->spill->failure().empty());
}

}  // namespace Formats
