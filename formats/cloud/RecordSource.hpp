// SPDX-License-Identifier: Apache-2.0
//
// RecordSource: where the point records of one fragment come from, whenever they are needed:
//   - an uncompressed file is read where it stands, any part of it;
//   - a compressed one is decoded as a whole, and the records stay in the cache, or, where the
//     cloud has a spill, on the disk, from where any part is read like that of a plain file.
//
// Files that are one compressed stream (the oldest LASzip scheme) can only be decoded from the
// front. Their fragments take turns, and a fragment that is asked before its predecessors has them
// decoded too, instead of leaving them to be decoded again from the start of the file.

#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "formats/cloud/FragmentRecords.hpp"
#include "formats/cloud/RecordSpill.hpp"

namespace Formats {

class RecordSource;

/// What the sources of one file share. Invariant: only `nextInStream` changes once all are made.
struct FileRecords {
  std::shared_ptr<const LasFile> file;
  std::vector<std::weak_ptr<RecordSource>> fragments;  ///< In the order of the points.
  std::shared_ptr<RecordSpill> spill;                  ///< Null: decoded records are not spilled.
  std::uint64_t spillOffset = 0;                       ///< Of the file's first record there.

  std::mutex streamMutex;        ///< Held while a stream is decoded; guards `nextInStream`.
  std::size_t nextInStream = 0;  ///< Fragments in front of it have all been decoded once.
};

/// Whether records that have to be decoded will be wanted again: the cache takes them then. If not,
/// they are decoded as they are read, a chunk at a time, and nobody else sees them.
enum class Keep { Yes, No };

/// The records of one fragment, open for reading by one user, who keeps them in memory by it if
/// that is where they are. Threads: one at a time.
class RecordView {
 public:
  /// How a view comes by records that are not in memory.
  enum class Way { FromStorage, ByDecoding };

  RecordView(std::shared_ptr<RecordSource> source, Way way)
      : source_(std::move(source)), way_(way) {}
  RecordView(std::shared_ptr<RecordSource> source, RecordsHandle inMemory)
      : source_(std::move(source)), inMemory_(std::move(inMemory)) {}

  /// A view of the same records for another user.
  RecordView another() const {
    return inMemory_ ? RecordView(source_, inMemory_) : RecordView(source_, way_);
  }

  std::uint64_t pointCount() const;
  std::size_t recordBytes() const;
  bool isInMemory() const { return bool(inMemory_); }

  /// All records in pieces that are cheap to read one after the other, counted from the fragment's
  /// first one.
  std::vector<PointRange> pieces() const;
  /// Records `first` to `first + count` (half-open) of the fragment, valid until the next call.
  /// Requires: they lie in the fragment. Errors: naming file and points.
  MemCore::Outcome<std::span<const std::byte>> read(std::uint64_t first, std::uint64_t count);
  /// The same into a place of the caller's choice, of as many records as fit into it.
  MemCore::Outcome<void> copy(std::uint64_t first, std::span<std::byte> out);

 private:
  MemCore::Outcome<void> readStored(std::uint64_t first, std::span<std::byte> out);

  std::shared_ptr<RecordSource> source_;
  RecordsHandle inMemory_;  ///< Empty: to be had on the way below.
  Way way_ = Way::FromStorage;
  MemCore::StrongPtr<MemCore::Chunk<std::byte>> buffer_;
};

/// Threads: every operation may be called at once from any thread.
class RecordSource : public std::enable_shared_from_this<RecordSource> {
 public:
  /// `index` is the fragment's place in `file->fragments`.
  RecordSource(std::shared_ptr<FileRecords> file, const PointRange& range, std::size_t index)
      : file_(std::move(file)), range_(range), index_(index) {}

  const PointRange& range() const { return range_; }
  const LasFile& file() const { return *file_->file; }
  /// Who is shown all records whenever they have been decoded as a whole. To be set before any
  /// other thread knows the source.
  void setObserver(std::function<void(std::span<const std::byte>)> observer) {
    observer_ = std::move(observer);
  }

  /// Opens the records; where they are nowhere to be had and will be wanted again, decodes them,
  /// one thread while others wait. Errors: naming file and points. May throw std::bad_alloc.
  MemCore::Outcome<RecordView> open(Keep keep);
  /// Lets the cache drop the records.
  void release() const;

 private:
  friend class RecordView;
  MemCore::Outcome<RecordsHandle> decoded(Keep keep);
  MemCore::Outcome<RecordsHandle> decodeHere(Keep keep);
  MemCore::Outcome<RecordsHandle> decodeInTurn(Keep keep);
  RecordsHandle present() const;
  void store(const RecordsHandle& records, Keep keep);
  /// From file or spill. False: the records are not there (any more).
  MemCore::Outcome<bool> readStored(std::uint64_t first, std::span<std::byte> out);
  bool isStored() const;

  std::shared_ptr<FileRecords> file_;
  PointRange range_;
  std::size_t index_;
  std::function<void(std::span<const std::byte>)> observer_;
  std::atomic<bool> isSpilled_ = false;
  std::mutex decodeMutex_;         ///< held while the records are decoded
  mutable std::mutex stateMutex_;  ///< guards `records_`
  MemCore::WeakPtr<FragmentRecords> records_;
};

}  // namespace Formats
