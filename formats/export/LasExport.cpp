// SPDX-License-Identifier: Apache-2.0

#include "formats/export/LasExport.hpp"

#include <fmt/format.h>
#include <omp.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "datamodel/container/ParallelTexts.hpp"
#include "formats/cloud/CloudFields.hpp"
#include "formats/export/InOrder.hpp"
#include "formats/export/OriginalOrder.hpp"
#include "formats/export/PacketPlan.hpp"
#include "formats/export/RecordEncoder.hpp"
#include "formats/export/RecordStore.hpp"
#include "formats/las/ExceptionEdge.hpp"
#include "formats/las/LasWriter.hpp"

namespace Formats {

using Fiber::Container::parallelTexts;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Threads that take part.
std::size_t threadCount() {
  return omp_in_parallel() != 0 ? 1 : static_cast<std::size_t>(omp_get_max_threads());
}

/// Chunks that are encoded together: some for every thread, so that none waits long for the others.
std::size_t chunksAtOnce() {
  constexpr std::size_t kPerThread = 5;
  return kPerThread * threadCount();
}

/// Chosen points of a fragment that stand in a row.
struct Stretch {
  const FragmentColumns* fragment = nullptr;
  std::size_t first = 0;
  std::size_t count = 0;
};

/// Records that are all about to be set.
using RecordBytes = std::vector<std::byte, MemCore::UninitialisedAllocator<std::byte>>;

/// The records of one chunk.
struct Piece {
  std::vector<Stretch> stretches;
  RecordBytes records;
  std::size_t carriedPoints = 0;  ///< at the front, encoded before
  std::size_t points = 0;         ///< all of them
  bool isComplete = false;        ///< encoded as a chunk
  EncodedChunk encoded;
};

LasWriterOptions writerOptions(const LasExportJob& job) {
  LasWriterOptions options = job.target->writer;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    options.header.scale[axis] = job.grid[axis].scale;
    options.header.offset[axis] = job.grid[axis].offset;
  }
  return options;
}

/// One export in progress.
class Exporter {
 public:
  explicit Exporter(const LasExportJob& job)
      : job_(job),
        encoder_(*job.source, *job.target, job.grid, job.isLossy),
        recordBytes_(job.target->writer.header.recordBytes) {}

  Outcome<PointFileResult> run() {
    if (auto begun = begin(); !begun) return begun.failure();
    if (auto done = threadCount() > 1 ? exportOverlapping() : exportInTurn(); !done) {
      return done.failure();
    }
    if (auto done = ordered_ ? writeOrdered() : writeCarried(); !done) return done.failure();
    if (result_.points == 0 && job_.skipsEmpty) return std::move(result_);
    if (auto done = writer_->finish(); !done) return done.failure();
    describeResult();
    return std::move(result_);
  }

 private:
  void describeResult() {
    result_.isWritten = true;
    result_.lossyFields = encoder_.lossyFields();
    const PointTotals& totals = writer_->totals();
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const auto coordinate = [&](std::int32_t raw) {
        return raw * job_.grid[axis].scale + job_.grid[axis].offset;
      };
      result_.minimum[axis] = coordinate(totals.minimum[axis]);
      result_.maximum[axis] = coordinate(totals.maximum[axis]);
    }
  }

  Outcome<void> begin() {
    LasWriterOptions options = writerOptions(job_);
    needs_.fields = encoder_.neededFields();
    needs_.fields.insert(needs_.fields.end(), job_.choosesBy.begin(), job_.choosesBy.end());
    needs_.grid = job_.grid;
    if (auto begun = beginOrder(); !begun) return begun;
    if (options.waveforms != WaveformPlace::Nowhere) {
      if (auto planned = planPackets(options); !planned) return planned;
      if (packets_->byteCount() == 0) options.waveforms = WaveformPlace::Nowhere;
    }
    auto writer = LasWriter::create(job_.path, options);
    if (!writer) return writer.failure();
    writer_ = std::move(*writer);
    if (options.waveforms == WaveformPlace::Nowhere) return {};
    const auto reserved = writer_->reserveWaveformPackets(packets_->byteCount());
    return reserved ? Outcome<void>() : Outcome<void>(reserved.failure());
  }

  Outcome<void> planPackets(const LasWriterOptions& options) {
    const auto descriptor = job_.source->numberOf(kWaveDescriptorField);
    const auto offset = job_.source->numberOf(kWaveOffsetField);
    const auto size = job_.source->numberOf(kWaveSizeField);
    if (!descriptor || !offset || !size) return Failure{"waveforms: nothing names their packets"};
    needs_.samples = true;
    needs_.lengths = true;
    auto plan = PacketPlan::make(*job_.source, job_.fragments, {*descriptor, *offset, *size},
                                 options.vlrs, {job_.choose, job_.choosesBy});
    if (!plan) return plan.failure();
    packets_ = std::move(*plan);
    return {};
  }

  /// Learns the former order, where it is known and wanted, and makes room for all records.
  Outcome<void> beginOrder() {
    if (!job_.restoresOrder || !OriginalOrder::isKnown(*job_.source)) return {};
    auto order = OriginalOrder::read(*job_.source, job_.fragments, {job_.choose, job_.choosesBy});
    if (!order) return order.failure();
    if (order->isKept()) return {};
    auto store = RecordStore::make(job_.path, order->pointCount() * recordBytes_);
    if (!store) return store.failure();
    needs_.fields.push_back(order->fileField());
    needs_.fields.push_back(order->indexField());
    ordered_.emplace(Ordered{std::move(*order), std::move(*store)});
    return {};
  }

  /// The next fragments, not loaded yet; nothing at the end.
  std::optional<FragmentLoad> nextLoad() {
    const auto rest = job_.fragments.subspan(begunFragments_);
    if (rest.empty()) return std::nullopt;
    // At first no more than a chunk for each thread: nothing can be encoded until it is there.
    const std::size_t chunks = begunFragments_ == 0 ? threadCount() : chunksAtOnce();
    const std::size_t count = batchSize(rest, chunks * LasWriter::chunkPoints());
    begunFragments_ += count;
    return std::optional<FragmentLoad>(std::in_place, *job_.source, rest.first(count), needs_);
  }

  /// Loads fragments while those before them are encoded.
  Outcome<void> exportOverlapping() {
    std::optional<FragmentLoad> load;
    for (std::optional<FragmentLoad> next = nextLoad(); load || next;) {
      if (auto done = exportBatch(load, next); !done) return done;
      load = std::exchange(next, nextLoad());
    }
    return {};
  }

  /// What a single thread would gain nothing from is not loaded before it is needed.
  Outcome<void> exportInTurn() {
    std::optional<FragmentLoad> none;
    while (std::optional<FragmentLoad> load = nextLoad()) {
      if (auto done = exportBatch(none, load); !done) return done;
      if (auto done = exportBatch(load, none); !done) return done;
    }
    return {};
  }

  /// Encodes and writes fragments that are loaded, if any, and loads the next ones, if any, at the
  /// same time: whoever has no chunk left to encode loads columns.
  Outcome<void> exportBatch(std::optional<FragmentLoad>& load, std::optional<FragmentLoad>& next) {
    std::vector<FragmentColumns> loaded;
    if (load) {
      auto finished = load->finish(job_.choose);
      if (!finished) return finished.failure();
      loaded = std::move(*finished);
    }
    std::vector<Piece> pieces = cut(loaded);
    const bool isLast = !next && begunFragments_ == job_.fragments.size();
    std::uint64_t bytes = next ? next->workBytes() : 0;
    for (const Piece& piece : pieces) bytes += piece.points * recordBytes_;
    const std::size_t steps = pieces.size() + (next ? next->stepCount() : 0);
    InOrder appending(pieces.size());
    auto done = parallelTexts(steps, bytes, [&](std::size_t i) {
      if (i >= pieces.size()) return next->run(i - pieces.size());
      if (auto encoded = encode(pieces[i], isLast); !encoded) return encoded;
      return appending.complete(i, [&](std::size_t piece) { return append(pieces[piece]); });
    });
    if (!done) return done;
    doneFragments_ += loaded.size();
    const bool goesOn = loaded.empty() || !job_.listener || job_.listener(doneFragments_);
    return goesOn ? Outcome<void>() : Outcome<void>(Failure{kExportStopped});
  }

  /// The chosen points of the batch as chunks; what was carried over begins the first.
  std::vector<Piece> cut(const std::vector<FragmentColumns>& loaded) {
    std::vector<Piece> pieces;
    const auto startPiece = [&] {
      Piece& piece = pieces.emplace_back();
      piece.records = std::exchange(carried_, {});
      piece.carriedPoints = piece.records.size() / recordBytes_;
      piece.points = piece.carriedPoints;
    };
    for (const FragmentColumns& fragment : loaded) {
      const std::size_t count = fragment.choice.countOf(*fragment.fragment);
      for (std::size_t first = 0; first < count;) {
        if (pieces.empty() || pieces.back().points == LasWriter::chunkPoints()) startPiece();
        Piece& piece = pieces.back();
        const std::size_t taken = std::min(LasWriter::chunkPoints() - piece.points, count - first);
        piece.stretches.push_back({&fragment, first, taken});
        piece.points += taken;
        first += taken;
      }
    }
    return pieces;
  }

  /// What does not fill a chunk waits for more, except at the end of the file.
  Outcome<void> encode(Piece& piece, bool isLast) {
    piece.records.resize(piece.points * recordBytes_);
    auto rest = std::span(piece.records).subspan(piece.carriedPoints * recordBytes_);
    std::vector<std::uint64_t> waveOffsets;
    for (const Stretch& stretch : piece.stretches) {
      if (packets_) {
        waveOffsets.resize(stretch.count);
        auto done = packets_->write(*stretch.fragment, stretch.first, waveOffsets, *writer_);
        if (!done) return done;
      }
      const auto records = rest.first(stretch.count * recordBytes_);
      auto done = encoder_.encode(*stretch.fragment, stretch.first, waveOffsets, records);
      if (!done) return Failure{fmt::format("{}: {}", job_.path, done.error())};
      rest = rest.subspan(records.size());
    }
    if (ordered_) return scatter(piece);
    piece.isComplete = isLast || piece.points == LasWriter::chunkPoints();
    if (!piece.isComplete) return {};
    auto encoded = writer_->encodeChunk(piece.records);
    if (!encoded) return encoded.failure();
    piece.encoded = std::move(*encoded);
    return {};
  }

  /// Puts each record where it was. Every place has one writer.
  Outcome<void> scatter(const Piece& piece) {
    const std::byte* from = piece.records.data();
    std::byte* to = ordered_->store.bytes().data();
    std::vector<std::uint64_t> places;
    for (const Stretch& stretch : piece.stretches) {
      places.resize(stretch.count);
      ordered_->order.placesOf(*stretch.fragment, stretch.first, places);
      for (const std::uint64_t place : places) {
        std::memcpy(to + place * recordBytes_, from, recordBytes_);
        from += recordBytes_;
      }
    }
    return {};
  }

  Outcome<void> append(Piece& piece) {
    result_.points += piece.points - piece.carriedPoints;
    if (ordered_) return {};
    if (!piece.isComplete) {
      carried_ = std::move(piece.records);
      return {};
    }
    auto written = writer_->writeChunk(piece.records, piece.encoded);
    piece = Piece();
    return written;
  }

  Outcome<void> writeCarried() {
    if (carried_.empty()) return {};
    const auto encoded = writer_->encodeChunk(carried_);
    if (!encoded) return encoded.failure();
    return writer_->writeChunk(carried_, *encoded);
  }

  /// Chunk after chunk from the store, some at a time.
  Outcome<void> writeOrdered() {
    const std::size_t chunkBytes = LasWriter::chunkPoints() * recordBytes_;
    const std::size_t atOnce = chunksAtOnce();
    for (auto rest = std::span<const std::byte>(ordered_->store.bytes()); !rest.empty();) {
      std::vector<std::span<const std::byte>> chunks;
      while (!rest.empty() && chunks.size() < atOnce) {
        chunks.push_back(rest.first(std::min(chunkBytes, rest.size())));
        rest = rest.subspan(chunks.back().size());
      }
      std::vector<EncodedChunk> encoded(chunks.size());
      InOrder writing(chunks.size());
      auto done = parallelTexts(chunks.size(), chunks.size() * chunkBytes, [&](auto i) {
        auto chunk = writer_->encodeChunk(chunks[i]);
        if (!chunk) return Outcome<void>(chunk.failure());
        encoded[i] = std::move(*chunk);
        return writing.complete(
            i, [&](std::size_t k) { return writer_->writeChunk(chunks[k], encoded[k]); });
      });
      if (!done) return done;
      if (job_.listener && !job_.listener(job_.fragments.size())) return Failure{kExportStopped};
    }
    return {};
  }

  /// Where records go that are to come in their former order.
  struct Ordered {
    OriginalOrder order;
    RecordStore store;
  };

  const LasExportJob& job_;
  RecordEncoder encoder_;
  std::size_t recordBytes_;
  ColumnNeeds needs_;
  std::unique_ptr<LasWriter> writer_;
  std::unique_ptr<PacketPlan> packets_;
  std::optional<Ordered> ordered_;
  RecordBytes carried_;  ///< records of the last, unfinished chunk
  PointFileResult result_;
  std::size_t begunFragments_ = 0;  ///< at the front of the job's, loaded or being loaded
  std::size_t doneFragments_ = 0;   ///< of those, encoded
};

}  // namespace

Outcome<PointFileResult> exportLas(const LasExportJob& job) {
  return withoutExceptions(job.path, [&] { return Exporter(job).run(); });
}

}  // namespace Formats
