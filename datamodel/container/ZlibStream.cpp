// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ZlibStream.hpp"

#include <fmt/format.h>
#include <libdeflate.h>

#include <cstdint>
#include <cstring>
#include <limits>

#ifdef LIDARLIB_HAVE_ISAL
#include <isa-l/igzip_lib.h>
#endif

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// An upper bound for a deflate stream of any kind: the input in stored blocks of the smallest
/// size that either library uses, their headers, the zlib frame, and some slack.
std::size_t streamBound(std::size_t plainBytes) { return plainBytes + plainBytes / 1000 + 1024; }

}  // namespace

#ifdef LIDARLIB_HAVE_ISAL

namespace {

/// The library only reads what it is given; its interface merely lacks the const.
std::uint8_t* readable(std::span<const std::byte> bytes) {
  return const_cast<std::uint8_t*>(reinterpret_cast<const std::uint8_t*>(bytes.data()));
}

/// Where the run of equal bytes that begins at `start` ends.
std::size_t runEnd(std::span<const std::byte> bytes, std::size_t start) {
  constexpr std::size_t kWindow = 1024;
  std::size_t end = start + 1;
  while (end + kWindow <= bytes.size() && std::memcmp(&bytes[end - 1], &bytes[end], kWindow) == 0) {
    end += kWindow;
  }
  while (end < bytes.size() && bytes[end] == bytes[start]) ++end;
  return end;
}

/// Whether some bytes are no more than a few runs of equal ones.
bool isFewRuns(std::span<const std::byte> bytes) {
  constexpr int kMostRuns = 16;
  std::size_t end = 0;
  for (int run = 0; run < kMostRuns && end < bytes.size(); ++run) end = runEnd(bytes, end);
  return end == bytes.size();
}

}  // namespace

/// ISA-L's levels 1 and 2 choose now and then other matches when their state lies at another
/// address, so that equal input would not give equal bytes. Level 0 is free of that; a Huffman
/// table of the chunk's own, made from a sample, brings it to the size of level 1's streams.
struct ZlibCompressor::Backend {
  isal_zstream stream{};
  isal_huff_histogram histogram{};
  isal_hufftables tables{};
  isal_hufftables runTables{};  ///< for chunks of few runs, once made
  bool hasRunTables = false;
  std::vector<std::byte> sample;

  /// One window in eight, evenly over the whole: the byte planes of shuffled numbers differ.
  std::span<const std::byte> sampleOf(std::span<const std::byte> plain) {
    constexpr std::size_t kWindow = 4096;
    constexpr std::size_t kStride = 8 * kWindow;
    if (plain.size() < kStride) return plain;
    sample.clear();
    for (std::size_t at = 0; at + kWindow <= plain.size(); at += kStride) {
      const auto window = plain.subspan(at, kWindow);
      sample.insert(sample.end(), window.begin(), window.end());
    }
    return sample;
  }

  bool makeTables(std::span<const std::byte> typical, isal_hufftables& made) {
    histogram = {};
    isal_update_histogram(readable(typical), static_cast<int>(typical.size()), &histogram);
    return isal_create_hufftables(&made, &histogram) == 0;
  }

  /// The tables for a chunk; null on failure. Fields that say the same of all points are common:
  /// one table serves all of their chunks, and making it would take longer than using it.
  isal_hufftables* tablesFor(std::span<const std::byte> plain) {
    if (!isFewRuns(plain)) return makeTables(sampleOf(plain), tables) ? &tables : nullptr;
    if (!hasRunTables) {
      const std::vector<std::byte> run(4096);
      hasRunTables = makeTables(run, runTables);
    }
    return hasRunTables ? &runTables : nullptr;
  }

  /// The number of bytes written to `out`, 0 on failure.
  std::size_t run(std::span<const std::byte> plain, std::span<std::byte> out) {
    constexpr std::size_t kMaxBytes = std::numeric_limits<std::uint32_t>::max();
    if (plain.size() > kMaxBytes || out.size() > kMaxBytes) return 0;
    isal_hufftables* const fitting = tablesFor(plain);
    if (fitting == nullptr) return 0;
    isal_deflate_stateless_init(&stream);
    // Fields that the initialisation leaves alone.
    stream.hist_bits = 0;
    stream.hufftables = fitting;
    stream.gzip_flag = IGZIP_ZLIB;
    stream.end_of_stream = 1;
    stream.flush = NO_FLUSH;
    stream.next_in = readable(plain);
    stream.avail_in = static_cast<std::uint32_t>(plain.size());
    stream.next_out = reinterpret_cast<std::uint8_t*>(out.data());
    stream.avail_out = static_cast<std::uint32_t>(out.size());
    if (isal_deflate_stateless(&stream) != COMP_OK || stream.avail_in != 0) return 0;
    return stream.total_out;
  }
};

#else

struct ZlibCompressor::Backend {
  struct Free {
    void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
  };
  std::unique_ptr<libdeflate_compressor, Free> compressor{libdeflate_alloc_compressor(1)};

  /// The number of bytes written to `out`, 0 on failure.
  std::size_t run(std::span<const std::byte> plain, std::span<std::byte> out) {
    if (!compressor) return 0;
    return libdeflate_zlib_compress(compressor.get(), plain.data(), plain.size(), out.data(),
                                    out.size());
  }
};

#endif

ZlibCompressor::ZlibCompressor() : backend_(std::make_unique<Backend>()) {}
ZlibCompressor::~ZlibCompressor() = default;
ZlibCompressor::ZlibCompressor(ZlibCompressor&&) noexcept = default;
ZlibCompressor& ZlibCompressor::operator=(ZlibCompressor&&) noexcept = default;

Outcome<std::span<const std::byte>> ZlibCompressor::compress(std::span<const std::byte> plain) {
  const std::size_t bound = streamBound(plain.size());
  if (stream_.size() < bound) stream_.resize(bound);
  const std::size_t written = backend_->run(plain, stream_);
  if (written == 0) {
    return Failure{fmt::format("deflate: no stream came out of {} bytes", plain.size())};
  }
  return std::span<const std::byte>(stream_).first(written);
}

/// libdeflate also where ISA-L is there: it expands such streams 1.6 times as fast.
struct ZlibExpander::Backend {
  struct Free {
    void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
  };
  std::unique_ptr<libdeflate_decompressor, Free> decompressor{libdeflate_alloc_decompressor()};
};

ZlibExpander::ZlibExpander() : backend_(std::make_unique<Backend>()) {}
ZlibExpander::~ZlibExpander() = default;
ZlibExpander::ZlibExpander(ZlibExpander&&) noexcept = default;
ZlibExpander& ZlibExpander::operator=(ZlibExpander&&) noexcept = default;

Outcome<void> ZlibExpander::expand(std::span<const std::byte> stream, std::span<std::byte> plain) {
  if (!backend_->decompressor) return Failure{"inflate: no memory for the decompressor"};
  std::size_t expanded = 0;
  switch (libdeflate_zlib_decompress(backend_->decompressor.get(), stream.data(), stream.size(),
                                     plain.data(), plain.size(), &expanded)) {
    case LIBDEFLATE_SUCCESS:
      break;
    case LIBDEFLATE_INSUFFICIENT_SPACE:
      return Failure{
          fmt::format("inflate: the stream holds too many bytes, expected {}", plain.size())};
    default:
      return Failure{fmt::format("inflate: the stream of {} bytes is damaged", stream.size())};
  }
  if (expanded != plain.size()) {
    return Failure{fmt::format("inflate: the stream holds too few bytes, found {}, expected {}",
                               expanded, plain.size())};
  }
  return {};
}

}  // namespace Fiber::Container
