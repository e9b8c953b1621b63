// SPDX-License-Identifier: Apache-2.0
//
// Deflate in zlib's stream format (RFC 1950), whole buffers at a time: what HDF5's deflate filter
// stores in a chunk. Compression is ISA-L's where the build found it and libdeflate's otherwise, at
// their fast end; reading is libdeflate's. Streams of either are ordinary zlib streams. For one
// build on one kind of processor the same input always gives the same bytes.

#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// Where the codes of a stream come from.
enum class StreamCodes {
  kOwn,         ///< made for it: equal input gives equal bytes, whatever came before
  kLikeBefore,  ///< those of the stream before, where they suit, which saves making them: equal
                ///< series of streams give equal bytes
};

/// Compresses whole buffers. Threads: one object per thread, it reuses its work space.
class ZlibCompressor {
 public:
  ZlibCompressor();
  ~ZlibCompressor();
  ZlibCompressor(ZlibCompressor&&) noexcept;
  ZlibCompressor& operator=(ZlibCompressor&&) noexcept;

  /// The zlib stream of `plain`; the bytes stay valid until the next call. `sectionBytes`: after so
  /// many bytes each the kind of bytes changes, as between the planes of shuffled numbers; a hint.
  /// Requires: sectionBytes > 0.
  /// Errors: the compressor could not be set up or gave no stream (out of memory).
  MemCore::Outcome<std::span<const std::byte>> compress(std::span<const std::byte> plain,
                                                        std::size_t sectionBytes,
                                                        StreamCodes codes = StreamCodes::kOwn);
  /// The same where all bytes are of one kind.
  MemCore::Outcome<std::span<const std::byte>> compress(std::span<const std::byte> plain) {
    return compress(plain, plain.size() + 1);
  }

 private:
  struct Backend;
  std::unique_ptr<Backend> backend_;
  std::vector<std::byte> stream_;
};

/// Expands whole buffers. Threads: one object per thread.
class ZlibExpander {
 public:
  ZlibExpander();
  ~ZlibExpander();
  ZlibExpander(ZlibExpander&&) noexcept;
  ZlibExpander& operator=(ZlibExpander&&) noexcept;

  /// Expands `stream` into exactly `plain`. Errors: the stream is damaged (its checksum included)
  /// or holds more or less than plain.size() bytes; `plain` then has unspecified contents.
  MemCore::Outcome<void> expand(std::span<const std::byte> stream, std::span<std::byte> plain);

 private:
  struct Backend;
  std::unique_ptr<Backend> backend_;
};

}  // namespace Fiber::Container
