// SPDX-License-Identifier: Apache-2.0

#include "formats/laz/LazPoints.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include "formats/las/ByteStream.hpp"
#include "formats/laz/LazCodec.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// The first bytes of the points tell where the chunk table stands.
constexpr std::uint64_t kTableOffsetBytes = sizeof(std::int64_t);

/// No encoder gets more than about 1100 points into a byte: its models keep at least 1/32768 for
/// every symbol that does not occur, which for the smallest record adds up to 0.007 bits. A chunk
/// that claims more is damaged, and would only make its reader allocate.
constexpr std::uint64_t kMaxPointsPerByte = 2000;

Failure prepend(const std::string& path, const std::string& text) {
  return Failure{fmt::format("{}: {}", path, text)};
}

class ChunkedPoints : public PointReader {
 public:
  ChunkedPoints(std::shared_ptr<const InputFile> file, LazCodec codec, std::vector<PointRun> runs)
      : file_(std::move(file)), codec_(std::move(codec)), runs_(std::move(runs)) {}

  PointStorage storage() const override { return PointStorage::Chunked; }
  const std::vector<PointRun>& runs() const override { return runs_; }
  std::uint64_t decodedChunks() const override { return decodedChunks_; }

  Outcome<void> read(std::uint64_t first, std::span<std::byte> out) const override {
    const std::size_t recordBytes = codec_.recordBytes();
    auto run = std::upper_bound(
        runs_.begin(), runs_.end(), first,
        [](std::uint64_t point, const PointRun& other) { return point < other.firstPoint; });
    --run;
    while (!out.empty()) {
      const std::uint64_t skip = first - run->firstPoint;
      const std::uint64_t count =
          std::min<std::uint64_t>(run->pointCount - skip, out.size() / recordBytes);
      const std::span<std::byte> part = out.first(count * recordBytes);
      if (Outcome<void> done = decode(*run, skip, part); !done) return done;
      out = out.subspan(part.size());
      first += count;
      ++run;
    }
    return {};
  }

 private:
  Outcome<void> decode(const PointRun& run, std::uint64_t skip, std::span<std::byte> out) const {
    const Outcome<std::vector<std::byte>> bytes = file_->read(run.fileOffset, run.fileBytes);
    if (!bytes) return bytes.failure();
    ++decodedChunks_;
    const Outcome<void> done = codec_.decompress(*bytes, skip, out);
    if (done) return {};
    return Failure{fmt::format("{}: points {} to {}: {}", file_->path(), run.firstPoint,
                               run.firstPoint + run.pointCount - 1, done.error())};
  }

  std::shared_ptr<const InputFile> file_;
  LazCodec codec_;
  std::vector<PointRun> runs_;
  mutable std::atomic<std::uint64_t> decodedChunks_ = 0;
};

class SequentialPoints : public PointReader {
 public:
  SequentialPoints(std::shared_ptr<const InputFile> file, LazCodec codec, const PointRun& run)
      : file_(std::move(file)), codec_(std::move(codec)) {
    if (run.pointCount > 0) runs_.push_back(run);
  }

  PointStorage storage() const override { return PointStorage::Sequential; }
  const std::vector<PointRun>& runs() const override { return runs_; }
  std::uint64_t decodedChunks() const override { return decodedChunks_; }

  Outcome<void> read(std::uint64_t first, std::span<std::byte> out) const override {
    if (out.empty()) return {};
    const std::lock_guard lock(mutex_);
    Outcome<void> done = decode(first, out);
    // A decoder that has failed is dropped, so that the next reader starts over.
    if (done) return done;
    decoder_.reset();
    return prepend(file_->path(), done.error());
  }

 private:
  Outcome<void> decode(std::uint64_t first, std::span<std::byte> out) const {
    if (!decoder_ || first < nextPoint_) {
      if (Outcome<void> started = start(); !started) return started;
    }
    if (Outcome<void> skipped = skipTo(first); !skipped) return skipped;
    nextPoint_ += out.size() / codec_.recordBytes();
    return decoder_->read(out);
  }

  Outcome<void> start() const {
    auto decoder = LazStreamDecoder::make(
        codec_, [this](std::uint64_t offset, std::span<std::byte> buffer) -> std::int64_t {
          return readBytes(offset, buffer);
        });
    if (!decoder) return decoder.failure();
    decoder_ = std::move(*decoder);
    nextPoint_ = 0;
    ++decodedChunks_;
    return {};
  }

  Outcome<void> skipTo(std::uint64_t point) const {
    constexpr std::uint64_t kStep = 1024;
    std::vector<std::byte> unused;
    while (nextPoint_ < point) {
      const std::uint64_t count = std::min(kStep, point - nextPoint_);
      unused.resize(count * codec_.recordBytes());
      if (Outcome<void> done = decoder_->read(unused); !done) return done;
      nextPoint_ += count;
    }
    return {};
  }

  std::int64_t readBytes(std::uint64_t offset, std::span<std::byte> buffer) const {
    const PointRun& run = runs_.front();
    const std::uint64_t left = run.fileBytes - std::min(offset, run.fileBytes);
    const std::span<std::byte> part = buffer.first(std::min<std::uint64_t>(buffer.size(), left));
    const Outcome<void> done = file_->read(run.fileOffset + offset, part);
    return done ? static_cast<std::int64_t>(part.size()) : -1;
  }

  std::shared_ptr<const InputFile> file_;
  LazCodec codec_;
  std::vector<PointRun> runs_;
  mutable std::mutex mutex_;
  mutable std::unique_ptr<LazStreamDecoder> decoder_;  ///< Guarded by mutex_.
  mutable std::uint64_t nextPoint_ = 0;                ///< Guarded by mutex_.
  mutable std::atomic<std::uint64_t> decodedChunks_ = 0;
};

/// Where chunks and table stand.
struct ChunkArea {
  std::uint64_t begin = 0;  ///< First byte of the first chunk.
  std::uint64_t table = 0;  ///< First byte of the table; chunks end before it.
};

Outcome<std::int64_t> readOffset(const InputFile& file, std::uint64_t at) {
  std::array<std::byte, kTableOffsetBytes> bytes{};
  if (const Outcome<void> done = file.read(at, bytes); !done) return done.failure();
  return loadValue<std::int64_t>(bytes.data());
}

Outcome<ChunkArea> findChunks(const InputFile& file, const LasHeader& header) {
  const std::uint64_t begin = header.pointDataOffset + kTableOffsetBytes;
  if (begin > file.sizeBytes()) {
    return prepend(file.path(), fmt::format("points cut off, found {} bytes, expected more than {}",
                                            file.sizeBytes(), begin));
  }
  Outcome<std::int64_t> offset = readOffset(file, header.pointDataOffset);
  if (!offset) return offset.failure();
  const auto isPlausible = [&](std::int64_t table) {
    return table >= 0 && static_cast<std::uint64_t>(table) >= begin &&
           static_cast<std::uint64_t>(table) <= file.sizeBytes() - kChunkTableHeaderBytes;
  };
  // An encoder that could not go back leaves the offset at the very end of the file.
  if (*offset <= 0) offset = readOffset(file, file.sizeBytes() - kTableOffsetBytes);
  if (!offset) return offset.failure();
  if (!isPlausible(*offset)) {
    return prepend(file.path(),
                   fmt::format("chunk table missing, found byte offset {}, expected {} "
                               "to {}",
                               *offset, begin, file.sizeBytes()));
  }
  return ChunkArea{begin, static_cast<std::uint64_t>(*offset)};
}

Outcome<std::vector<LazChunk>> readTable(const InputFile& file, const LasHeader& header,
                                         const LazCodec& codec, const ChunkArea& area) {
  std::array<std::byte, kChunkTableHeaderBytes> head{};
  if (const Outcome<void> done = file.read(area.table, head); !done) return done.failure();
  const auto chunkCount = loadValue<std::uint32_t>(head.data() + sizeof(std::uint32_t));
  // Each chunk begins with an uncompressed record; the last one may be empty.
  const std::uint64_t mostChunks = (area.table - area.begin) / header.recordBytes + 1;
  if (chunkCount > mostChunks) {
    return prepend(file.path(), fmt::format("chunk table: too many chunks, found {}, expected at "
                                            "most {}",
                                            chunkCount, mostChunks));
  }
  // An entry takes less than 20 bytes; what follows the table is none of its business.
  const std::uint64_t tableBytes = std::min<std::uint64_t>(
      file.sizeBytes() - area.table, kChunkTableHeaderBytes + 20 * (std::uint64_t{chunkCount} + 1));
  const Outcome<std::vector<std::byte>> table = file.read(area.table, tableBytes);
  if (!table) return table.failure();
  Outcome<std::vector<LazChunk>> chunks = codec.readChunkTable(*table, chunkCount);
  if (!chunks) return prepend(file.path(), chunks.error());
  return chunks;
}

/// Turns the table into runs, and finds out whether it tells the truth.
class RunBuilder {
 public:
  RunBuilder(const InputFile& file, const LasHeader& header, const ChunkArea& area)
      : file_(file), header_(header), area_(area), nextByte_(area.begin) {}

  Outcome<std::vector<PointRun>> build(const std::vector<LazChunk>& chunks, const LazCodec& codec) {
    for (const LazChunk& chunk : chunks) {
      const std::uint64_t claimed =
          codec.hasVariableChunks() ? chunk.point_count : codec.chunkPoints();
      // The last chunk of a file with fixed chunks is usually not full.
      const std::uint64_t pointCount = std::min(claimed, header_.pointCount - nextPoint_);
      if (const Outcome<void> fits = check(chunk, pointCount); !fits) return fits.failure();
      if (pointCount > 0) runs_.push_back({nextPoint_, pointCount, nextByte_, chunk.byte_count});
      nextPoint_ += pointCount;
      nextByte_ += chunk.byte_count;
    }
    if (nextPoint_ == header_.pointCount) return std::move(runs_);
    return prepend(file_.path(), fmt::format("chunk table: points missing, found {}, expected {}",
                                             nextPoint_, header_.pointCount));
  }

 private:
  Outcome<void> check(const LazChunk& chunk, std::uint64_t pointCount) const {
    if (chunk.byte_count > area_.table - nextByte_) {
      return prepend(file_.path(),
                     fmt::format("chunk at point {}: reaches into the chunk table, found {} bytes, "
                                 "expected at most {}",
                                 nextPoint_, chunk.byte_count, area_.table - nextByte_));
    }
    const std::uint64_t mostPoints =
        chunk.byte_count < header_.recordBytes ? 0 : chunk.byte_count * kMaxPointsPerByte;
    if (pointCount > mostPoints) {
      return prepend(file_.path(),
                     fmt::format("chunk at point {}: too short for {} points, found {} "
                                 "bytes",
                                 nextPoint_, pointCount, chunk.byte_count));
    }
    return {};
  }

  const InputFile& file_;
  const LasHeader& header_;
  ChunkArea area_;
  std::uint64_t nextPoint_ = 0;
  std::uint64_t nextByte_;
  std::vector<PointRun> runs_;
};

Outcome<std::unique_ptr<PointReader>> openChunks(const std::shared_ptr<const InputFile>& file,
                                                 const LasHeader& header, LazCodec codec) {
  std::vector<PointRun> none;
  if (header.pointCount == 0) {
    return std::unique_ptr<PointReader>(
        std::make_unique<ChunkedPoints>(file, std::move(codec), std::move(none)));
  }
  const Outcome<ChunkArea> area = findChunks(*file, header);
  if (!area) return area.failure();
  const Outcome<std::vector<LazChunk>> chunks = readTable(*file, header, codec, *area);
  if (!chunks) return chunks.failure();
  Outcome<std::vector<PointRun>> runs = RunBuilder(*file, header, *area).build(*chunks, codec);
  if (!runs) return runs.failure();
  return std::unique_ptr<PointReader>(
      std::make_unique<ChunkedPoints>(file, std::move(codec), std::move(*runs)));
}

Outcome<std::unique_ptr<PointReader>> openStream(const std::shared_ptr<const InputFile>& file,
                                                 const LasHeader& header, LazCodec codec) {
  const std::uint64_t begin = std::min<std::uint64_t>(header.pointDataOffset, file->sizeBytes());
  const PointRun run{0, header.pointCount, begin, file->sizeBytes() - begin};
  if (run.pointCount > 0 &&
      (run.fileBytes < header.recordBytes || run.pointCount / kMaxPointsPerByte > run.fileBytes)) {
    return prepend(file->path(), fmt::format("points cut off, found {} bytes for {} points",
                                             run.fileBytes, run.pointCount));
  }
  return std::unique_ptr<PointReader>(
      std::make_unique<SequentialPoints>(file, std::move(codec), run));
}

}  // namespace

Outcome<std::unique_ptr<PointReader>> openLazPoints(const std::shared_ptr<const InputFile>& file,
                                                    const LasHeader& header,
                                                    std::span<const std::byte> laszipRecord) {
  Outcome<LazCodec> codec = LazCodec::fromRecord(laszipRecord);
  if (!codec) return prepend(file->path(), codec.error());
  if (codec->recordBytes() != header.recordBytes) {
    return prepend(file->path(), fmt::format("LASzip record: other record length, found {} bytes, "
                                             "expected {}",
                                             codec->recordBytes(), header.recordBytes));
  }
  if (codec->isChunked()) return openChunks(file, header, std::move(*codec));
  return openStream(file, header, std::move(*codec));
}

}  // namespace Formats
