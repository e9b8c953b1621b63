// SPDX-License-Identifier: Apache-2.0
//
// The fields of one representation on their way into a file. Fragments are taken some at a time,
// as many as make up a fixed amount of memory, so that a file of any size passes through; within a
// batch, fragments are made and chunks encoded by several threads. No call of the container
// library happens here, and what comes out does not depend on the number of threads.

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "datamodel/container/BundlePlan.hpp"
#include "datamodel/container/FieldEncoder.hpp"

namespace Fiber::Container {

/// A finished chunk of one field.
struct BatchChunk {
  std::size_t field = 0;
  ChunkRange range;
  EncodedChunk chunk;
  std::uint32_t checksum = 0;  ///< CRC-32 of the stored bytes
};

/// Rows of one field that go into the file as they are.
struct BatchRows {
  std::size_t field = 0;
  std::uint64_t start = 0;
  std::uint64_t width = 0;  ///< numbers per row
  MemCore::StrongPtr<MemBase> data;
  std::uint32_t checksum = 0;  ///< CRC-32 of the elements
};

struct EncodedBatch {
  std::vector<BatchChunk> chunks;
  std::vector<BatchRows> rows;
};

/// How much is encoded at once, in bytes of arrays.
struct BatchSizes {
  /// Fragments are taken in groups of this size. The order of chunks in the file follows from it,
  /// and which of them share codes, so it must not depend on the machine.
  std::uint64_t group = std::uint64_t{32} << 20U;
  /// Groups are taken until there is this much for every thread.
  std::uint64_t perThread = std::uint64_t{32} << 20U;
};

class RepresentationEncoder {
 public:
  /// The plan stays with the caller; fields whose points lie on no grid are marked in it.
  RepresentationEncoder(PlannedRepresentation& plan, StorageKind kind,
                        const BatchSizes& sizes = {});

  bool isFinished() const { return nextRow_ == ownRows_.size(); }
  /// Fragments of this file handled so far, and in all.
  std::size_t doneCount() const { return nextRow_; }
  std::size_t totalCount() const { return ownRows_.size(); }

  /// Makes and encodes the next fragments. Errors: "field <f>, fragment <n>: ..." when data cannot
  /// be made or are not as planned. Requires: not finished. `alongside`, if there is one, is called
  /// by one thread while the others encode; not at all after an error.
  MemCore::Outcome<EncodedBatch> next(const std::function<void()>& alongside = {});
  /// Whether points turned out to lie on no grid after others had been handed out as if they did:
  /// the file must be begun again, with the field marked in the plan.
  bool mustRestart() const { return mustRestart_; }

  /// How a field is stored; empty for a field without data. Settled by the first batch.
  const FieldEncoder* encoder(std::size_t field) const { return encoders_[field].get(); }
  /// The grid of a fragment's coordinates (by its place in the plan); empty: not on a grid.
  std::optional<CoordinateGrid> gridOf(std::size_t row) const {
    return grids_.empty() ? std::nullopt : grids_[row];
  }
  /// Whether fragments have checksums of their own: in raw storage.
  bool hasChecksums() const { return kind_ == StorageKind::Raw; }
  /// The checksum of a fragment's elements in raw storage.
  std::uint32_t checksumOf(std::size_t row, std::size_t field) const {
    return checksums_[row * plan_.fields.size() + field];
  }

 private:
  /// Some fragments of a batch, in a row.
  struct Group {
    std::size_t end = 0;       ///< behind the last of them, in the batch
    std::size_t nextRow = 0;   ///< the fragment that follows, as a place in ownRows_
    std::uint64_t endRow = 0;  ///< row behind theirs
  };
  /// Chunks of a batch that lie below each other, each of which may take the codes of the one
  /// before.
  struct ChunkSeries {
    std::size_t first = 0;
    std::size_t step = 0;
    std::size_t count = 0;
  };
  /// The arrays of the fragments of one batch.
  struct Batch {
    std::vector<std::size_t> rows;                                 ///< places in the plan
    std::vector<std::vector<MemCore::StrongPtr<MemBase>>> arrays;  ///< [fragment][field]
    std::vector<GridPointsHandle> points;  ///< [fragment]; in place of the array of positions
    std::vector<Group> groups;
    std::vector<ChunkSeries> series;
    std::uint64_t bytes = 0;  ///< of all arrays
  };

  void makeEncoder(std::size_t field);
  /// Rows of the first fragments where they agree, else 0.
  std::uint64_t fragmentRows(std::size_t field) const;
  Batch takeRows();
  void takeGroup(Batch& batch);
  MemCore::Outcome<void> makeArrays(Batch& batch);
  MemCore::Outcome<void> makeRowArrays(Batch& batch, std::size_t i);
  MemCore::Outcome<void> makeArray(Batch& batch, std::size_t i, std::size_t field);
  bool takesGridPoints() const;
  GridPointsHandle gridPointsOf(const PlannedPart& part) const;
  MemCore::Outcome<void> putOnGrid(Batch& batch);
  MemCore::Outcome<void> refuseGrid(Batch& batch);
  void addPieces(Batch& batch, std::size_t i, EncodedBatch& encoded);
  MemCore::Outcome<void> settleFilters();
  void takeComplete(const Group& group, Batch& batch, EncodedBatch& encoded);
  MemCore::Outcome<void> encodeSeries(const ChunkSeries& series, EncodedBatch& encoded);
  MemCore::Outcome<void> encodeChunks(const Batch& batch, EncodedBatch& encoded,
                                      const std::function<void()>& alongside);
  std::uint64_t endOf(std::size_t field, const Group& group) const;
  std::optional<CoordinateGrid> namedGrid(const PlannedPart& positions) const;
  ChunkEncoder& threadEncoder(int thread);

  PlannedRepresentation& plan_;
  StorageKind kind_;
  BatchSizes sizes_;
  std::vector<std::size_t> ownRows_;  ///< places in the plan of the fragments of this file
  std::size_t nextRow_ = 0;           ///< place in ownRows_
  std::optional<std::size_t> positions_;
  std::vector<std::unique_ptr<FieldEncoder>> encoders_;        ///< by field
  std::vector<std::unique_ptr<ChunkEncoder>> threadEncoders_;  ///< by thread
  std::vector<std::optional<CoordinateGrid>> grids_;           ///< by place; empty without own ones
  std::vector<std::uint32_t> checksums_;
  std::optional<CoordinateGrid> firstGrid_;
  bool mustRestart_ = false;
};

}  // namespace Fiber::Container
