// SPDX-License-Identifier: Apache-2.0

#include "formats/laz/LazChunkWriter.hpp"

#include <fmt/format.h>

#include <utility>

#include "formats/las/ByteStream.hpp"
#include "formats/las/PointLayout.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Readers take this for a file whose writer did not come to its end.
constexpr std::int64_t kNoTable = -1;

std::vector<std::byte> offsetBytes(std::int64_t offset) {
  ByteWriter writer;
  writer.put(offset);
  return writer.finish();
}

}  // namespace

Outcome<LazChunkWriter> LazChunkWriter::make(std::uint8_t pointFormat, std::size_t recordBytes) {
  const std::size_t extraBytes = recordBytes - standardRecordBytes(pointFormat);
  Outcome<LazCodec> codec =
      LazCodec::forFormat(pointFormat, static_cast<std::uint16_t>(extraBytes), kUsualChunkPoints);
  if (!codec) return codec.failure();
  return LazChunkWriter(std::move(*codec));
}

VariableRecord LazChunkWriter::record() const {
  VariableRecord record;
  record.userId = kLaszipUserId;
  record.recordId = kLaszipRecordId;
  record.description = "LASzip compression";
  record.payload = codec_.record();
  return record;
}

Outcome<void> LazChunkWriter::begin(OutputFile& file) {
  tablePlace_ = file.sizeBytes();
  return file.append(offsetBytes(kNoTable));
}

Outcome<std::vector<std::byte>> LazChunkWriter::compress(std::span<const std::byte> records) const {
  const std::size_t pointCount = records.size() / codec_.recordBytes();
  if (pointCount > kUsualChunkPoints) {
    return Failure{fmt::format("chunk too long, found {} points, expected at most {}", pointCount,
                               kUsualChunkPoints)};
  }
  return codec_.compress(records);
}

Outcome<void> LazChunkWriter::append(OutputFile& file, std::span<const std::byte> chunk,
                                     std::uint64_t pointCount) {
  if (hasShortChunk_) {
    return Failure{
        fmt::format("{}: chunk behind a short one, found chunk {} of {} points, expected all but "
                    "the last to have {}",
                    file.path(), chunks_.size(), chunks_.back().point_count, kUsualChunkPoints)};
  }
  hasShortChunk_ = pointCount != kUsualChunkPoints;
  chunks_.push_back({pointCount, chunk.size()});
  return file.append(chunk);
}

Outcome<void> LazChunkWriter::finish(OutputFile& file) {
  const auto tableAt = static_cast<std::int64_t>(file.sizeBytes());
  const Outcome<std::vector<std::byte>> table = codec_.writeChunkTable(chunks_);
  if (!table) return Failure{fmt::format("{}: {}", file.path(), table.error())};
  if (auto written = file.append(*table); !written) return written;
  return file.overwrite(tablePlace_, offsetBytes(tableAt));
}

}  // namespace Formats
