// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointDecoding.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <span>
#include <string_view>

namespace Formats {

using Eagle::BoundingBox;
using Eagle::PhysicalSpace;
using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

using Points = Fiber::MemArray<1, PhysicalSpace::point>;
using ByteChunk = MemCore::Chunk<std::byte>;

/// Records per block: positions, records and columns of a block stay in the second-level cache.
constexpr std::size_t kBlockRecords = 1024;
/// Records per read where no chunk of the file says how many belong together.
constexpr std::uint64_t kReadRecords = 16 * kBlockRecords;

/// Grows by positions. Written so that NaN loses every comparison and drops out.
struct BoxOfPoints {
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();
  PhysicalSpace::point min{kInfinity, kInfinity, kInfinity};
  PhysicalSpace::point max{-kInfinity, -kInfinity, -kInfinity};

  void add(std::span<const PhysicalSpace::point> points) {
    PhysicalSpace::point low = min;
    PhysicalSpace::point high = max;
    for (const PhysicalSpace::point& p : points) {
      low = {p.x < low.x ? p.x : low.x, p.y < low.y ? p.y : low.y, p.z < low.z ? p.z : low.z};
      high = {p.x > high.x ? p.x : high.x, p.y > high.y ? p.y : high.y,
              p.z > high.z ? p.z : high.z};
    }
    min = low;
    max = high;
  }
  StrongPtr<BoundingBox> box() const {
    if (!(min.x <= max.x && min.y <= max.y && min.z <= max.z)) return nullptr;
    return MemCore::makeStrong<BoundingBox>(min, max);
  }
};

/// The columns of one fragment being filled from front to back.
class ColumnFiller {
 public:
  ColumnFiller(const PointColumns& columns, std::uint64_t pointCount)
      : columns_(columns),
        positions_(Fiber::makeArray(MemCore::Chunk<PhysicalSpace::point>::uninitialised(
            static_cast<std::size_t>(pointCount)))) {
    for (const PointColumns::Field& field : columns.fields) {
      fieldColumns_.push_back(
          makeColumn(field.conversion.to, static_cast<std::size_t>(pointCount)));
    }
    outputs_.resize(columns.fields.size());
    converted_.resize(columns.fields.size());
  }

  /// Appends whole records.
  void add(std::span<const std::byte> records) {
    const std::size_t recordBytes = columns_.file->recordBytes();
    const std::size_t blockBytes = kBlockRecords * recordBytes;
    for (std::size_t at = 0; at < records.size(); at += blockBytes) {
      addBlock(records.subspan(at, std::min(blockBytes, records.size() - at)), recordBytes);
    }
  }

  DecodedPoints finish() {
    std::vector<StrongPtr<Fiber::MemBase>> all{positions_};
    all.insert(all.end(), fieldColumns_.begin(), fieldColumns_.end());
    return {MemCore::makeStrong<DecodedFragment>(std::move(all)), box_.box()};
  }

 private:
  void addBlock(std::span<const std::byte> records, std::size_t recordBytes) {
    const std::size_t count = records.size() / recordBytes;
    const auto points = positions_->span().subspan(done_, count);
    extractPositions(records, recordBytes, columns_.scaling, {&points.front().x, count * 3});
    box_.add(points);
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
      outputs_[i] = {columns_.fields[i].field, storedPlace(i, count)};
    }
    extractColumns(records, recordBytes, outputs_);
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
      const ValueConversion& conversion = columns_.fields[i].conversion;
      if (conversion.isIdentity()) continue;
      convertElements(conversion, outputs_[i].column, columnPlace(i, count));
    }
    done_ += count;
  }

  /// Where the next values of a column go.
  std::span<std::byte> columnPlace(std::size_t i, std::size_t count) {
    const auto& elements = fieldColumns_[i]->elements();
    const std::size_t width = elements->elementSize();
    return {elements->bytes() + done_ * width, count * width};
  }

  /// Where the stored values are put: the column itself, or a block to convert from.
  std::span<std::byte> storedPlace(std::size_t i, std::size_t count) {
    const ValueConversion& conversion = columns_.fields[i].conversion;
    if (conversion.isIdentity()) return columnPlace(i, count);
    const std::size_t width = elementBytes(conversion.from);
    converted_[i].resize(kBlockRecords * width);
    return std::span(converted_[i]).first(count * width);
  }

  const PointColumns& columns_;
  StrongPtr<Points> positions_;
  std::vector<StrongPtr<Fiber::MemBase>> fieldColumns_;
  std::vector<ColumnOutput> outputs_;
  std::vector<std::vector<std::byte>> converted_;  ///< per field: one block of stored values
  BoxOfPoints box_;
  std::size_t done_ = 0;
};

/// The range in pieces that are read at once: by chunks, or by some thousand records.
std::vector<PointRange> piecesOf(const LasFile& file, const PointRange& range) {
  std::vector<PointRange> pieces;
  const std::uint64_t end = range.firstPoint + range.pointCount;
  if (file.storage() != PointStorage::Chunked) {
    for (std::uint64_t at = range.firstPoint; at < end; at += kReadRecords) {
      pieces.push_back({at, std::min(kReadRecords, end - at)});
    }
    return pieces;
  }
  const auto& runs = file.runs();
  auto run = std::partition_point(runs.begin(), runs.end(), [&](const PointRun& candidate) {
    return candidate.firstPoint + candidate.pointCount <= range.firstPoint;
  });
  for (std::uint64_t at = range.firstPoint; at < end && run != runs.end(); ++run) {
    const std::uint64_t next = std::min(end, run->firstPoint + run->pointCount);
    if (next > at) pieces.push_back({at, next - at});
    at = next;
  }
  return pieces;
}

Failure unreadable(const LasFile& file, const PointRange& piece, std::string_view cause) {
  const std::string prefix = file.path() + ": ";
  if (cause.starts_with(prefix)) cause.remove_prefix(prefix.size());
  // Readers of chunks say themselves which points their chunk has.
  if (cause.starts_with("points ")) return Failure{fmt::format("{}: {}", file.path(), cause)};
  return Failure{fmt::format("{}: points {} to {}: {}", file.path(), piece.firstPoint,
                             piece.firstPoint + piece.pointCount - 1, cause)};
}

}  // namespace

Outcome<DecodedPoints> decodePoints(const PointColumns& columns, const PointRange& range) {
  const LasFile& file = *columns.file;
  const std::vector<PointRange> pieces = piecesOf(file, range);
  std::uint64_t longest = 0;
  for (const PointRange& piece : pieces) longest = std::max(longest, piece.pointCount);
  const auto records =
      ByteChunk::uninitialised(static_cast<std::size_t>(longest * file.recordBytes()));
  // The columns come after the first piece: a file that only claims to have so many points fails
  // before memory is taken for them.
  std::optional<ColumnFiller> filler;
  for (const PointRange& piece : pieces) {
    const auto bytes =
        records->span().first(static_cast<std::size_t>(piece.pointCount * file.recordBytes()));
    const auto read = file.readRecords(piece.firstPoint, piece.pointCount, bytes);
    if (!read) return unreadable(file, piece, read.error());
    if (!filler) filler.emplace(columns, range.pointCount);
    filler->add(bytes);
  }
  return filler ? filler->finish() : ColumnFiller(columns, 0).finish();
}

}  // namespace Formats
