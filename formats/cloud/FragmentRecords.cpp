// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/FragmentRecords.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "datamodel/memcore/ParallelFor.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

using ByteChunk = MemCore::Chunk<std::byte>;

/// Records per read where no chunk of the file says how many belong together.
constexpr std::uint64_t kReadRecords = 16384;

Failure unreadable(const LasFile& file, const PointRange& piece, std::string_view cause) {
  const std::string prefix = file.path() + ": ";
  if (cause.starts_with(prefix)) cause.remove_prefix(prefix.size());
  // Readers of chunks say themselves which points their chunk has.
  if (cause.starts_with("points ")) return Failure{fmt::format("{}: {}", file.path(), cause)};
  return Failure{fmt::format("{}: points {} to {}: {}", file.path(), piece.firstPoint,
                             piece.firstPoint + piece.pointCount - 1, cause)};
}

/// Reads one piece after the other: those of a stream must come in their order.
template <class Read>
Outcome<void> eachInTurn(std::span<const PointRange> pieces, const Read& read) {
  for (const PointRange& piece : pieces) {
    if (auto done = read(piece); !done) return done;
  }
  return {};
}

/// Reads pieces together with threads that have nothing else to do. Errors: of the first piece that
/// fails, by its place.
template <class Read>
Outcome<void> eachShared(std::span<const PointRange> pieces, const Read& read) {
  std::vector<Outcome<void>> outcomes(pieces.size());
  MemCore::shareSteps(pieces.size(), [&](std::size_t i) { outcomes[i] = read(pieces[i]); });
  for (auto& outcome : outcomes) {
    if (!outcome) return outcome;
  }
  return {};
}

/// Bytes of so many records.
std::size_t bytesOf(const LasFile& file, std::uint64_t points) {
  return static_cast<std::size_t>(points * file.recordBytes());
}

}  // namespace

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

Outcome<void> readRange(const LasFile& file, const PointRange& range, std::span<std::byte> out) {
  const auto read = file.readRecords(range.firstPoint, range.pointCount, out);
  if (!read) return unreadable(file, range, read.error());
  return {};
}

Outcome<RecordsHandle> decodeRecords(const LasFile& file, const PointRange& range) {
  const std::vector<PointRange> pieces = piecesOf(file, range);
  if (pieces.empty()) return MemCore::makeStrong<FragmentRecords>(MemCore::makeStrong<ByteChunk>());
  // The first piece goes into room of its own: a file that only claims to have so many points fails
  // before memory is taken for them.
  auto first = ByteChunk::uninitialised(bytesOf(file, pieces.front().pointCount));
  if (const auto read = readRange(file, pieces.front(), first->span()); !read) {
    return read.failure();
  }
  if (pieces.size() == 1) return MemCore::makeStrong<FragmentRecords>(first);
  const auto all = ByteChunk::uninitialised(bytesOf(file, range.pointCount));
  std::copy(first->begin(), first->end(), all->begin());
  const auto readPiece = [&](const PointRange& piece) {
    const auto place = all->span().subspan(bytesOf(file, piece.firstPoint - range.firstPoint),
                                           bytesOf(file, piece.pointCount));
    return readRange(file, piece, place);
  };
  const auto rest = std::span(pieces).subspan(1);
  const auto done = file.storage() == PointStorage::Sequential ? eachInTurn(rest, readPiece)
                                                               : eachShared(rest, readPiece);
  if (!done) return done.failure();
  return MemCore::makeStrong<FragmentRecords>(all);
}

}  // namespace Formats
