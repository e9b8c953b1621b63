// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ZlibStream.hpp"

#include <fmt/format.h>
#include <libdeflate.h>

#include <algorithm>

#ifdef LIDARLIB_HAVE_ISAL
#include "datamodel/container/SectionDeflater.hpp"
#endif

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// An upper bound for a deflate stream of any kind: the input in stored blocks of the smallest
/// size that either library uses, their headers, the zlib frame, and some slack for each section.
std::size_t streamBound(std::size_t plainBytes, std::size_t sectionBytes) {
  const std::size_t sections = plainBytes / std::max<std::size_t>(sectionBytes, 1);
  return plainBytes + plainBytes / 1000 + 1024 * (sections + 1);
}

}  // namespace

#ifdef LIDARLIB_HAVE_ISAL

struct ZlibCompressor::Backend {
  SectionDeflater deflater;

  std::size_t run(std::span<const std::byte> plain, std::size_t sectionBytes, StreamCodes codes,
                  std::span<std::byte> out) {
    return deflater.deflate(plain, sectionBytes, codes, out);
  }
};

#else

struct ZlibCompressor::Backend {
  struct Free {
    void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
  };
  std::unique_ptr<libdeflate_compressor, Free> compressor{libdeflate_alloc_compressor(1)};

  /// The number of bytes written to `out`, 0 on failure. The library finds by itself where the kind
  /// of bytes changes, and makes its own codes.
  std::size_t run(std::span<const std::byte> plain, std::size_t /*sectionBytes*/,
                  StreamCodes /*codes*/, std::span<std::byte> out) {
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

Outcome<std::span<const std::byte>> ZlibCompressor::compress(std::span<const std::byte> plain,
                                                             std::size_t sectionBytes,
                                                             StreamCodes codes) {
  const std::size_t bound = streamBound(plain.size(), sectionBytes);
  if (stream_.size() < bound) stream_.resize(bound);
  const std::size_t written = backend_->run(plain, sectionBytes, codes, stream_);
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
