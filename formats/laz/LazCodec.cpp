// SPDX-License-Identifier: Apache-2.0

#include "formats/laz/LazCodec.hpp"

#include <algorithm>
#include <cstring>

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

const std::uint8_t* bytesOf(std::span<const std::byte> bytes) {
  return reinterpret_cast<const std::uint8_t*>(bytes.data());
}

std::uint8_t* bytesOf(std::span<std::byte> bytes) {
  return reinterpret_cast<std::uint8_t*>(bytes.data());
}

Failure failureOf(const LazError& error) { return Failure{error.text}; }

/// Copies what the library made and gives it back.
std::vector<std::byte> takeOver(LazBuffer& buffer) {
  const auto* data = reinterpret_cast<const std::byte*>(buffer.data);
  std::vector<std::byte> bytes(data, data + buffer.size);
  laz_buffer_free(&buffer);
  return bytes;
}

extern "C" std::int64_t readFromSource(void* context, std::uint64_t offset, std::uint8_t* buffer,
                                       std::size_t size) {
  const auto& source = *static_cast<const LazStreamDecoder::Source*>(context);
  return source(offset, {reinterpret_cast<std::byte*>(buffer), size});
}

}  // namespace

Outcome<LazCodec> LazCodec::fromRecord(std::span<const std::byte> payload) {
  LazDescription description{};
  LazError error{};
  if (laz_describe(bytesOf(payload), payload.size(), &description, &error) != 0) {
    return failureOf(error);
  }
  return LazCodec({payload.begin(), payload.end()}, description);
}

Outcome<LazCodec> LazCodec::forFormat(std::uint8_t pointFormat, std::uint16_t extraBytes,
                                      std::uint32_t chunkPoints) {
  LazBuffer record{};
  LazError error{};
  if (laz_make_vlr(pointFormat, extraBytes, chunkPoints, &record, &error) != 0) {
    return failureOf(error);
  }
  return fromRecord(takeOver(record));
}

Outcome<std::vector<LazChunk>> LazCodec::readChunkTable(std::span<const std::byte> table,
                                                        std::size_t chunkCount) const {
  std::vector<LazChunk> chunks(chunkCount);
  LazError error{};
  if (laz_read_chunk_table(bytesOf(table), table.size(), hasVariableChunks() ? 1 : 0, chunks.data(),
                           chunks.size(), &error) != 0) {
    return failureOf(error);
  }
  return chunks;
}

Outcome<void> LazCodec::decompress(std::span<const std::byte> chunk, std::uint64_t skip,
                                   std::span<std::byte> records) const {
  LazError error{};
  if (laz_decompress_chunk(bytesOf(record_), record_.size(), bytesOf(chunk), chunk.size(), skip,
                           bytesOf(records), records.size(), &error) != 0) {
    return failureOf(error);
  }
  return {};
}

Outcome<std::vector<std::byte>> LazCodec::compress(std::span<const std::byte> records) const {
  LazBuffer chunk{};
  LazError error{};
  if (laz_compress_chunk(bytesOf(record_), record_.size(), bytesOf(records), records.size(), &chunk,
                         &error) != 0) {
    return failureOf(error);
  }
  return takeOver(chunk);
}

Outcome<std::vector<std::byte>> LazCodec::writeChunkTable(std::span<const LazChunk> chunks) const {
  LazBuffer table{};
  LazError error{};
  if (laz_write_chunk_table(chunks.data(), chunks.size(), hasVariableChunks() ? 1 : 0, &table,
                            &error) != 0) {
    return failureOf(error);
  }
  return takeOver(table);
}

Outcome<std::unique_ptr<LazStreamDecoder>> LazStreamDecoder::make(const LazCodec& codec,
                                                                  Source source) {
  std::unique_ptr<LazStreamDecoder> decoder(new LazStreamDecoder(std::move(source)));
  const std::vector<std::byte>& record = codec.record();
  LazError error{};
  if (laz_stream_open(bytesOf(record), record.size(), readFromSource, &decoder->source_,
                      &decoder->stream_, &error) != 0) {
    return failureOf(error);
  }
  return decoder;
}

LazStreamDecoder::~LazStreamDecoder() { laz_stream_close(stream_); }

Outcome<void> LazStreamDecoder::read(std::span<std::byte> records) {
  LazError error{};
  if (laz_stream_read(stream_, bytesOf(records), records.size(), &error) != 0) {
    return failureOf(error);
  }
  return {};
}

}  // namespace Formats
